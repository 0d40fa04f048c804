#include "spectrum/acquisition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::Not;
using Lines = std::vector<std::string>;
using Metadata = std::vector<InstrumentValue>;

struct Acquisition {
    Acquisition() { world.test.trace().lines.clear(); }

    std::int32_t wait() {
        return acquisition.WaitForSpectrumWithProperPolarityAndExperimentIndex(spectrum, description, cancelled);
    }
    void get() { acquisition.GetNewSpectrumAndVerifyDataIsPopulated(spectrum, cancelled); }
    /// Every spectrum takes so long and has this metadata.
    void every_spectrum(double seconds, Metadata metadata) {
        world.instrument().acquire = [this, seconds, metadata](AcquiredSpectrum& answer, int) {
            world.fill(answer);
            answer.meta_data = metadata;
            world.test.clock->advance(seconds);
        };
    }
    void spectra_without_samples(double seconds, int first_good) {
        world.instrument().acquire = [this, seconds, first_good](AcquiredSpectrum& answer, int number) {
            world.fill(answer);
            answer.experiment = number;
            if (number < first_good) answer.y_data.clear();
            world.test.clock->advance(seconds);
        };
    }
    /// Lines that a routine traced itself.
    Lines traced_by(const std::string& routine) const {
        Lines lines;
        for (const std::string& line : const_cast<SpectrumWorld&>(world).test.trace().lines)
            if (line.starts_with(routine + ": ")) lines.push_back(line.substr(routine.size() + 2));
        return lines;
    }

    SpectrumWorld world;
    Session session{world.platform()};
    SpectrumAcquisition acquisition{session};
    SpectrumTriple spectrum;
    VariantArray<std::string> description;
    bool cancelled = true;
};

constexpr const char* new_spectrum = "GetNewSpectrumAndVerifyDataIsPopulated";

TEST(NewSpectrum, SecondSpectrumOfAPassReplacesAnEmptyFirst) {
    Acquisition test;
    test.spectra_without_samples(0.1, 2);
    test.get();
    EXPECT_EQ(test.world.instrument().spectra, 2);
    EXPECT_EQ(test.spectrum.vYData.size(), test.world.samples.size());
    EXPECT_EQ(test.spectrum.dSpectrumStartTimeInNS, SpectrumWorld::start_ns);
    EXPECT_FALSE(test.cancelled);
    EXPECT_EQ(test.traced_by(new_spectrum),
              (Lines{"Setting up to retrieve next spectrum", "Getting next spectrum",
                     "AUTOTUNE LOG: STATUS: first spectrum invalid; getting second spectrum (with Experiment[2]) "
                     "gotten from GetNextSpectrum()",
                     "recieved a spectrum"}));
    EXPECT_EQ(test.traced_by("IsDataReturnedFromGetNextSpectrumPopulated"),
              Lines{"LOG: WARNING: returned YData is empty"});
    EXPECT_EQ(test.world.tune_log().size(), 2) << "header and the first spectrum's line, none for the second";
}

TEST(NewSpectrum, EveryMissingArrayIsNamed) {
    Acquisition test;
    test.world.instrument().acquire = [&](AcquiredSpectrum& answer, int number) {
        if (number == 2) test.world.fill(answer);
    };
    test.get();
    EXPECT_EQ(test.traced_by("IsDataReturnedFromGetNextSpectrumPopulated"),
              (Lines{"LOG: WARNING: returned vMassData is empty", "LOG: WARNING: returned YData is empty",
                     "LOG: WARNING: returned MetaData is empty"}));
}

TEST(NewSpectrum, ArrayWithoutElementsIsPopulated) {
    Acquisition test;
    test.world.instrument().acquire = [&](AcquiredSpectrum& answer, int) {
        test.world.fill(answer);
        answer.y_data = VariantArray<double>(std::vector<double>{});
    };
    test.get();
    EXPECT_EQ(test.world.instrument().spectra, 1);
}

