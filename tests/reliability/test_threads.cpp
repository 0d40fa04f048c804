// One set of objects a thread, and one seed a run: neither another thread nor another time of day shows in the logs.
#include <gtest/gtest.h>

#include <thread>

#include "reliability/simulated_tune.h"

namespace korvane {
namespace {

TEST(Threads, WithObjectsOfTheirOwnDoNotMeet) {
    constexpr std::uint64_t threads = 4;
    std::vector<std::string> alone, together(threads);
    for (std::uint64_t seed = 1; seed <= threads; ++seed) alone.push_back(SimulatedTune(seed).run());
    std::vector<std::thread> running;
    for (std::uint64_t i = 0; i < threads; ++i)
        running.emplace_back([&, i] { together[i] = SimulatedTune(i + 1).run(); });
    for (std::thread& thread : running) thread.join();
    EXPECT_EQ(together, alone);
}

TEST(TuneLog, IsTheSameForTheSameSeedAtAnyTimeOfDay) {
    const std::string log = times_aside(SimulatedTune(7).run());
    EXPECT_EQ(times_aside(SimulatedTune(7, 86395).run()), log);
    EXPECT_NE(times_aside(SimulatedTune(8).run()), log) << "the seed changes nothing";
    EXPECT_NE(log.find("adjusted to "), std::string::npos);
}

}  // namespace
}  // namespace korvane
