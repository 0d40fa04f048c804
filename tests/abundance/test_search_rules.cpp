// One row or test for every rule of the search that a tidy reader would be tempted to straighten.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "abundance/search_world.h"

namespace korvane {
namespace {

using testing::StartsWith;
using End = AdjustOutcome::End;
using Lines = std::vector<std::string>;

constexpr double not_given = search_value_not_given;
constexpr int vcap = SpectrumWorld::capillary_voltage_setpoint;
const std::string search_name = "BinaryAdjustAbundanceDownUsingThisSetpoint";

TEST(SearchRules, BoundsResolutionAndToleranceDecideAsDefined) {
    struct Rule {
        const char* what;
        double target, low, high, resolution, tolerance, result;
        End end;
        std::vector<double> probes;
    };
    constexpr End unreached = End::target_never_reached;
    const Rule rules[] = {
        {"lone upper bound, the mark below", 251000, not_given, 80, 1e8, 0, 70, unreached, {}},
        {"the same, one step", 251000, not_given, 80, 6e7, 0, 70, unreached, {(80 + not_given) / 2}},
        {"lone lower bound is ignored", 500000, 40, not_given, not_given, 20000, 50, End::within_tolerance, {50}},
        {"resolution beyond half the range", 251000, 0, 100, 50.5, 0, 70, unreached, {}},
        {"a step of the resolution itself is taken", 251000, 0, 100, 50, 0, 70, unreached, {50}},
        {"abundance equal to the target is under it", 500000, 0, 100, 30, 0, 50, End::resolution_reached, {50}},
        // 20000 x (1000 transients / 10000) / 10 = 200 counts around the scaled target.
        {"tolerance is strict", 502000, 0, 100, 30, 20000, 50, End::resolution_reached, {50}},
        {"tolerance divided by the speed-up factor", 501990, 0, 100, 30, 20000, 50, End::within_tolerance, {50}},
    };
    for (const Rule& rule : rules) {
        SCOPED_TRACE(rule.what);
        SearchWorld test;
        test.curve = [](double value) { return 10000 * std::max(value, 0.0); };
        test.test.limit("Calibration", "BinarySearchAbTolerance", number_text(rule.tolerance));
        EXPECT_EQ(test.adjust(rule.target, rule.low, rule.high, rule.resolution), rule.result);
        EXPECT_EQ(test.outcome().end, rule.end);
        std::vector<double> probes;
        for (const AdjustProbe& probe : test.outcome().probes) probes.push_back(probe.value);
        EXPECT_EQ(probes, rule.probes);
        EXPECT_TRUE(test.journal_of("firmware").empty()) << "\"yes\" is not \"Yes\"";
    }
}

TEST(SearchRules, ResolutionNotAboveZeroStillEnds) {
    for (const double resolution : {0.0, -1.0, std::nan("")}) {
        SearchWorld test;
        test.test.limit("Calibration", "BinarySearchAbTolerance", "0");
        EXPECT_NO_THROW(test.adjust(251000, 0, 100, resolution));
        EXPECT_LT(test.outcome().probes.size(), 80) << resolution;
    }
}

TEST(SearchRules, CapillaryVoltageIsSearchedToItsResolutionExceptByTheFastVariant) {
    for (const bool fast : {false, true}) {
        SearchWorld test(fast);
        test.instrument().setpoint(vcap).resolution = 1;
        test.curve = [](double) { return 251000.0; };
        test.parser.BinaryAdjustAbundanceDownUsingThisSetpoint(vcap, 900, 251000, 30, true, 0, 100);
        EXPECT_EQ(test.outcome().end, fast ? End::within_tolerance : End::resolution_reached);
    }
}

TEST(SearchRules, TransientsAreDividedUnroundedAndNotByZero) {
    SearchWorld test;
    test.instrument().setpoint(127).value = 10001;
    test.test.limit("Calibration", "AIC_SearchSpeedUpFactor", "3");
    test.adjust(251000);
    EXPECT_EQ(test.journal_of("write 127"),
              (Lines{"write 127 = " + number_text(10001.0 / 3) + " (double)", "write 127 = 10001 (double)"}));
    SearchWorld zero;
    zero.test.limit("Calibration", "AIC_SearchSpeedUpFactor", "0");
    EXPECT_EQ(raised([&] { zero.adjust(251000); }), "11|Korvane|Division by zero");
    EXPECT_TRUE(zero.journal_of("write").empty());
}

TEST(SearchRules, AveragingSettingMeasuresThreeSpectraAProbe) {
    for (const int averaging : {0, 1}) {
        SearchWorld test;
        test.instrument().setpoint(162).value = averaging;
        test.adjust(251000, 0, 100, 30);
        EXPECT_EQ(test.instrument().spectra, averaging ? 3 : 1);
    }
}

TEST(SearchRules, EveryNormalProbeWaitsForReadinessOrAnAbort) {
    for (const bool fast : {false, true})
        for (const bool aborted : {false, true}) {
            SearchWorld test(fast);
            auto& state = test.instrument().registers["ACTUAL.NDR[NRDYSTATE]"];
            test.instrument().on_write = [&](std::int32_t index, double) { state = index == 50 ? -1 : 0; };
            test.test.clock->on_events = [&] {
                if (test.test.clock->sleeps % 2) state = 0;
                if (aborted) test.request_abort();
            };
            const double before = test.test.clock->total_seconds();
            EXPECT_EQ(raised([&] { test.adjust(251000); }), aborted ? "1||User aborted" : "no error");
            // Two polls of 500 ms for each of two probes.
            EXPECT_EQ(test.test.clock->total_seconds() - before, fast ? 0 : aborted ? 0.5 : 2);
        }
}

// Errors inside a probe.

struct FailingProbe : SearchWorld {
    /// The n-th spectrum raises this error.
    void fail_at(int spectrum, const Error& error) {
        const auto acquire = instrument().acquire;
        instrument().acquire = [=](AcquiredSpectrum& answer, int number) {
            if (number == spectrum) throw error;
            acquire(answer, number);
        };
    }
    std::string adjusted(double target) {
        return raised([&] { adjust(target, 0, 100, 10); });
    }
    const Error no_peaks{-1, "anyone", "No peaks returned by peakfinder"}, overheated{-99, "ADC", "overheated"};
};

TEST(SearchErrors, MissingPeakKeepsTheAbundanceOfTheProbeBefore) {
    FailingProbe test;
    test.fail_at(2, test.no_peaks);
    test.test.limit("Calibration", "BinarySearchAbTolerance", "0");
    test.adjust(251000, 0, 100, 10);
    std::vector<double> abundances;
    for (const AdjustProbe& probe : test.outcome().probes) abundances.push_back(probe.abundance);
    EXPECT_EQ(abundances, (std::vector<double>{50000, 50000, 12500}));
}

TEST(SearchErrors, OtherErrorsAreLoggedTwiceAndLeaveTheTransientsReduced) {
    FailingProbe test;
    test.fail_at(2, test.overheated);
    EXPECT_EQ(test.adjusted(251000), "-99|ADC|overheated");
    EXPECT_EQ(test.transients(), 1000);
    const Lines lines = test.traced_by(search_name);
    EXPECT_EQ(Lines(lines.end() - 2, lines.end()),
              (Lines{"error[-99] in " + search_name + "(): overheated; rethrowing internally.",
                     "Error[-99] in " + search_name + "(): overheated"}));
    EXPECT_EQ(test.outcome().probes.size(), 1);
}

TEST(SearchErrors, EarlyStopIsStillTriedAfterAFailedMeasurement) {
    // Nothing measured yet is an abundance of 0, which lies within tolerance of a small target.
    FailingProbe test;
    test.fail_at(1, test.overheated);
    EXPECT_EQ(test.adjust(1990), 50);
    EXPECT_EQ(test.outcome().end, End::within_tolerance);
    EXPECT_EQ(test.transients(), 10000);
}

TEST(SearchErrors, MissingPeaksDoNotHideAnErrorOfTheSameProbeAndOverflowIsOne) {
    FailingProbe test;
    test.fail_at(1, test.no_peaks);
    test.instrument().setpoints.erase(162);
    EXPECT_EQ(test.adjusted(251000), "9|Korvane|Subscript out of range: setpoint 162");
    FailingProbe high;
    high.curve = [](double) { return 1e12; };
    EXPECT_THAT(high.adjusted(251000), StartsWith("6|"));
}

// What the fast variant does otherwise.

TEST(FastSearch, MeasurementFarOffTheTargetIsRepeatedUntilItComesNearFourTimesAtMost) {
    struct Case {
        double target;
        int near_from, spectra;  // the spectrum from which on the measurement is near, and how many are taken
    };
    // Two unused spectra and a measurement; half the target is not more than half off.
    for (const Case& one : {Case{400000, 1, 3}, Case{1000000, 99, 3}, Case{1000020, 99, 3 + 4}, Case{1000020, 5, 5}}) {
        SearchWorld test(true);
        test.curve = [&](double value) {
            return value * (test.instrument().spectra < one.near_from ? 10000 : one.target / 50);
        };
        test.adjust(one.target, 0, 100, 30);
        EXPECT_EQ(test.instrument().spectra, one.spectra) << one.target;
        EXPECT_TRUE(test.journal_of("write 50").empty());
    }
}

TEST(FastSearch, TargetOfZeroIsADivisionByZeroRaisedFromTheProbeByBothRoutines) {
    SearchWorld test(true);
    EXPECT_EQ(raised([&] { test.adjust(0); }), "11|Korvane|Division by zero");
    const std::string fast_name = search_name + "_Fast", text = "(): Division by zero";
    const Lines lines = test.traced_by(fast_name);
    EXPECT_EQ(
        Lines(lines.end() - 2, lines.end()),
        (Lines{"error[11] in " + fast_name + text + "; rethrowing internally.", "Error[11] in " + fast_name + text}));
    EXPECT_EQ(test.traced_by(search_name), Lines{"Error[11] in " + search_name + text});
}

TEST(FastSearch, FirmwareReceivesSinglePrecision) {
    SearchWorld test(true);
    test.adjust(251000, 0, 0.2, 0.1);
    EXPECT_EQ(test.instrument().firmware[22], static_cast<double>(0.1F));
    EXPECT_EQ(raised([&] { test.adjust(251000, 0, 1e39, 1); }), "6|Korvane|Overflow: 5E+38");
}

TEST(FastSearch, TransientsGoThroughTheTuneGlobals) {
    // Which skip a value beyond the setpoint's limits instead of writing it.
    SearchWorld test(true);
    test.instrument().setpoint(127).lower = 2000;
    test.adjust(500000, 0, 100, 30);
    EXPECT_EQ(test.journal_of("write 127"), Lines{"write 127 = 10000 (double)"});
}

}  // namespace
}  // namespace korvane
