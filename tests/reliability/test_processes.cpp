// Promises between real processes on a real disk: one that is killed while it saves, and one that asks another to stop.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <random>
#include <thread>

#include "korvane/abort_helper.h"
#include "korvane/tune_prefs_xml.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr int kills = 60, races = 200;
#else
constexpr int kills = 300, races = 1000;
#endif

pid_t start_child(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    return child;
}

TEST(KilledProcess, LeavesTheOldOrTheNewFileAndNoLitterAfterTheNextSave) {
    TestPlatform test;
    test.trace().on = false;
    const std::string padding(20000, 'x');
    test.preference("Padding", padding);
    test.preference("Mode", "even");
    const auto file = test.base() / "TunePreferences.xml";
    const std::string even = read_text(file);
    test.preference("Mode", "odd");
    const std::string odd = read_text(file);

    std::mt19937 random(7);
    int killed_early = 0;
    for (int round = 0; round < kills; ++round) {
        const pid_t child = start_child([&] {
            clsTunePrefsXML store(test.platform());
            for (int save = 0;; ++save) store.WriteTunePreference("Mode", save % 2 ? "odd" : "even");
        });
        ASSERT_GT(child, 0);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        const std::string now = read_text(file);
        ASSERT_TRUE(now == even || now == odd) << "round " << round << ": " << now.size() << " bytes, torn";
        killed_early += std::distance(std::filesystem::directory_iterator(test.base()), {}) > 4;
    }
    const pid_t last = start_child([&] { clsTunePrefsXML(test.platform()).WriteTunePreference("Mode", "odd"); });
    waitpid(last, nullptr, 0);
    for (const auto& entry : std::filesystem::directory_iterator(test.base()))
        EXPECT_FALSE(entry.path().extension() == ".tmp") << entry.path() << " stays behind";
    std::cout << killed_early << " of " << kills << " kills left a temporary file for the next save to clean up\n";
}

TEST(AbortRace, ATriggerFromAnotherProcessIsSeenAtTheNextPollEveryTime) {
    TestPlatform test;
    test.trace().on = false;
    int to_child[2], from_child[2];
    ASSERT_EQ(pipe(to_child), 0);
    ASSERT_EQ(pipe(from_child), 0);
    char signal = 0;
    const pid_t child = start_child([&] {
        AbortHelper helper(test.platform());
        while (read(to_child[0], &signal, 1) == 1 && signal == 'g') {
            helper.TriggerAbort();
            if (write(from_child[1], "t", 1) != 1) _exit(1);
        }
    });
    ASSERT_GT(child, 0);
    AbortHelper helper(test.platform());
    long polls = 0;
    for (int race = 0; race < races; ++race) {
        helper.Reset();
        ASSERT_FALSE(helper.UserHasClickedAbort()) << "race " << race;
        ASSERT_EQ(write(to_child[1], "g", 1), 1);
        // Polls run against the whole of the other process's save: none may fail, whatever moment it catches.
        bool seen = false;
        const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        for (; !seen; ++polls) {
            ASSERT_NO_THROW(seen = helper.UserHasClickedAbort()) << "race " << race;
            ASSERT_LT(std::chrono::steady_clock::now(), give_up) << "race " << race << ": the trigger is never seen";
        }
        ASSERT_EQ(read(from_child[0], &signal, 1), 1);
        ASSERT_TRUE(helper.UserHasClickedAbort()) << "race " << race << ": a finished trigger is not seen";
    }
    ASSERT_EQ(write(to_child[1], "q", 1), 1);
    waitpid(child, nullptr, 0);
    std::cout << races << " races, " << polls << " polls against a running save\n";
}

}  // namespace
}  // namespace korvane
