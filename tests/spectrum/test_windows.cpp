// Masses turned into ranges of sample positions.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "support/raised.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

struct Windows : ParserWorld {
    std::int32_t index_of(const std::vector<double>& axis_masses, double mass) {
        return parser.GetMassArrayIndexForThisMass(axis_masses, mass);
    }
    std::string set_up(std::vector<double> list, double delta_mass, float percent) {
        // Windows in amu need no calibration.
        const CalibrationObject calibration = percent > 0 ? instrument().calibrations[0] : nullptr;
        return raised([&] { parser.CalculateTimeIndex(axis, calibration, list, delta_mass, percent); });
    }
    /// "dStartIndex[...], EndTimeRange[...]" of a position, as the search logs it; the error where it has no range.
    std::string range(std::int32_t position) {
        PeakInfo ns, amu;
        double baseline = 0;
        const std::string error = raised([&] {
            parser.FindPeakForMass(position, start_ns, samples, ns, amu, baseline, instrument().calibrations[0]);
        });
        if (error != "no error") return error;
        const auto log = tune_log();
        const std::string& line = log[log.size() - 3];
        const auto from = line.find("dStartIndex"), to = line.find(", dStartTimeToSearch");
        return line.substr(from, to - from);
    }
};

TEST(MassSearch, FindsTheNearerNeighbourOnAnyAxis) {
    Windows test;
    test.test.trace().on = false;
    std::mt19937 random(5);
    std::uniform_real_distribution<double> step(0.01, 2), position(0, 1);
    for (int trial = 0; trial < 400; ++trial) {
        std::vector<double> axis{100};
        const std::size_t count = 2 + trial % 37;
        while (axis.size() < count) axis.push_back(axis.back() + step(random));
        const double mass = axis.front() + position(random) * (axis.back() - axis.front());
        std::size_t upper = 1;
        while (axis[upper] <= mass) ++upper;
        const bool takes_upper = axis[upper] - mass < mass - axis[upper - 1];
        // The bisection never looks between the first two samples of a longer axis.
        const bool is_overlooked = upper == 1 && count > 2;
        const int nearest = static_cast<int>(takes_upper ? upper : upper - 1);
        EXPECT_EQ(test.index_of(axis, mass), is_overlooked ? -1 : nearest) << "trial " << trial;
    }
}

TEST(MassSearch, TieGoesToTheLowerSampleAndExactHitsCountAtTheLastMidpointOnly) {
    // Bisection of 0..4 probes 2, then 1 or 3, and ends there.
    const std::pair<double, int> cases[] = {{102.5, 2}, {99, -1},  {105, -1}, {100, -1},
                                            {101, 1},   {102, -1}, {103, 3},  {104, -1}};
    Windows test;
    for (const auto& [mass, index] : cases) EXPECT_EQ(test.index_of({100, 101, 102, 103, 104}, mass), index) << mass;
    for (const double mass : {99.0, 100.0, 101.0})
        EXPECT_EQ(raised([&] { test.index_of({100}, mass); }), "9|Korvane|Subscript out of range: index 1") << mass;
}

TEST(TimeIndex, WindowReachesTheSameShareOrMassToBothSides) {
    struct Case {
        double mass, delta_mass;
        float percent;
        const char* range;
    };
    const Case cases[] = {
        // 39600 and 40400 ns, on samples every 10 ns from 5003 ns: the nearer ones are 39603 and 40403.
        {1600, 0, 1.0F, "dStartIndex[3460], EndTimeRange[3540]"},
        {400, 4, 0.0F, "dStartIndex[1490], EndTimeRange[1510]"},  // 19899.7 and 20099.8 ns
        {400, 0, 0.0F, "dStartIndex[1500], EndTimeRange[1500]"},
        {3570, 0, 1.0F, "dStartIndex[5415], EndTimeRange[-1]"},  // past the last sample
    };
    for (const Case& one : cases) {
        Windows test;
        EXPECT_EQ(test.set_up({one.mass}, one.delta_mass, one.percent), "no error");
        EXPECT_EQ(test.range(0), one.range);
    }
}

TEST(TimeIndex, ListThatBeginsBelowZeroGivesTheWindowsOfItsPositionsFromZeroOn) {
    for (const auto& [delta, percent] : {std::pair{0.0, 1.0F}, {4.0, 0.0F}}) {
        Windows test;
        const auto set_up = [&](const VariantArray<double>& list) {
            test.parser.CalculateTimeIndex(test.axis, test.instrument().calibrations[0], list, delta, percent);
            return test.range(0) + test.range(1) + test.range(2);
        };
        const std::string expected = set_up(std::vector<double>{400, 900});
        EXPECT_EQ(set_up({std::vector<double>{100, 1600, 400, 900}, -2}), expected);
    }
}

TEST(TimeIndex, NeitherWindowUsableIsTheDetectedErrorAndKeepsTheOldTable) {
    Windows test;
    test.set_up({400}, 4, 0.0F);
    for (const double delta : {-1.0, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(test.set_up({400, 900}, delta, -1.0F), "-1|CalculateTimeIndex|Invalid delta mass or percentage time");
    EXPECT_EQ(test.range(0), "dStartIndex[1490], EndTimeRange[1510]");
    for (const int outside : {-1, 1})
        EXPECT_EQ(test.range(outside),
                  "9|Korvane|Subscript out of range: calibrant position " + std::to_string(outside));
    test.instrument().calibrations[0] = nullptr;
    EXPECT_EQ(test.set_up({400, 900}, 0, 1.0F),
              "91|Korvane|Object variable or With block variable not set: mass-time calibration");
}

}  // namespace
}  // namespace korvane