// Passes of two spectra; the last one is the first to end later than 15 s after the start.
void expect_timeout_after(Acquisition& test, double seconds_per_spectrum, int spectra) {
    test.spectra_without_samples(seconds_per_spectrum, 1000);
    const Error error = error_of([&] { test.get(); });
    EXPECT_EQ(error.number(), 5);
    EXPECT_EQ(error.description(), "Invalid procedure call or argument");
    EXPECT_EQ(test.world.instrument().spectra, spectra);
    const Lines lines = test.traced_by(new_spectrum);
    EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
              (Lines{"Error[0]:", "Spectrum routine Failed", "No New Spectrum received"}));
    EXPECT_EQ(test.world.tune_log().back(), "AUTOTUNE LOG: WARNING: Timed out. No valid spectrum received");
}

TEST(NewSpectrum, PassThatEndsAtFifteenSecondsIsFollowedByAnother) {
    Acquisition test;
    expect_timeout_after(test, 2.5, 8);  // passes end at 5, 10, 15 and 20 s
}

TEST(NewSpectrum, SlowPassIsCompletedAndTheTimeoutIsAnInvalidCall) {
    Acquisition test;
    expect_timeout_after(test, 10, 2);
}

TEST(NewSpectrum, AbortComesBeforeAnySpectrumIsAskedFor) {
    Acquisition test;
    test.world.request_abort();
    const Error error = error_of([&] { test.get(); });
    EXPECT_EQ(error.number(), 1);
    EXPECT_EQ(error.source(), "");
    EXPECT_EQ(error.description(), "User aborted");
    EXPECT_EQ(test.world.instrument().spectra, 0);
    EXPECT_EQ(test.traced_by(new_spectrum),
              (Lines{"Error[1]: User aborted", "Spectrum routine Failed", "No New Spectrum received"}));
    EXPECT_TRUE(test.world.tune_log().empty());
}

TEST(NewSpectrum, MissingControlIsTracedAndThenFails) {
    Acquisition test;
    test.world.instrument().has_control = false;
    EXPECT_EQ(error_of([&] { test.get(); }).number(), error_number::object_not_set);
    EXPECT_EQ(test.traced_by(new_spectrum).front(), "Error: pMSControl is Nothing");
}

TEST(NewSpectrum, InstrumentErrorPassesWithItsSource) {
    Acquisition test;
    test.world.instrument().acquire = [](AcquiredSpectrum&, int) { throw Error(-77, "ADC", "gone"); };
    test.spectrum.vYData = test.world.samples;
    const Error error = error_of([&] { test.get(); });
    EXPECT_EQ(error.number(), -77);
    EXPECT_EQ(error.source(), "ADC");
    EXPECT_TRUE(test.spectrum.vYData.is_empty()) << "the caller's arrays are emptied before the request";
    EXPECT_THAT(test.traced_by(new_spectrum), Contains("Error[-77]: gone"));
}

TEST(PolarityWait, SpectraOfTheOtherPolarityAreWaitedOut) {
    Acquisition test;
    test.world.instrument().acquire = [&](AcquiredSpectrum& answer, int number) {
        test.world.fill(answer);
        answer.meta_data = Metadata{1, number < 3 ? 1 : 0};
    };
    EXPECT_EQ(test.wait(), 0);
    EXPECT_EQ(test.world.instrument().spectra, 3);
    const Lines log = test.world.tune_log();
    EXPECT_EQ(std::count(log.begin(), log.end(),
                         "AUTOTUNE LOG: WARNING: Received spectrum with Different polarity = 1 For Experiment = 0"),
              2);
    EXPECT_EQ(log.back(), "AUTOTUNE LOG: STATUS: Spectrum of proper polarity and experiment index was returned");
}

TEST(PolarityWait, TimesOutAfterMoreThanFortyFiveSecondsWithTheOddLine) {
    Acquisition test;
    test.world.instrument().meta_description = std::vector<std::string>{"Gas", "Experiment", "Polarity (S)", "x"};
    test.every_spectrum(15, Metadata{"gas text", 1, 1, "fourth"});
    EXPECT_EQ(test.wait(), -8);
    EXPECT_EQ(test.world.instrument().spectra, 4) << "45 s is not more than 45 s";
    EXPECT_EQ(test.world.tune_log().back(),
              "AUTOTUNE LOG: WARNING: Timed out waiting for spectrum with polarity[1] and experimentIndex[fourth]");
}

