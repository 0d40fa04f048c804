// Waiting for a spectrum: populated within 15 s, of the right polarity within 45 s.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/raised.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::StartsWith;
using Lines = std::vector<std::string>;
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

constexpr std::string_view second_spectrum_transcript = R"(
> GetNewSpectrumAndVerifyDataIsPopulated
  > UserHasClickedAbort
    > GetTunePreference
      > OpenTunePrefsXML
    Abort value is set to 0
  Setting up to retrieve next spectrum
  Getting next spectrum
  log: ===TUNE 11/21/2026 10:00:00 AM===
  log: AUTOTUNE LOG: STATUS: spectrum (with Experiment[0], dRetentionTime[0]) gotten from GetNextSpectrum()
  > IsDataReturnedFromGetNextSpectrumPopulated
    LOG: WARNING: returned vMassData is empty
    LOG: WARNING: returned YData is empty
    LOG: WARNING: returned MetaData is empty
  AUTOTUNE LOG: STATUS: first spectrum invalid; getting second spectrum (with Experiment[3]) gotten from GetNextSpectrum()
  > IsDataReturnedFromGetNextSpectrumPopulated
  recieved a spectrum
)";

TEST(NewSpectrum, SecondSpectrumOfAPassReplacesAnEmptyFirst) {
    Acquisition test;
    test.instrument().acquire = [&](AcquiredSpectrum& answer, int number) {
        if (number == 2) test.fill(answer);
    };
    EXPECT_EQ(test.get(), "no error");
    EXPECT_EQ(test.transcript(), second_spectrum_transcript);
    EXPECT_EQ(test.masses_seen.size(), test.axis.size());
    EXPECT_EQ(test.samples_seen.size(), test.samples.size());
    EXPECT_EQ(test.metadata.size(), 2);
    EXPECT_EQ(test.start_time_ns, SpectrumWorld::start_ns);
    EXPECT_FALSE(test.cancelled);
}

TEST(NewSpectrum, EachArrayHasToBeThereButMayHaveNoElements) {
    Acquisition test;
    test.every_spectrum(0, [](AcquiredSpectrum& answer, int number) {
        if (number == 1) answer.mass_data.clear();
        if (number == 2) answer.y_data.clear();
        if (number == 3) answer.meta_data.clear();
        if (number == 4) answer.y_data = std::vector<double>{};
    });
    test.get();
    EXPECT_EQ(test.instrument().spectra, 4);
}

TEST(NewSpectrum, PassThatBeginsWithinFifteenSecondsIsCompletedAndThenTheTimeIsUp) {
    // Passes of two spectra that end at 5, 10, 15 and 20 s, and a single one of 20 s.
    for (const auto& [seconds, spectra] : {std::pair{2.5, 8}, std::pair{10.0, 2}}) {
        Acquisition test;
        test.every_spectrum(seconds, [](AcquiredSpectrum& answer, int) { answer.y_data.clear(); });
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
    const std::pair<const char*, std::function<void(Acquisition&)>> failures[] = {
        {"1||User aborted", [](auto& test) { test.request_abort(); }},
        {"91|Korvane|Object variable or With block variable not set: instrument control",
         [](auto& test) { test.instrument().has_control = false; }},
        {"-77|ADC|gone",
         [](auto& test) { test.instrument().acquire = [](auto&, int) { throw Error(-77, "ADC", "gone"); }; }}};
    for (const auto& [error, prepare] : failures) {
        Acquisition test;
        prepare(test);
        test.samples_seen = test.samples;
        EXPECT_EQ(test.get(), error);
        const std::string text = error, number = text.substr(0, text.find('|'));
        Lines traced{"Error[" + number + "]: " + text.substr(text.rfind('|') + 1), "Spectrum routine Failed",
                     "No New Spectrum received"};
        if (number != "1")
            traced.insert(traced.begin(), {"Setting up to retrieve next spectrum", "Getting next spectrum"});
        if (number == "91") traced.insert(traced.begin(), "Error: pMSControl is Nothing");
        EXPECT_EQ(test.traced_by(new_spectrum), traced);
        EXPECT_TRUE(test.tune_log().empty());
        // The caller's arrays are emptied before a request, not before.
        EXPECT_EQ(test.samples_seen.is_empty(), number == "-77");
    }
}

TEST(PolarityWait, SpectraOfTheOtherPolarityAreWaitedOut) {
    Acquisition test;
    test.every_spectrum(0, [](AcquiredSpectrum& answer, int number) {
        answer.meta_data = Metadata{1, number < 3 ? 1 : 0};
    });
    EXPECT_EQ(test.wait(), "no error");
    EXPECT_EQ(test.instrument().spectra, 3);
    EXPECT_THAT(
        test.tune_log(),
        Contains("AUTOTUNE LOG: WARNING: Received spectrum with Different polarity = 1 For Experiment = 0").Times(2));
}

TEST(PolarityWait, TimesOutAfterMoreThanFortyFiveSecondsWithTheOddLine) {
    Acquisition test;
    test.instrument().meta_description = Lines{"Gas", "Experiment", "Polarity (S)", "x"};
    test.every_metadata(15, {"gas text", 1, 1, "fourth"});
    EXPECT_EQ(test.wait(), "-8|GetPeakInfoForCalibrantMasses|Timed out waiting for a spectrum of the sought polarity");
    EXPECT_EQ(test.instrument().spectra, 4) << "45 s is not more than 45 s";
    EXPECT_EQ(test.tune_log().back(),
              "AUTOTUNE LOG: WARNING: Timed out waiting for spectrum with polarity[1] and experimentIndex[fourth]");
    test.every_metadata(50, {"gas text", 2, 1, "fourth"});
    EXPECT_THAT(test.wait(), StartsWith("9|")) << "the line reads past the metadata";
}

TEST(PolarityWait, UnusablePolarityIsLoggedTracedAndRaised) {
    constexpr const char* position = "Subscript out of range: index 1";
    constexpr const char* value = "Polarity MetaData Entry is NOT valid (1 or 0); it was returned as ";
    const std::pair<Metadata, std::string> cases[] = {
        {{1}, position}, {{1, 2}, value + std::string("2")}, {{1, -1}, value + std::string("-1")}};
    for (const auto& [metadata, description] : cases) {
        Acquisition test;
        test.every_metadata(0, metadata);
        EXPECT_EQ(test.wait(),
                  (description == position ? "9|Korvane|" : "-1|ReturnedSpectrumIsOfSoughtPolarity|") + description);
        Lines log = test.tune_log();
        EXPECT_EQ(log.back(),
                  "AUTOTUNE LOG: ERROR in ReturnedSpectrumIsOfSoughtPolarity(): Error getting Polarity and "
                  "ExperimentIndex out of the MetaData Array");
        EXPECT_EQ(log.at(3) == "AUTOTUNE LOG: WARNING: " + description, description != position);
        EXPECT_TRUE(test.traced_by("ReturnedSpectrumIsOfSoughtPolarity").empty());
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
