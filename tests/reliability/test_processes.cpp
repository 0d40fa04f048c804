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

/// A process that repeats an action until it is killed.
struct Repeating {
    explicit Repeating(const std::function<void(int)>& action) : process(fork()) {
        for (int i = 0; process == 0; ++i) action(i);
    }
    ~Repeating() {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    pid_t process;
};

TEST(KilledProcess, LeavesTheOldOrTheNewFileAndNoLitterAfterTheNextSave) {
    TestPlatform test;
    test.trace().on = false;
    test.preference("Padding", std::string(20000, 'x'));
    test.preference("Mode", "even");
    const auto file = test.base() / "TunePreferences.xml";
    const std::string even = read_text(file);
    test.preference("Mode", "odd");
    const std::string odd = read_text(file);
    clsTunePrefsXML store(test.platform());
    std::mt19937 random(7);
    int killed_early = 0;
    for (int round = 0; round < kills; ++round) {
        {
            const Repeating saving([&](int save) { store.WriteTunePreference("Mode", save % 2 ? "odd" : "even"); });
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        }
        const std::string now = read_text(file);
        ASSERT_TRUE(now == even || now == odd) << "round " << round << ": " << now.size() << " bytes, torn";
        for (const auto& entry : std::filesystem::directory_iterator(test.base()))
            killed_early += entry.path().extension() == ".tmp";
    }
    store.WriteTunePreference("Mode", "odd");
    for (const auto& entry : std::filesystem::directory_iterator(test.base()))
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path() << " stays behind";
    std::cout << killed_early << " of " << kills << " kills left a temporary file for a later save to clean up\n";
}

TEST(AbortRace, ATriggerFromAnotherProcessIsSeenAndNoPollFailsAgainstItsSave) {
    TestPlatform test;
    test.trace().on = false;
    test.preference("AbortFlag", "0");
    AbortHelper helper(test.platform());
    const Repeating triggering([&](int) {
        if (!helper.UserHasClickedAbort()) helper.TriggerAbort();
    });
    long polls = 0;
    for (int race = 0; race < races; ++race) {
        const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        for (bool seen = false; !seen; ++polls) {
            ASSERT_NO_THROW(seen = helper.UserHasClickedAbort()) << "race " << race;
            ASSERT_LT(std::chrono::steady_clock::now(), give_up) << "race " << race << ": the trigger is never seen";
        }
        helper.Reset();
    }
    std::cout << races << " races, " << polls << " polls against a running save\n";
}

}  // namespace
}  // namespace korvane
