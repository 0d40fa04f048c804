// Waiting for a spectrum: populated within 15 s, of the right polarity within 45 s.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::StartsWith;
using Metadata = std::vector<InstrumentValue>;

constexpr const char* new_spectrum = "GetNewSpectrumAndVerifyDataIsPopulated";

struct Acquisition : ParserWorld {
    std::string get() {
        return raised([&] {
            parser.GetNewSpectrumAndVerifyDataIsPopulated(masses_seen, samples_seen, metadata, start_time_ns,
                                                          cancelled);
        });
    }
    /// The wait for the polarity, inside a measurement.
    std::string wait() {
        return raised([&] { parser.GetPeakInfoForCalibrantMasses(); });
    }
    /// Every spectrum takes so long and is changed so.
    void every_spectrum(double seconds, std::function<void(AcquiredSpectrum&, int number)> change) {
        instrument().acquire = [this, seconds, change](AcquiredSpectrum& answer, int number) {
            fill(answer);
            change(answer, number);
            test.clock->advance(seconds);
        };
    }
    void every_metadata(double seconds, const Metadata& values) {
        every_spectrum(seconds, [=](AcquiredSpectrum& answer, int) { answer.meta_data = values; });
    }

    VariantArray<double> masses_seen, samples_seen;
    VariantArray<InstrumentValue> metadata;
    double start_time_ns = 0;
    bool cancelled = true;
};

TEST(NewSpectrum, SecondSpectrumOfAPassReplacesAnEmptyFirst) {
    Acquisition test;
    test.instrument().acquire = [&](AcquiredSpectrum& answer, int number) {
        if (number == 2) test.fill(answer);
    };
    EXPECT_EQ(test.get(), "no error");
    EXPECT_EQ(test.tune_log().back(),
              "AUTOTUNE LOG: STATUS: spectrum (with Experiment[0], dRetentionTime[0]) gotten from GetNextSpectrum()");
    EXPECT_EQ(
        test.traced_by(new_spectrum),
        (Lines{"Setting up to retrieve next spectrum", "Getting next spectrum",
               "AUTOTUNE LOG: STATUS: first spectrum invalid; getting second spectrum (with Experiment[3]) gotten "
               "from GetNextSpectrum()",
               "recieved a spectrum"}));
    EXPECT_EQ(test.traced_by("IsDataReturnedFromGetNextSpectrumPopulated"),
              (Lines{"LOG: WARNING: returned vMassData is empty", "LOG: WARNING: returned YData is empty",
                     "LOG: WARNING: returned MetaData is empty"}));
    EXPECT_EQ(test.masses_seen.size(), test.axis.size());
    EXPECT_EQ(test.samples_seen.size(), test.samples.size());
    EXPECT_EQ(test.metadata.size(), 2);
    EXPECT_EQ(test.start_time_ns, SpectrumWorld::start_ns);
    EXPECT_FALSE(test.cancelled);
}

TEST(NewSpectrum, PassThatBeginsWithinFifteenSecondsIsCompletedAndThenTheTimeIsUp) {
    // Passes of two spectra that end at 5, 10, 15 and 20 s, and a single one of 20 s.
    for (const auto& [seconds, spectra] : {std::pair{2.5, 8}, std::pair{10.0, 2}}) {
        Acquisition test;
        test.every_spectrum(seconds, [](AcquiredSpectrum& answer, int) { answer.y_data = {}; });
        EXPECT_EQ(error_of([&] { test.parser.GetPeakInfoForCalibrantMasses(); }).kind(), ErrorKind::time_out);
        EXPECT_EQ(test.instrument().spectra, spectra);
        EXPECT_EQ(test.get(), "5|Korvane|Invalid procedure call or argument");
        const Lines lines = test.traced_by(new_spectrum);
        EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
                  (Lines{"Error[0]:", "Spectrum routine Failed", "No New Spectrum received"}));
        EXPECT_EQ(test.tune_log().back(), "AUTOTUNE LOG: WARNING: Timed out. No valid spectrum received");
    }
}

