#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "korvane/spectrum_parser.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

struct Checks {
    void verify() { parser.VerifyInstrumentIsShowingValidCalibrantSpectrum(); }
    bool below(std::vector<double> masses) { return parser.AbundancesAreBelowDualGainThreshold(masses); }
    Lines verify_lines() const {
        Lines found;
        for (const std::string& line : world.tune_log())
            if (line.starts_with("STATUS: Verify Spectrum: ")) found.push_back(line.substr(25));
        return found;
    }

    SpectrumWorld world;
    SpectrumParser parser{world.platform()};
};

TEST(VerifySpectrum, FourCalibrantsSufficeAndTheMinimumItselfDoesNot) {
    Checks test;
    test.world.set_peak(100, 1000);
    test.verify();
    EXPECT_EQ(test.world.instrument().spectra, 1);
    EXPECT_EQ(test.verify_lines(),
              (Lines{"MinimumAcceptableAbundance[1000]; Got these peaks: [[10000, 1000], [20000, 5000], [30000, 5000], "
                     "[40000, 5000], [50000, 5000]]",
                     "Valid Spectrum"}));
    EXPECT_THAT(test.world.test.trace().lines,
                testing::IsSupersetOf(
                    {"VerifyInstrumentIsShowingValidCalibrantSpectrum: NumCalibrantMassesWithSufficientAbundances = 4",
                     "VerifyInstrumentIsShowingValidCalibrantSpectrum: Valid Calib Spectrum found"}));
}

TEST(VerifySpectrum, ThirdInvalidSpectrumEndsWithTheOperatorsMessage) {
    Checks test;
    test.world.set_peak(100, 1000);
    test.world.set_peak(900, 0);
    const Error error = error_of([&] { test.verify(); });
    EXPECT_EQ(error.number(), -821);
    EXPECT_EQ(error.source(), "VerifyInstrumentIsShowingValidCalibrantSpectrum");
    EXPECT_EQ(error.description(),
              "Insufficient number of calibrant ions detected in current spectral data for Autotune to "
              "continue.\r\n\r\nCalibration solution in Bottle B may have run out, or there may be a hardware or "
              "configuration problem.");
    EXPECT_EQ(test.world.instrument().spectra, 3);
    const Lines lines = test.verify_lines();
    ASSERT_EQ(lines.size(), 6);
    for (int i = 1; i <= 3; ++i)
        EXPECT_EQ(lines[static_cast<std::size_t>(2 * i - 1)],
                  "Not Valid Spectrum; NumInvalidSpectra: [" + std::to_string(i) + "]");
    EXPECT_THAT(lines[0], HasSubstr("[0, 0]")) << "a missing peak is listed, too";
}

TEST(VerifySpectrum, CalibrantsComingBackEndTheRetries) {
    Checks test;
    test.world.set_peak(100, 1000);
    test.world.set_peak(900, 0);
    test.world.instrument().acquire = [&](AcquiredSpectrum& spectrum, int number) {
        test.world.fill(spectrum);
        if (number == 3) test.world.set_peak(900, 5000);
    };
    test.verify();
    EXPECT_EQ(test.verify_lines().back(), "Valid Spectrum");
}

TEST(VerifySpectrum, RehearsedErrorComesBeforeAnySpectrumAndOnlyForTheExactWord) {
    Checks test;
    test.world.test.preference("TriggerErrorin_TriggerErrorNumber", "-33");
    test.world.test.preference("TriggerErrorin_TriggerErrorString", "rehearsed");
    constexpr const char* name = "TriggerError_VerifyInstrumentIsShowingValidCalibrantSpectrum";
    for (const char* other : {"yes", "YES", "Yes.", "1"}) {
        test.world.test.preference(name, other);
        EXPECT_NO_THROW(SpectrumParser(test.world.platform()).VerifyInstrumentIsShowingValidCalibrantSpectrum());
    }
    test.world.test.preference(name, "Yes");
    const int spectra = test.world.instrument().spectra;
    const Error error = error_of([&] { test.verify(); });
    EXPECT_EQ(error.number(), -33);
    EXPECT_EQ(error.source(), "");
    EXPECT_EQ(error.description(), "rehearsed");
    EXPECT_EQ(test.world.instrument().spectra, spectra);
    EXPECT_THAT(test.world.test.trace().lines,
                Contains(HasSubstr("Error[-33] in VerifyInstrumentIsShowingValidCalibrantSpectrum(): rehearsed")));
}

