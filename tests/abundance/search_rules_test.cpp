// One test for every rule of the search that a tidy reader would be tempted to straighten.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "abundance/search_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using End = AdjustOutcome::End;
using Lines = std::vector<std::string>;

constexpr double not_given = search_value_not_given;

double adjust(SearchWorld& test, double low, double high, double resolution = not_given, double target = 251000) {
    return test.parser.BinaryAdjustAbundanceDownUsingThisSetpoint(50, 900, target, 30, true, low, high, resolution);
}
double first_probe(SearchWorld& test) {
    return test.parser.last_adjustment().probes.at(0).value;
}

TEST(SearchRules, OnlyTheExactWordHandsOverToTheFastVariant) {
    SearchWorld test;
    test.world.test.preference("AIC_RunFastVersion", "yes");
    test.adjust(251000);
    EXPECT_TRUE(test.journal_of("firmware").empty());
    SearchWorld fast;
    fast.run_fast();
    fast.adjust(251000);
    EXPECT_EQ(fast.journal_of("firmware").size(), 2);
    EXPECT_TRUE(fast.journal_of("write 50").empty());
}

TEST(SearchRules, LoneUpperBoundTakesTheMarkAsLowerBound) {
    SearchWorld test([](double) { return 9e6; });
    test.world.instrument().setpoint(50).resolution = 1e7;
    adjust(test, not_given, 80);
    EXPECT_EQ(first_probe(test), (80 + not_given) / 2);
}

TEST(SearchRules, LoneLowerBoundIsIgnored) {
    SearchWorld test;
    adjust(test, 40, not_given);
    EXPECT_EQ(first_probe(test), 50);
}

TEST(SearchRules, ResolutionBeyondHalfTheRangeReturnsTheEntryValueUnprobed) {
    SearchWorld test;
    EXPECT_EQ(adjust(test, 0, 100, 50.5), 70);
    EXPECT_TRUE(test.parser.last_adjustment().probes.empty());
    EXPECT_EQ(test.journal_of("write"), (Lines{"write 127 = 1000 (double)", "write 127 = 10000 (double)"}));
    adjust(test, 0, 100, 50);
    EXPECT_EQ(test.parser.last_adjustment().probes.size(), 1) << "a step of the resolution itself is still taken";
}

TEST(SearchRules, ResolutionNotAboveZeroStillEnds) {
    for (const double resolution : {0.0, -1.0, std::nan("")}) {
        SearchWorld test;
        test.world.test.limit("Calibration", "BinarySearchAbTolerance", "0");
        EXPECT_NO_THROW(adjust(test, 0, 100, resolution));
        EXPECT_LT(test.parser.last_adjustment().probes.size(), 80) << resolution;
    }
}

TEST(SearchRules, CapillaryVoltageIsSearchedToItsResolutionExceptByTheFastVariant) {
    for (const bool fast : {false, true}) {
        SearchWorld test;
        if (fast) test.run_fast();
        test.world.instrument().setpoint(SpectrumWorld::capillary_voltage_setpoint).resolution = 1;
        test.curve = [](double) { return 251000.0; };
        test.parser.BinaryAdjustAbundanceDownUsingThisSetpoint(SpectrumWorld::capillary_voltage_setpoint, 900, 251000,
                                                               30, true, 0, 100);
        EXPECT_EQ(test.parser.last_adjustment().end, fast ? End::within_tolerance : End::resolution_reached);
    }
}

TEST(SearchRules, AbundanceEqualToTheTargetCountsAsUnderIt) {
    SearchWorld test;
    test.world.test.limit("Calibration", "BinarySearchAbTolerance", "0");
    EXPECT_EQ(adjust(test, 0, 100, 30, 500000), 50);
    EXPECT_EQ(test.parser.last_adjustment().abundance, 50000);
    EXPECT_EQ(test.parser.last_adjustment().probes.at(0).low, 50);
}

TEST(SearchRules, ToleranceIsStrictAndDividedByTheSpeedUpFactorToo) {
    // 20000 x (1000 transients / 10000) / 10 = 200 counts around the scaled target.
    SearchWorld test;
    EXPECT_EQ(adjust(test, 0, 100, 30, 502000), 50);
    EXPECT_EQ(test.parser.last_adjustment().end, End::resolution_reached);
    adjust(test, 0, 100, 30, 501990);
    EXPECT_EQ(test.parser.last_adjustment().end, End::within_tolerance);
}

TEST(SearchRules, TransientsAreDividedUnrounded) {
    SearchWorld test;
    test.world.test.limit("Calibration", "AIC_SearchSpeedUpFactor", "3");
    test.world.instrument().setpoint(127).value = 10001;
    test.adjust(251000);
    EXPECT_EQ(test.journal_of("write 127").front(), "write 127 = " + number_text(10001.0 / 3) + " (double)");
    EXPECT_EQ(test.transients(), 10001);
}

