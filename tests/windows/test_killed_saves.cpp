// A process ended at any moment of its saves leaves the old or the new file.
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

#include "korvane/korvane.h"
#include "support/child_process.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

constexpr int kills = 24;

TEST(KilledProcess, LeavesTheOldOrTheNewFileAndNoLitterAfterTheNextSave) {
    const TemporaryFolder folder;
    const std::string base = folder.file("base");
    create_base_folder(base);
    const auto file = std::filesystem::path(base) / "TunePreferences.xml";
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
        ChildProcess child({KORVANE_WINDOWS_CHILD, base}, folder.file("child"));
        // From its first save on, or there would be little to end. Looked at, not opened, which would stop the save.
        while (child.is_running() && std::filesystem::file_size(file, ignored) == first.size())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_TRUE(child.is_running()) << read_text(folder.file("child.err"));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        child.kill();
        const std::string now = read_text(file);
        ASSERT_TRUE(now == first || now == even || now == odd)
            << "round " << round << ": " << now.size() << " bytes, torn";
    }
    clsTunePrefsXML(make_embedded_platform({.base_folder = base})).WriteTunePreference("Mode", "even");
    EXPECT_EQ(read_text(file), even);
    for (const auto& entry : std::filesystem::directory_iterator(base))
        EXPECT_FALSE(entry.path().extension() == ".tmp") << entry.path() << " stays behind";
}

}  // namespace
}  // namespace korvane