TEST(DualGain, HeightAtTheLimitIsNotBelowIt) {
    for (const double mass : {100.0, 900.0, 2500.0}) {
        Checks test;
        test.world.set_peak(900, 99000);
        test.world.set_peak(mass, 99999.9);
        EXPECT_TRUE(test.below(test.world.masses)) << mass;
        test.world.set_peak(mass, 100000);
        EXPECT_FALSE(test.below(test.world.masses)) << mass;
    }
}

TEST(DualGain, MassesNotChosenMayBeAboveTheLimit) {
    // Only the low, the most abundant and the high mass are looked at; the last measurement of 400 alone is too high.
    Checks test;
    test.world.set_peak(900, 50000);
    test.world.instrument().acquire = [&](AcquiredSpectrum& spectrum, int number) {
        test.world.fill(spectrum);
        if (number == 2) test.world.set_peak(400, 300000);
    };
    EXPECT_TRUE(test.below(test.world.masses));
    EXPECT_THAT(test.world.test.trace().lines,
                testing::IsSupersetOf(
                    {"AbundancesAreBelowDualGainThreshold: Abundances[100, 900, 2500] = [5000, 50000, 5000]",
                     "AbundancesAreBelowDualGainThreshold: LowMassAb, MostAbMassAb, HighMassAb = [5000, 50000, 5000]",
                     "AbundancesAreBelowDualGainThreshold: MaxAllowableAb = 100000",
                     "AbundancesAreBelowDualGainThreshold: returning TRUE"}));
}

struct MostAbundantCase {
    const char* what;
    std::vector<double> masses;
    std::vector<double> heights;
    const char* chosen;
};

TEST(DualGain, MostAbundantMassIsChosenByItsRules) {
    const MostAbundantCase cases[] = {
        {"a later peak", {100, 400, 900}, {5000, 6000, 7000}, "2"},
        {"tie keeps the earlier", {100, 400, 900}, {5000, 7000, 7000}, "1"},
        {"highest low mass stays", {100, 400, 900}, {9000, 7000, 7000}, "0"},
        {"too near the low mass", {100, 100.5, 900}, {5000, 9000, 6000}, "2"},
        {"one mass", {400}, {5000}, "0"},
    };
    for (const MostAbundantCase& one : cases) {
        Checks test;
        test.world.test.limit("PeakHandling", "PeakFindWindowInPercentT", "0.1");
        test.world.peaks.peaks.clear();
        for (std::size_t i = 0; i < one.masses.size(); ++i) test.world.set_peak(one.masses[i], one.heights[i]);
        test.below(one.masses);
        EXPECT_THAT(
            test.world.test.trace().lines,
            Contains(std::string("FindIndexOfMostAbundantMasses: CalibrantIdx of most abundant mass = ") + one.chosen))
            << one.what;
    }
}

TEST(DualGain, OneMassIsMeasuredThreeTimes) {
    Checks test;
    test.world.peaks.journal.clear();
    EXPECT_TRUE(test.below({400}));
    EXPECT_EQ(test.world.instrument().spectra, 4);
}

TEST(DualGain, MissingPeakReachesTheCallerThroughBothHandlers) {
    Checks test;
    test.world.set_peak(2500, 0);
    EXPECT_EQ(error_of([&] { test.below(test.world.masses); }).description(), "No peaks returned by peakfinder");
    EXPECT_THAT(test.world.test.trace().lines,
                Contains("AbundancesAreBelowDualGainThreshold: AbundancesAreBelowDualGainThreshold.Error[-1] in "
                         "AbundancesAreBelowDualGainThreshold(): No peaks returned by peakfinder"));
    test.world.instrument().has_control = false;
    EXPECT_THROW(test.below(test.world.masses), Error);
    EXPECT_THAT(test.world.test.trace().lines,
                Contains("FindIndexOfMostAbundantMasses: FindIndexOfMostAbundantMasses.Error[91]"));
}

}  // namespace
}  // namespace korvane