TEST(SearchRules, SpeedUpFactorOfZeroFailsBeforeAnythingIsWritten) {
    SearchWorld test;
    test.world.test.limit("Calibration", "AIC_SearchSpeedUpFactor", "0");
    EXPECT_EQ(error_of([&] { test.adjust(251000); }).number(), error_number::division_by_zero);
    EXPECT_TRUE(test.journal_of("write").empty());
}

TEST(SearchRules, AveragingSettingMeasuresThreeSpectraAProbe) {
    SearchWorld test;
    adjust(test, 0, 100, 30);
    const int single = test.world.instrument().spectra;
    test.world.instrument().setpoint(162).value = 1;
    adjust(test, 0, 100, 30);
    EXPECT_EQ(test.world.instrument().spectra - single, 3 * single);
}

TEST(SearchRules, ObserverSeesTheBracketAfterEveryProbe) {
    SearchWorld test;
    std::vector<std::pair<double, double>> brackets;
    test.parser.on_adjust_probe([&](const AdjustProbe& probe) {
        EXPECT_EQ(probe.number, static_cast<int>(brackets.size()) + 1);
        brackets.emplace_back(probe.low, probe.high);
    });
    test.adjust(376000);
    using Brackets = std::vector<std::pair<double, double>>;
    EXPECT_EQ(brackets, (Brackets{{0, 50}, {25, 50}, {25, 50}}));
    EXPECT_EQ(test.parser.last_adjustment().value, 37.5);
    EXPECT_EQ(test.parser.last_adjustment().abundance, 37500);
}

// Errors inside a probe.

struct FailingProbe : SearchWorld {
    /// The n-th spectrum raises this error.
    void fail_at(int spectrum, Error error) {
        const auto acquire = world.instrument().acquire;
        world.instrument().acquire = [=](AcquiredSpectrum& answer, int number) {
            if (number == spectrum) throw error;
            acquire(answer, number);
        };
    }
};

TEST(SearchErrors, MissingPeakKeepsTheAbundanceOfTheProbeBefore) {
    FailingProbe test;
    test.fail_at(2, Error(-1, "anyone", "No peaks returned by peakfinder"));
    test.world.test.limit("Calibration", "BinarySearchAbTolerance", "0");
    adjust(test, 0, 100, 10);
    const auto& probes = test.parser.last_adjustment().probes;
    EXPECT_EQ(probes.at(0).abundance, 50000);
    EXPECT_EQ(probes.at(1).abundance, 50000);
    EXPECT_EQ(probes.at(2).abundance, 12500);
}

TEST(SearchErrors, OtherErrorsAreLoggedTwiceAndLeaveTheTransientsReduced) {
    FailingProbe test;
    test.fail_at(2, Error(-99, "ADC", "overheated"));
    const Error error = error_of([&] { test.adjust(251000); });
    EXPECT_EQ(error.number(), -99);
    EXPECT_EQ(error.source(), "ADC");
    EXPECT_EQ(test.transients(), 1000);
    const std::string name = "BinaryAdjustAbundanceDownUsingThisSetpoint";
    EXPECT_THAT(test.world.test.trace().lines,
                testing::IsSupersetOf({name + ": error[-99] in " + name + "(): overheated; rethrowing internally.",
                                       name + ": Error[-99] in " + name + "(): overheated"}));
    EXPECT_EQ(test.parser.last_adjustment().probes.size(), 1);
}

TEST(SearchErrors, EarlyStopIsStillTriedAfterAFailedMeasurement) {
    // Nothing measured yet is an abundance of 0, which lies within tolerance of a small target.
    FailingProbe test;
    test.fail_at(1, Error(-99, "ADC", "overheated"));
    EXPECT_EQ(adjust(test, 0, 100, not_given, 1990), 50);
    EXPECT_EQ(test.parser.last_adjustment().end, End::within_tolerance);
    EXPECT_EQ(test.transients(), 10000);
}

TEST(SearchErrors, MissingPeaksDoNotHideAnErrorOfTheSameProbe) {
    FailingProbe test;
    test.fail_at(1, Error(-1, "anyone", "No peaks returned by peakfinder"));
    test.world.instrument().setpoints.erase(162);
    EXPECT_EQ(error_of([&] { test.adjust(251000); }).number(), error_number::subscript);
}

TEST(SearchErrors, AbundanceBeyondAnIntegerIsAnOverflow) {
    SearchWorld test([](double) { return 1e12; });
    EXPECT_EQ(error_of([&] { test.adjust(251000); }).number(), error_number::overflow);
}

