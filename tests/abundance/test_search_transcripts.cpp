// Both searches on random instruments, in transcripts: what they write and measure, log, report and return. The first
// trials stand there in full, all others by a digest. KORVANE_KEEP_SEARCHES=1 accepts a change of their steps.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "abundance/search_world.h"

namespace korvane {
namespace {

constexpr double not_given = search_value_not_given;

/// The same draw with every library.
double uniform(std::mt19937& random, double low, double high) {
    return low + (high - low) * (static_cast<double>(random()) / 4294967296.0);
}

/// A search on a random instrument. What a spectrum shows depends on its number and on the value applied.
struct Trial {
    explicit Trial(std::mt19937& random, bool is_fast)
        : fast(is_fast), seed(static_cast<unsigned>(random())), index(one_in(random, 8) ? 104 : 50) {
        const double resolutions[] = {not_given, not_given, uniform(random, 0.5, 30), -1, 0};
        resolution = resolutions[one_in(random, 20) ? 3 + random() % 2 : random() % 3];
        if (one_in(random, 10)) high = not_given;
        if (one_in(random, 10)) low = not_given;
        if (one_in(random, 4)) tolerance = 0;
        if (one_in(random, 40)) target = 0;
        if (one_in(random, 10)) resolution = (high - low) / 2;
        lower_reduces = !one_in(random, 4);
        averaging = one_in(random, 4);
        transients = 5000 + static_cast<int>(random() % 5000);
        speed_up = std::floor(uniform(random, 1, 12));
        low = low == not_given ? low : std::floor(uniform(random, 0, 40));
        entry = uniform(random, 0, 100);
        target = target == 0 ? 0 : uniform(random, 5e4, 1e6);
        tolerance = tolerance == 0 ? 0 : uniform(random, 0, 4e6);
        trouble = one_in(random, 3) ? 0.08 : 0;
        curvature = uniform(random, -0.9, 0.9);
    }
    static bool one_in(std::mt19937& random, unsigned n) { return random() % n == 0; }

    /// Height of the peak in a spectrum, or the error of taking it.
    double height(int spectrum, double applied) const {
        std::mt19937 random(seed + static_cast<unsigned>(spectrum) * 7919);
        if (uniform(random, 0, 1) < trouble) {
            const Error errors[] = {
                {-1, "anyone", "No peaks returned by peakfinder"}, {-99, "ADC", "overheated"}, {1, "", "User aborted"}};
            throw errors[random() % 3];
        }
        if (uniform(random, 0, 1) < trouble / 4) return 3e9;
        const double share = std::clamp((lower_reduces ? applied : 100 - applied) / 100, 0.0, 1.0);
        const double noise = seed % 3 ? 1 : uniform(random, 0.2, 1.8);
        const double counts = 1e6 / speed_up * share * (1 + curvature * (share - 1)) * noise;
        return std::floor(2 * counts) / 2;  // halves are to be rounded
    }

    bool fast, lower_reduces = true, averaging = false;
    unsigned seed;
    int index, transients = 0;
    double low = 0, high = 100, entry = 0, resolution = 0, target = 1, tolerance = 1, speed_up = 1, trouble = 0;
    double curvature = 0;
};

std::string text_of_outcome(const AdjustOutcome& outcome) {
    std::string text = text_of("end ", static_cast<int>(outcome.end), ", target ", outcome.scaled_target, ", speed-up ",
                               outcome.speed_up_factor, ", abundance ", outcome.abundance, "\n");
    for (const AdjustProbe& probe : outcome.probes)
        append_text(text, "probe ", probe.number, ": ", probe.value, " ", probe.abundance, " ", probe.low, " ",
                    probe.high, "\n");
    return text;
}

std::string digest_of(const std::string& text) {
    std::uint32_t hash = 0x811c9dc5U;  // FNV-1a
    for (const char byte : text) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x01000193U;
    return std::to_string(hash);
}

class SearchTranscript : public testing::TestWithParam<bool> {};

TEST_P(SearchTranscript, OfHundredsOfRandomResponsesIsTheKeptOne) {
    constexpr int shown_in_full = 10;
    SearchWorld world(GetParam());
    world.test.trace().on = false;
    world.test.preference("BinarySearchLoggingEnabled", "3000");
    std::mt19937 random(GetParam() ? 11 : 7);
    int ends[4] = {};
    const auto path = std::filesystem::path(KORVANE_SOURCE_DIR) / "tests/abundance" /
                      (GetParam() ? "fast_searches.txt" : "normal_searches.txt");
    const bool is_accepted = std::getenv("KORVANE_KEEP_SEARCHES");
    const std::string kept = read_text(path);
    std::string transcript;
    for (int i = 0; i < 500; ++i) {
        const Trial trial(random, GetParam());
        for (const int index : {50, 104}) world.instrument().setpoint(index) = {trial.entry, 0, 100, 1, 0.01, 4, "x"};
        world.instrument().setpoint(127).value = trial.transients;
        world.instrument().setpoint(162).value = trial.averaging;
        world.test.limit("Calibration", "AIC_SearchSpeedUpFactor", number_text(trial.speed_up));
        world.test.limit("Calibration", "BinarySearchAbTolerance", number_text(trial.tolerance));
        world.instrument().spectra = 0;
        world.instrument().journal.clear();
        world.instrument().acquire = [&](AcquiredSpectrum& spectrum, int number) {
            const auto& applied =
                GetParam() ? world.instrument().firmware[22] : world.instrument().setpoint(trial.index).value;
            world.set_peak(900, trial.height(number, applied));
            world.fill(spectrum);
        };
        world.parser = SpectrumParser(world.platform());  // reads the new limits
        std::filesystem::remove_all(world.test.base() / "Logfiles");
        std::filesystem::create_directory(world.test.base() / "Logfiles");
        std::size_t shown = 0;
        world.parser.on_adjust_probe(
            [&](const AdjustProbe& probe) { shown += probe.value == world.outcome().probes.back().value; });
        double result = 0;
        const std::string error = raised([&] {
            result = world.parser.BinaryAdjustAbundanceDownUsingThisSetpoint(
                trial.index, 900, trial.target, 30, trial.lower_reduces, trial.low, trial.high, trial.resolution);
        });
        EXPECT_EQ(shown, world.outcome().probes.size());
        EXPECT_TRUE(error != "no error" || world.outcome().value == result);
        ++ends[error == "no error" ? static_cast<int>(world.outcome().end) : 3];
        const std::string steps =
            joined(world.instrument().journal) + joined(world.log()) + text_of_outcome(world.outcome());
        if (i < shown_in_full) transcript += steps;
        append_text(transcript, "trial ", i, ": ", error == "no error" ? number_text(result) : error, ", steps ",
                    digest_of(steps), "\n");
        ASSERT_TRUE(is_accepted || kept.starts_with(transcript)) << "trial " << i << " differs:" << steps << error;
    }
    for (const int count : ends) EXPECT_GT(count, 15) << "trials that end in one way are too few";
    if (is_accepted) write_text(path, transcript);
    EXPECT_EQ(transcript.size(), read_text(path).size());
}

INSTANTIATE_TEST_SUITE_P(Search, SearchTranscript, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "Fast" : "Normal"; });

}  // namespace
}  // namespace korvane
