#include "spectrum/mass_time_windows.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "support/spectrum_world.h"

namespace korvane {
namespace {

struct Windows {
    SpectrumWorld world;
    Trace trace{world.test.tracers};
    MassTimeWindows windows{trace};
    CalibrationObject calibration = world.instrument().calibrations[0];

    std::int32_t index_of(const std::vector<double>& axis, double mass) {
        return windows.GetMassArrayIndexForThisMass(axis, mass);
    }
};

TEST(MassSearch, FindsTheNearerNeighbourOnAnyAxis) {
    Windows test;
    test.world.test.trace().on = false;
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

TEST(MassSearch, TieGoesToTheLowerSample) {
    Windows test;
    EXPECT_EQ(test.index_of({100, 101, 102, 103, 104}, 102.5), 2);
}

TEST(MassSearch, OutsideTheAxisIsNotFound) {
    Windows test;
    EXPECT_EQ(test.index_of({100, 101, 102}, 99), -1);
    EXPECT_EQ(test.index_of({100, 101, 102}, 103), -1);
}

TEST(MassSearch, ExactHitCountsOnlyAtTheLastMidpoint) {
    // Bisection of 0..4 probes 2, then 1 or 3, and ends there.
    Windows test;
    const std::vector<double> axis{100, 101, 102, 103, 104};
    const std::vector<int> expected{-1, 1, -1, 3, -1};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(test.index_of(axis, axis[static_cast<std::size_t>(i)]), expected[i]) << i;
}

TEST(MassSearch, AxisOfOneSampleIsASubscriptErrorWhereverTheMassLies) {
    Windows test;
    for (const double mass : {99.0, 100.0, 101.0})
        EXPECT_EQ(error_of([&] { test.index_of({100}, mass); }).number(), error_number::subscript) << mass;
}

TEST(MassSearch, TracesTheUnspacedResultLine) {
    Windows test;
    test.index_of({100, 101, 102}, 101.25);
    const std::vector<std::string> expected{
        "> GetMassArrayIndexForThisMass",
        "GetMassArrayIndexForThisMass: ---------------------------------------------",
        "GetMassArrayIndexForThisMass: searching mass index for mass 101.25",
        "GetMassArrayIndexForThisMass: mass index for mass 101.25Is 1",
        "GetMassArrayIndexForThisMass: ---------------------------------------------",
        "< GetMassArrayIndexForThisMass"};
    EXPECT_EQ(test.world.test.trace().lines, expected);
}

TEST(TimeIndex, PercentWindowReachesTheSameShareToBothSidesInTime) {
    Windows test;
    test.windows.CalculateTimeIndex(test.world.axis, test.calibration, std::vector<double>{1600}, 0, 1.0F);
    // 39600 and 40400 ns, on samples every 10 ns from 5003 ns: the nearer ones are 39603 and 40403.
    EXPECT_EQ(test.windows.range(0).start, 3460);
    EXPECT_EQ(test.windows.range(0).end, 3540);
    EXPECT_TRUE(test.world.test.trace().contains("CalculateTimeIndex: Using %T window"));
}

TEST(TimeIndex, PercentageIsWidenedFromSinglePrecision) {
    Windows test;
    const float percent = 0.3F;
    test.windows.CalculateTimeIndex(test.world.axis, test.calibration, std::vector<double>{900}, 0, percent);
    const double edge = 30000 - static_cast<double>(percent) * 30000 / 100;
    EXPECT_TRUE(test.world.test.trace().contains("CalculateTimeIndex: timeRangeList(0); mList(0); times(0) = " +
                                                 number_text(edge)))
        << edge;
}

TEST(TimeIndex, MassWindowOfZeroHasEqualEnds) {
    Windows test;
    test.windows.CalculateTimeIndex(test.world.axis, nullptr, std::vector<double>{400, 900}, 0, 0.0F);
    for (int position : {0, 1}) {
        EXPECT_GT(test.windows.range(position).start, 0);
        EXPECT_EQ(test.windows.range(position).start, test.windows.range(position).end);
    }
}

TEST(TimeIndex, NeitherWindowUsableIsTheDetectedErrorAndKeepsTheOldTable) {
    Windows test;
    test.windows.CalculateTimeIndex(test.world.axis, nullptr, std::vector<double>{400}, 1, 0.0F);
    for (const double delta : {-1.0, std::nan("")}) {
        const Error error = error_of([&] {
            test.windows.CalculateTimeIndex(test.world.axis, test.calibration, std::vector<double>{400, 900}, delta,
                                            -1.0F);
        });
        EXPECT_EQ(error.number(), -1);
        EXPECT_EQ(error.description(), "Invalid delta mass or percentage time");
    }
    EXPECT_NO_THROW(test.windows.range(0));
    EXPECT_EQ(error_of([&] { test.windows.range(1); }).number(), error_number::subscript);
    EXPECT_EQ(error_of([&] { test.windows.range(-1); }).number(), error_number::subscript);
}

TEST(TimeIndex, WindowPastTheLastSampleHasNoEnd) {
    Windows test;
    test.windows.CalculateTimeIndex(test.world.axis, test.calibration, std::vector<double>{3570}, 0, 1.0F);
    EXPECT_GT(test.windows.range(0).start, 0);
    EXPECT_EQ(test.windows.range(0).end, -1);
}

}  // namespace
}  // namespace korvane