TEST(PolarityWait, TimeoutLinePastTheMetadataIsASubscriptError) {
    Acquisition test;
    test.every_spectrum(50, Metadata{7, 1});
    EXPECT_EQ(error_of([&] { test.wait(); }).number(), error_number::subscript);
}

TEST(PolarityWait, InvalidPolarityIsAnErrorEvenWhereTheInstrumentIsSetToTheOther) {
    Acquisition test;
    test.world.instrument().setpoints[119].value = 1;
    test.every_spectrum(0, Metadata{1, 2});
    const Error error = error_of([&] { test.wait(); });
    EXPECT_EQ(error.number(), -1);
    EXPECT_EQ(error.source(), "ReturnedSpectrumIsOfSoughtPolarity");
    EXPECT_EQ(error.description(), "Polarity MetaData Entry is NOT valid (1 or 0); it was returned as 2");
    const Lines log = test.world.tune_log();
    EXPECT_EQ(Lines(log.end() - 2, log.end()),
              (Lines{"AUTOTUNE LOG: WARNING: Polarity MetaData Entry is NOT valid (1 or 0); it was returned as 2",
                     "AUTOTUNE LOG: ERROR in ReturnedSpectrumIsOfSoughtPolarity(): Error getting Polarity and "
                     "ExperimentIndex out of the MetaData Array"}));
    EXPECT_TRUE(test.traced_by("ReturnedSpectrumIsOfSoughtPolarity").empty());
}

struct DescriptionCase {
    const char* what;
    std::vector<std::string> entries;
    std::int32_t polarity_position;  // where the polarity is then read; the other positions hold no polarity
};

TEST(MetadataPositions, FollowTheWalkWithItsQuirks) {
    const DescriptionCase cases[] = {
        {"plain", {"Gas", "Experiment", "Polarity (S)"}, 2},
        {"names anywhere in the entry", {"my Polarity here (S)", "the Experiment no"}, 0},
        {"second experiment entry ends the walk", {"Gas", "Experiment", "Experiment 2", "Polarity (S)"}, 0},
        {"one entry for both", {"Gas", "Experiment Polarity (S)", "Polarity (S)"}, 1},
        {"without the mark", {"Gas", "Experiment", "Polarity"}, 0},
        {"other letter case", {"Gas", "Experiment", "polarity (S)"}, 0},
    };
    for (const DescriptionCase& one : cases) {
        Acquisition test;
        test.world.instrument().meta_description = one.entries;
        Metadata metadata(one.entries.size(), 9);
        metadata[static_cast<std::size_t>(one.polarity_position)] = 0;
        test.every_spectrum(0, metadata);
        EXPECT_EQ(error_of([&] { EXPECT_EQ(test.wait(), 0); }).number(), 0) << one.what;
    }
}

TEST(MetadataPositions, StayWhereTheNextDescriptionLacksAnEntry) {
    Acquisition test;
    test.world.instrument().meta_description = std::vector<std::string>{"Gas", "Experiment", "Polarity (S)"};
    test.every_spectrum(0, Metadata{9, 9, 0});
    EXPECT_EQ(test.wait(), 0);
    test.world.instrument().meta_description = std::vector<std::string>{"Experiment"};
    EXPECT_EQ(test.wait(), 0);
    EXPECT_THAT(test.traced_by("GetMetaDataIndexesForExperimentIdxAndPolarity"),
                Contains("Number of elements in vMetaDesc = 0"));
}

TEST(PolarityWait, PositionOutsideTheMetadataIsReportedAndRaised) {
    Acquisition test;
    test.every_spectrum(0, Metadata{1});
    EXPECT_EQ(error_of([&] { test.wait(); }).number(), error_number::subscript);
    EXPECT_THAT(test.world.tune_log().back(), EndsWith("out of the MetaData Array"));
    EXPECT_THAT(test.traced_by("WaitForSpectrumWithProperPolarityAndExperimentIndex"),
                Contains(testing::StartsWith("Error[9] in WaitForSpectrumWithProperPolarityAndExperimentIndex(): ")));
    EXPECT_THAT(test.traced_by(new_spectrum), Not(Contains("Spectrum routine Failed")));
}

}  // namespace
}  // namespace korvane
