// Whether the spectrum shown is one to tune on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::StartsWith;

constexpr const char* verify_name = "VerifyInstrumentIsShowingValidCalibrantSpectrum";
constexpr const char* dual_gain_name = "AbundancesAreBelowDualGainThreshold";

struct Checks : ParserWorld {
    std::string verify() {
        return raised([&] { parser.VerifyInstrumentIsShowingValidCalibrantSpectrum(); });
    }
    bool below(const std::vector<double>& of) { return parser.AbundancesAreBelowDualGainThreshold(of); }
    Lines verify_lines() const {
        Lines found;
        for (const std::string& line : tune_log())
            if (line.starts_with("STATUS: Verify Spectrum: ")) found.push_back(line.substr(25));
        return found;
    }
    /// A change before the n-th spectrum.
    void before_spectrum(int chosen, std::function<void()> change) {
        instrument().acquire = [this, chosen, change](AcquiredSpectrum& spectrum, int number) {
            fill(spectrum);
            if (number == chosen) change();
        };
    }
};

TEST(VerifySpectrum, ThreeCalibrantsAboveTheMinimumAreTooFewInThreeSpectraAndFourEnoughInTheThird) {
    Checks test;
    test.set_peak(100, 1000);  // the minimum itself
    test.set_peak(900, 0);
    EXPECT_EQ(test.verify(),
              "-821|VerifyInstrumentIsShowingValidCalibrantSpectrum|Insufficient number of calibrant ions detected in "
              "current spectral data for Autotune to continue.\r\n\r\nCalibration solution in Bottle B may have run "
              "out, or there may be a hardware or configuration problem.");
    EXPECT_EQ(test.instrument().spectra, 3);
    const std::string peaks = "[10000, 1000], [20000, 5000], [0, 0], [40000, 5000], [50000, 5000]";
    Lines logged, traced;
    for (const char* number : {"1", "2", "3"}) {
        logged.push_back("MinimumAcceptableAbundance[1000]; Got these peaks: [" + peaks + "]");
        logged.push_back(std::string("Not Valid Spectrum; NumInvalidSpectra: [") + number + "]");
        traced.insert(traced.end(), {"InstrumentIsShowingValidCalibrantSpectrum() resulted in " + peaks,
                                     "NumCalibrantMassesWithSufficientAbundances = 3",
                                     "Current Spectrum is NOT Valid Calib Spectrum"});
    }
    traced.push_back("Valid Calib Spectrum NOT found");
    Lines own = test.traced_by(verify_name);
    EXPECT_THAT(own.back(), StartsWith("Error[-821] in VerifyInstrumentIsShowingValidCalibrantSpectrum(): Insuff"));
    own.pop_back();
    EXPECT_EQ(own, traced);
    EXPECT_EQ(test.verify_lines(), logged);
    test.before_spectrum(6, [&] { test.set_peak(900, 5000); });
    EXPECT_EQ(test.verify(), "no error");
    EXPECT_EQ(test.instrument().spectra, 6);
    EXPECT_EQ(test.verify_lines().back(), "Valid Spectrum");
    EXPECT_EQ(test.traced_by(verify_name).back(), "Valid Calib Spectrum found");
}

TEST(VerifySpectrum, RehearsedErrorComesBeforeAnySpectrumAndOnlyForTheExactWord) {
    const std::string invalid = "5|Korvane|Invalid procedure call or argument: TriggerErrorin_TriggerErrorNumber is 0";
    const std::string mismatch = "13|Korvane|Type mismatch: [x] (TriggerErrorin_TriggerErrorNumber in TunePrefer";
    for (const auto& [word, number, error] : {std::tuple{"yes", "-33", std::string("no error")},
                                              {"Yes", "-33.5", "-34||rehearsed"},
                                              {"Yes", "0", invalid},
                                              {"Yes", "x", mismatch + "ences.xml)"}}) {
        Checks test;
        test.test.preference("TriggerErrorin_TriggerErrorNumber", number);
        test.test.preference("TriggerErrorin_TriggerErrorString", "rehearsed");
        test.test.preference("TriggerError_VerifyInstrumentIsShowingValidCalibrantSpectrum", word);
        EXPECT_EQ(test.verify(), error);
        EXPECT_EQ(test.instrument().spectra, error == "no error");
    }
}

TEST(DualGain, HeightAtTheLimitIsNotBelowItOfTheMassesThatAreChosen) {
    for (const double mass : {100.0, 900.0, 2500.0})
        for (const double height : {99999.9, 100000.0}) {
            Checks test;
            test.set_peak(900, 99000);
            test.set_peak(mass, height);
            EXPECT_EQ(test.below(test.masses), height < 100000) << mass;
            EXPECT_EQ(test.traced_by(dual_gain_name).back(), height < 100000 ? "returning TRUE" : "returning FALSE");
        }
    // Only the low, the most abundant and the high mass are looked at; the last measurement of 400 alone is too high.
    Checks test;
    test.set_peak(900, 50000);
    test.before_spectrum(2, [&] { test.set_peak(400, 300000); });
    EXPECT_TRUE(test.below(test.masses));
    EXPECT_EQ(test.traced_by(dual_gain_name), (Lines{"Abundances[100, 900, 2500] = [5000, 50000, 5000]",
                                                     "LowMassAb, MostAbMassAb, HighMassAb = [5000, 50000, 5000]",
                                                     "MaxAllowableAb = 100000", "returning TRUE"}));
    test.instrument().has_control = false;
    EXPECT_THAT(raised([&] { test.below(test.masses); }), StartsWith("91|"));
    EXPECT_THAT(test.traced_by(dual_gain_name).back(), StartsWith("AbundancesAreBelowDualGainThreshold.Error[91] in "));
    EXPECT_EQ(test.traced_by("FindIndexOfMostAbundantMasses").back(), "FindIndexOfMostAbundantMasses.Error[91]");
}

TEST(DualGain, MostAbundantMassIsChosenByItsRules) {
    const std::tuple<std::vector<double>, std::vector<double>, int> cases[] = {
        {{100, 400, 900}, {5000, 6000, 7000}, 2},
        {{100, 400, 900}, {5000, 7000, 7000}, 1},    // a tie keeps the earlier
        {{100, 400, 900}, {9000, 7000, 7000}, 0},    // the highest low mass stays
        {{100, 100.5, 900}, {5000, 9000, 6000}, 2},  // too near the low mass
        {{400}, {5000}, 0},
    };
    for (const auto& [masses, heights, chosen] : cases) {
        Checks test;
        test.test.limit("PeakHandling", "PeakFindWindowInPercentT", "0.1");
        test.peaks.peaks.clear();
        for (std::size_t i = 0; i < masses.size(); ++i) test.set_peak(masses[i], heights[i]);
        test.below(masses);
        Lines traced{"Finding largest peak in list (other than low mass)"};
        for (std::size_t i = 0; i < masses.size(); ++i)
            traced.push_back(text_of("Peak[", i, "] = [", SpectrumWorld::time_ns(masses[i]), ", ", heights[i], "]"));
        traced.insert(traced.end(),
                      {text_of("Most Abundant Mass Idx = ", chosen), "Searching Calibrant Masses for matching mass",
                       text_of("CalibrantIdx of most abundant mass = ", chosen)});
        EXPECT_EQ(test.traced_by("FindIndexOfMostAbundantMasses"), traced);
    }
}

}  // namespace
}  // namespace korvane
