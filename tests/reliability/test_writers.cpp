// Editors of one file at the same time: none loses what another wrote.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "korvane/forwarding.h"
#include "korvane/korvane.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

/// Its second lasts half a minute: on a machine with other work a turn may take longer than one of its own.
struct SlowClock final : ForwardingClock {
    using ForwardingClock::ForwardingClock;
    double seconds_since_midnight() override { return ForwardingClock::seconds_since_midnight() / 30; }
};

TEST(Writers, OfDifferentElementsAndOfTheAbortFlagLoseNothing) {
    const char* const given = std::getenv("KORVANE_WRITES");
    const int writes = given ? std::atoi(given) : 60;
    const TemporaryFolder folder;
    const std::string base = folder.file("base");
    create_base_folder(base);
    // Files of their own, so that locks are all that they share.
    const auto platform = [&] {
        Platform platform = make_embedded_platform({.base_folder = base});
        platform.clock = std::make_shared<SlowClock>(make_system_clock());
        platform.files = make_system_files();
        return platform;
    };
    std::atomic<int> lost = 0;
    std::atomic<bool> over = false;
    {
        std::vector<std::jthread> editors;
        for (const std::string name : {"AIC_RunFastVersion", "LogSetpointTraffic"})
            editors.emplace_back([&, name] {
                clsTunePrefsXML store(platform());
                for (int i = 1; i <= writes || !over; ++i) {
                    store.WriteTunePreference(name, std::to_string(i));
                    lost += store.GetTunePreference(name, true) != std::to_string(i);
                }
            });
        AbortHelper helper(platform());
        for (int i = 0; i < writes; ++i) {
            helper.TriggerAbort();
            lost += !helper.UserHasClickedAbort();
            helper.Reset();
            lost += helper.UserHasClickedAbort();
        }
        over = true;
    }
    EXPECT_EQ(lost, 0);
    for (const auto& entry : std::filesystem::directory_iterator(base))
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path() << " is left behind";
}

}  // namespace
}  // namespace korvane
