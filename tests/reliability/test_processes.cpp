// Promises between real processes on a real disk: one that is killed while it saves, and several that save the same
// file.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <list>
#include <random>
#include <thread>

#include "reliability/patient_platform.h"
#include "support/child_process.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

#if defined(_WIN32)
constexpr int kills = 24, longest_us = 20000;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int kills = 60, longest_us = 5000;
#else
constexpr int kills = 300, longest_us = 5000;
#endif

TEST(KilledProcess, LeavesTheOldOrTheNewFileAndNoLitterAfterTheNextSave) {
    const EmbeddedBase world;
    const auto file = world.base / "TunePreferences.xml";
    const std::string end = "</TunePreferences>", whole = read_text(file);
    const auto with_mode = [&](const std::string& mode) {
        std::string bytes = whole;
        return bytes.insert(bytes.rfind(end),
                            "<Padding>" + std::string(20000, 'x') + "</Padding><Mode>" + mode + "</Mode>");
    };
    const std::string first = with_mode("first"), even = with_mode("even"), odd = with_mode("odd");
    std::mt19937 random(7);
    std::error_code ignored;
    for (int round = 0; round < kills; ++round) {
        write_text(file, first);
        ChildProcess child({KORVANE_TEST_CHILD, world.base.string()}, world.folder.file("child"));
        // From its first save on, or there would be little to end. Looked at, not opened, which would stop the save.
        while (child.is_running() && std::filesystem::file_size(file, ignored) == first.size())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_TRUE(child.is_running()) << read_text(world.folder.file("child.err"));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % longest_us));
        child.kill();
        const std::string now = read_text(file);
        ASSERT_TRUE(now == first || now == even || now == odd)
            << "round " << round << ": " << now.size() << " bytes, torn";
    }
    clsTunePrefsXML(world.platform()).WriteTunePreference("Mode", "even");
    EXPECT_EQ(read_text(file), even);
    for (const std::string& name : names_in(world.base)) EXPECT_NE(name.front(), '.') << name << " stays behind";
}

// Two programs write preferences of their own while this one requests aborts and takes them back.
TEST(Writers, OfDifferentElementsAndOfTheAbortFlagLoseNothing) {
    const char* const given = std::getenv("KORVANE_WRITES");
    const int count = given ? std::atoi(given) : 60;
    const EmbeddedBase world;
    AbortHelper helper(patient_platform(world.base.string()));
    std::list<ChildProcess> editors;
    for (const std::string name : {"AIC_RunFastVersion", "LogSetpointTraffic"})
        editors.emplace_back(
            std::vector<std::string>{KORVANE_TEST_CHILD, world.base.string(), name, std::to_string(count)},
            world.folder.file(name));
    int lost = 0, requests = 0;
    for (; requests < count || std::ranges::any_of(editors, &ChildProcess::is_running); ++requests) {
        helper.TriggerAbort();
        lost += !helper.UserHasClickedAbort();
        helper.Reset();
        lost += helper.UserHasClickedAbort();
    }
    EXPECT_EQ(lost, 0);
    for (ChildProcess& editor : editors) EXPECT_EQ(editor.exit_code(), 0) << "a write was undone";
}

}  // namespace
}  // namespace korvane