TEST(SearchErrors, AbortEndsTheSearchBeforeTheNextProbe) {
    SearchWorld test;
    test.parser.on_adjust_probe([&](const AdjustProbe&) { test.world.request_abort(); });
    const Error error = error_of([&] { test.adjust(251000); });
    EXPECT_EQ(error.number(), 1);
    EXPECT_EQ(error.description(), "User aborted");
    EXPECT_EQ(test.journal_of("write 50").size(), 1);
}

TEST(SearchErrors, EveryProbeWaitsForReadiness) {
    SearchWorld test;
    auto& state = test.world.instrument().registers["ACTUAL.NDR[NRDYSTATE]"];
    test.world.instrument().on_write = [&](std::int32_t index, double) {
        if (index == 50) state = -1;
    };
    test.world.test.clock->on_events = [&] { state = 0; };
    test.adjust(251000);
    EXPECT_EQ(test.world.test.clock->sleeps, 2) << "one poll of 500 ms for each of two probes";
}

// What the fast variant does otherwise.

struct FastSearch : SearchWorld {
    FastSearch() { run_fast(); }
    int spectra_of_first_probe(double target) {
        adjust_once(target);
        return world.instrument().spectra;
    }
    void adjust_once(double target) { korvane::adjust(*this, 0, 100, 30, target); }
    double adjust(double target) { return SearchWorld::adjust(target); }
};

TEST(FastSearch, MeasurementFarOffTheTargetIsRepeatedFourTimes) {
    EXPECT_EQ(FastSearch().spectra_of_first_probe(400000), 2 + 1);
    EXPECT_EQ(FastSearch().spectra_of_first_probe(1000000), 2 + 1) << "half the target is not more than half off";
    EXPECT_EQ(FastSearch().spectra_of_first_probe(1000020), 2 + 1 + 4);
}

TEST(FastSearch, RepetitionStopsOnceTheMeasurementComesNear) {
    FastSearch test;
    test.curve = [&](double value) { return value * (test.world.instrument().spectra < 5 ? 90000 : 10000); };
    test.adjust_once(500000);
    EXPECT_EQ(test.world.instrument().spectra, 5) << "two unused, one far off, one repeated far off, one near";
}

TEST(FastSearch, TargetOfZeroIsADivisionByZeroRaisedFromTheProbe) {
    FastSearch test;
    EXPECT_EQ(error_of([&] { test.adjust(0); }).number(), error_number::division_by_zero);
    EXPECT_THAT(test.world.test.trace().lines, Contains(HasSubstr("rethrowing internally.")));
}

TEST(FastSearch, FirmwareReceivesSinglePrecision) {
    FastSearch test;
    korvane::adjust(test, 0, 0.2, 0.1, 251000);
    EXPECT_EQ(test.world.instrument().firmware[22], static_cast<double>(0.1F));
    EXPECT_EQ(error_of([&] { korvane::adjust(test, 0, 1e39, 1, 251000); }).number(), error_number::overflow);
}

TEST(FastSearch, TransientsGoThroughTheTuneGlobals) {
    // Which skip a value beyond the setpoint's limits instead of writing it.
    FastSearch test;
    test.world.instrument().setpoint(127).lower = 2000;
    test.adjust_once(500000);
    EXPECT_EQ(test.journal_of("write 127"), Lines{"write 127 = 10000 (double)"});
}

TEST(FastSearch, DoesNotWaitForReadiness) {
    FastSearch test;
    test.world.instrument().registers["ACTUAL.NDR[NRDYSTATE]"] = -1;
    test.adjust(251000);
    EXPECT_EQ(test.world.test.clock->sleeps, 0);
}

TEST(FastSearch, BothRoutinesReportAnError) {
    FastSearch test;
    test.world.request_abort();
    EXPECT_EQ(error_of([&] { test.adjust(251000); }).number(), 1);
    const std::string name = "BinaryAdjustAbundanceDownUsingThisSetpoint";
    EXPECT_THAT(test.world.test.trace().lines,
                testing::IsSupersetOf({name + "_Fast: Error[1] in " + name + "_Fast(): User aborted",
                                       name + ": Error[1] in " + name + "(): User aborted"}));
}

TEST(FastSearch, AgreesWithTheNormalSearchWhereNothingIsNoisy) {
    for (const double target : {33000.0, 251000.0, 640000.0, 2e6}) {
        SearchWorld normal;
        FastSearch fast;
        EXPECT_EQ(normal.adjust(target), fast.adjust(target)) << target;
        EXPECT_EQ(normal.parser.last_adjustment().probes.size(), fast.parser.last_adjustment().probes.size());
    }
}

}  // namespace
}  // namespace korvane