TEST(NewSpectrum, ErrorsPassWithTheRoutinesThreeLines) {
    for (const char* error :
         {"1||User aborted", "91|Korvane|Object variable or With block variable not set: instrument control",
          "-77|ADC|gone"}) {
        Acquisition test;
        const std::string text = error, number = text.substr(0, text.find('|'));
        if (number == "1") test.request_abort();
        test.instrument().has_control = number != "91";
        test.instrument().acquire = [](auto&, int) { throw Error(-77, "ADC", "gone"); };
        test.samples_seen = test.samples;
        EXPECT_EQ(test.get(), error);
        Lines traced{"Error[" + number + "]: " + text.substr(text.rfind('|') + 1), "Spectrum routine Failed",
                     "No New Spectrum received"};
        if (number != "1")
            traced.insert(traced.begin(), {"Setting up to retrieve next spectrum", "Getting next spectrum"});
        if (number == "91") traced.insert(traced.begin(), "Error: pMSControl is Nothing");
        EXPECT_EQ(test.traced_by(new_spectrum), traced);
        // The caller's arrays are emptied before a request, not before.
        EXPECT_EQ(test.samples_seen.is_empty(), number == "-77");
    }
}

TEST(PolarityWait, TimesOutAfterMoreThanFortyFiveSecondsWithTheOddLineAndRaisesAnUnusablePolarity) {
    struct Row {
        double seconds;
        Metadata metadata;  // described as "Gas", "Experiment", "Polarity (S)", "x"
        std::string error, last_line;
        int spectra = 1;
    };
    const std::string start = "AUTOTUNE LOG: WARNING: ", fault = "ReturnedSpectrumIsOfSoughtPolarity|Polarity MetaData";
    const std::string handler =
        "AUTOTUNE LOG: ERROR in ReturnedSpectrumIsOfSoughtPolarity(): Error getting Polarity "
        "and ExperimentIndex out of the MetaData Array";
    const std::string odd = start + "Timed out waiting for spectrum with polarity[1] and experimentIndex[fourth]";
    const std::string different = start + "Received spectrum with Different polarity = 1 For Experiment = 0";
    const std::string timed_out = "-8|GetPeakInfoForCalibrantMasses|Timed out waiting for a spectrum of the";
    const Row rows[] = {
        {15, {"gas", 1, 1, "fourth"}, timed_out, odd, 4},
        {50, {"gas", 2, 1, "fourth"}, "9|", different},  // the line reads past the metadata
        {0, {"gas", 1}, "9|Korvane|Subscript out of range: index 2", handler},
        {0, {"gas", 1, -1}, "-1|" + fault + " Entry is NOT valid (1 or 0); it was returned as -1", handler},
    };
    for (const Row& row : rows) {
        Acquisition test;
        test.instrument().meta_description = Lines{"Gas", "Experiment", "Polarity (S)", "x"};
        test.every_metadata(row.seconds, row.metadata);
        const std::string error = test.wait();
        EXPECT_THAT(error, StartsWith(row.error));
        EXPECT_EQ(test.instrument().spectra, row.spectra) << "45 s is not more than 45 s";
        const Lines log = test.tune_log();
        EXPECT_EQ(log.back(), row.last_line);
        const std::string description = error.substr(error.rfind('|') + 1);
        EXPECT_EQ(log.at(log.size() - 2) == start + description, error.starts_with("-1|"));
        EXPECT_TRUE(test.traced_by("ReturnedSpectrumIsOfSoughtPolarity").empty());
        if (row.spectra > 1) continue;
        EXPECT_THAT(test.traced_by("WaitForSpectrumWithProperPolarityAndExperimentIndex").back(),
                    EndsWith("] in WaitForSpectrumWithProperPolarityAndExperimentIndex(): " + description));
    }
}

TEST(MetadataPositions, FollowTheWalkWithItsQuirksAndStayWhereAnEntryIsMissing) {
    // The description, and where the polarity is then read; the other positions hold no polarity.
    const std::pair<Lines, std::size_t> cases[] = {
        {{"Gas", "Experiment", "Polarity (S)"}, 2},
        {{"my Polarity here (S)", "the Experiment no"}, 0},
        {{"Gas", "Experiment", "Experiment 2", "Polarity (S)"}, 0},  // the second one ends the walk
        {{"Gas", "Experiment Polarity (S)", "Polarity (S)"}, 1},
        {{"Gas", "Experiment", "Polarity"}, 0},
        {{"Gas", "Experiment", "polarity (S)"}, 0},
    };
    for (const auto& [entries, polarity_position] : cases) {
        Acquisition test;
        test.instrument().meta_description = entries;
        Metadata metadata(entries.size(), 9);
        metadata[polarity_position] = 0;
        test.every_metadata(0, metadata);
        EXPECT_EQ(test.wait(), "no error");
        test.instrument().meta_description = Lines{"Experiment"};
        EXPECT_EQ(test.wait(), "no error");
    }
}

}  // namespace
}  // namespace korvane
