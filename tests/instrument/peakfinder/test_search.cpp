// Windows, options, hostile samples: what the search does beside measuring well.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <limits>
#include <random>

#include "finder_run.h"
#include "support/raised.h"

namespace korvane {
namespace {

const SyntheticSpectrum& spectrum_of_set() {
    static const SyntheticSpectrum spectrum = synthesize(accuracy_sets()[0], 3);
    return spectrum;
}

SyntheticSpectrum flat_spectrum(std::size_t samples, std::int32_t level) {
    return {std::vector<std::int32_t>(samples, level), 10000, 1, {}};
}

TEST(Search, AWindowWithoutSamplesGivesAnEmptyList) {
    const auto& spectrum = spectrum_of_set();
    const double end_ns = spectrum.start_time_ns + static_cast<double>(spectrum.counts.size()) * spectrum.interval_ns;
    const double far = std::numeric_limits<double>::max();
    for (const SearchWindow& window :
         {SearchWindow{50000, 40000}, SearchWindow{0, 9000}, SearchWindow{end_ns + 1, end_ns + 1000},
          SearchWindow{-far, 0}, SearchWindow{far, far}, SearchWindow{50000.6, 50000.7}})
        EXPECT_TRUE(find_peaks(spectrum, {}, window).empty()) << window.start_ns << " " << window.end_ns;
    EXPECT_TRUE(find_peaks(flat_spectrum(0, 0)).empty());
}

TEST(Search, ReachesTheWholeSpectrumWhenTheWindowDoes) {
    const auto& spectrum = spectrum_of_set();
    const double far = std::numeric_limits<double>::max();
    const auto whole = find_peaks(spectrum);
    ASSERT_GT(whole.size(), 200U);
    EXPECT_EQ(find_peaks(spectrum, {}, {-far, far}).size(), whole.size());
    EXPECT_EQ(find_peaks(spectrum, {}, {0, 1e9}).size(), whole.size());
    for (std::size_t i = 1; i < whole.size(); ++i)
        EXPECT_LT(whole[i - 1].record.pkCentroid, whole[i].record.pkCentroid);
}

TEST(Search, MissingOrSenselessSettingsAreErrorsThatNameThem) {
    const auto& spectrum = spectrum_of_set();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const auto finder = make_peak_finder();
    EXPECT_NE(raised([&] { finder->run(0); }).find("sampling interval"), std::string::npos);
    for (const double interval_ns : {0.0, -1.0, nan, std::numeric_limits<double>::infinity()}) {
        finder->set_sampling_interval_ns(interval_ns);
        EXPECT_EQ(raised([&] { finder->run(0); }).substr(0, 2), "5|") << interval_ns;
    }
    run_finder(*finder, spectrum);
    EXPECT_NE(raised([&] { finder->run(nan); }).find("search time"), std::string::npos);
    EXPECT_EQ(raised([&] { run_finder(*finder, spectrum, {nan, 1}); }).substr(0, 2), "5|");
    EXPECT_EQ(raised([&] { run_finder(*finder, spectrum, {0, nan}); }).substr(0, 2), "5|");
}

TEST(Search, TheSameSamplesGiveTheSamePeaksBitForBitWhateverTheHostsRounding) {
    const auto& spectrum = spectrum_of_set();
    const auto first = find_peaks(spectrum);
    for (const int rounding : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        std::fesetround(rounding);
        const auto again = find_peaks(spectrum);
        const int rounding_after = std::fegetround();
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(rounding_after, rounding);
        ASSERT_EQ(again.size(), first.size());
        for (std::size_t i = 0; i < first.size(); ++i) {
            ASSERT_EQ(again[i].record, first[i].record) << rounding << " " << i;
            ASSERT_EQ(again[i].uncertainty.centroid, first[i].uncertainty.centroid);
        }
    }
}

TEST(Search, WindowsFindWhatTheWholeSearchFinds) {
    const auto& spectrum = spectrum_of_set();
    const auto known = known_of(accuracy_sets()[0]);
    for (const auto& peak : find_peaks(spectrum, known)) {
        const double centroid_ns = peak.record.pkCentroid;
        const auto found = find_peaks(spectrum, known, {centroid_ns - 5, centroid_ns + 5});
        if (peak.uncertainty.ions < 10) continue;  // at the edge of what is found
        ASSERT_EQ(found.size(), 1U) << centroid_ns;
        EXPECT_NEAR(found.front().record.pkCentroid, centroid_ns, 0.2 * peak.uncertainty.centroid);
        EXPECT_NEAR(found.front().record.pkHeight, peak.record.pkHeight, 0.4 * peak.uncertainty.height);
    }
}

TEST(Search, RecordsAreWhatTheirDefinitionsSay) {
    for (const auto& [record, uncertainty] : find_peaks(spectrum_of_set())) {
        EXPECT_LT(record.pkStart, record.pkCentroid);
        EXPECT_GT(record.pkEnd, record.pkCentroid);
        EXPECT_NEAR(record.pkApexX, record.pkCentroid, 0.1 * record.pkWidth);
        EXPECT_EQ(record.pkResolution, record.pkCentroid / (2 * record.pkWidth));
        // A Gaussian's area over its height and width, samples of 1 ns.
        const double shape = record.pkArea / (record.pkHeight * record.pkWidth);
        EXPECT_NEAR(shape, 1.0645, 0.1 + 4 * uncertainty.area / record.pkArea + 4 * uncertainty.width / record.pkWidth);
        EXPECT_GT(uncertainty.centroid, 0);
        EXPECT_GT(uncertainty.height, 0);
        EXPECT_GT(uncertainty.width, 0);
        EXPECT_GT(uncertainty.area, 0);
    }
}

TEST(Search, WithoutBaselineRemovalHeightAndAreaStandOnZero) {
    const auto& spectrum = spectrum_of_set();
    const auto finder = make_peak_finder();
    const auto on = contents(*run_finder(*finder, spectrum));
    finder->set_baseline_removal(0);
    const auto off = contents(*finder->run(spectrum.start_time_ns));
    ASSERT_EQ(on.size(), off.size());
    for (std::size_t i = 0; i < on.size(); ++i) {
        EXPECT_NEAR(off[i].record.pkHeight - on[i].record.pkHeight, 300, 35);
        EXPECT_EQ(off[i].record.pkCentroid, on[i].record.pkCentroid);
        const double samples = off[i].record.pkEnd - off[i].record.pkStart;
        EXPECT_NEAR((off[i].record.pkArea - on[i].record.pkArea) / 300, samples, 1.1 + 0.12 * samples);
    }
}

TEST(Search, TheBaselineIsThatOfTheWindow) {
    SyntheticSet set = accuracy_sets()[0];
    const SyntheticSpectrum drifting = synthesize(set, 11);
    set.background_ions = 0;
    const auto finder = make_peak_finder();
    for (double start_ns = 12000; start_ns < 155000; start_ns += 7000) {
        run_finder(*finder, drifting, {start_ns, start_ns + 800});
        // The median of the window's samples is disturbed by peaks only as far as they cover it.
        const auto first = static_cast<std::ptrdiff_t>(start_ns - drifting.start_time_ns);
        std::vector<std::int32_t> samples(drifting.counts.begin() + first, drifting.counts.begin() + first + 800);
        std::nth_element(samples.begin(), samples.begin() + 400, samples.end());
        EXPECT_NEAR(finder->baseline(), samples[400], 3);
    }
}

TEST(Search, ASpikeOfOneSampleIsNoPeakUnlessASampleIsEnough) {
    const SyntheticSet& set = accuracy_sets()[0];
    auto spectrum = synthesize_peaks(set, {{60000, 1000, true}}, 10000.3, 2);
    spectrum.counts.resize(60000);
    for (const std::int32_t height : {2000, 50000}) {
        spectrum.counts[30000] = height;
        for (const bool knowing : {true, false}) {
            const auto finder = make_peak_finder(knowing ? known_of(set) : PeakFinderOptions());
            EXPECT_EQ(run_finder(*finder, spectrum)->count(), 1) << height << knowing;
            finder->set_minimum_samples(1);
            EXPECT_EQ(finder->run(spectrum.start_time_ns)->count(), 2) << height << knowing;
            finder->set_minimum_samples(50);
            EXPECT_EQ(finder->run(spectrum.start_time_ns)->count(), 0) << height << knowing;
        }
    }
}

TEST(Search, NoiseAloneHasNoPeaks) {
    SyntheticSet set = accuracy_sets()[2];
    set.samples = 200000;
    std::size_t false_peaks = 0;
    for (std::uint64_t seed = 1; seed <= 9; ++seed) {
        const auto spectrum = synthesize_peaks(set, {}, 10000, seed);
        false_peaks += find_peaks(spectrum, known_of(set)).size() + find_peaks(spectrum).size();
    }
    EXPECT_LE(false_peaks, 6U);  // of 6 spectra of 600,000 samples
}

TEST(Search, AStepOfTheBaselineIsNoCrowdOfPeaks) {
    const SyntheticSet set = accuracy_sets()[0];
    for (const int step : {100, -100, 3000}) {
        auto spectrum = synthesize_peaks(set, {{60000, 1000, true}, {120000, 1000, true}}, 10000.3, 2);
        for (std::size_t i = 70000; i < spectrum.counts.size(); ++i) spectrum.counts[i] += step;
        const auto found = find_peaks(spectrum, known_of(set));
        EXPECT_GE(found.size(), 2U) << step;
        EXPECT_LE(found.size(), 3U) << step;
    }
}

TEST(Search, HostileSamplesGiveFiniteRecordsOrNone) {
    const std::int32_t least = std::numeric_limits<std::int32_t>::min();
    const std::int32_t most = std::numeric_limits<std::int32_t>::max();
    std::mt19937 random(5);
    std::vector<std::vector<std::int32_t>> spectra;
    for (const std::size_t size : {1U, 2U, 3U, 15U, 16U, 17U, 255U, 1025U, 5000U}) {
        for (const std::int32_t level : {0, 1, least, most}) spectra.emplace_back(size, level);
        std::vector<std::int32_t> drawn(size), sparse(size), extreme(size), ramp(size);
        for (std::size_t i = 0; i < size; ++i) {
            drawn[i] = static_cast<std::int32_t>(random());
            sparse[i] = random() % 7 == 0 ? static_cast<std::int32_t>(random() % 5) : 0;
            extreme[i] = i % 2 == 0 ? least : most;
            ramp[i] = static_cast<std::int32_t>(i) * 1000;
        }
        for (auto& samples : {drawn, sparse, extreme, ramp}) spectra.push_back(samples);
        spectra.push_back(drawn);
        std::sort(spectra.back().begin(), spectra.back().end());
    }
    for (const auto& samples : spectra) {
        const SyntheticSpectrum spectrum{samples, 10000, 0.25, {}};
        for (const bool knowing : {true, false}) {
            const auto options = knowing ? known_of(accuracy_sets()[2]) : PeakFinderOptions();
            for (const auto& [record, uncertainty] : find_peaks(spectrum, options)) {
                for (std::int32_t position = 0; position < 8; ++position)
                    ASSERT_TRUE(std::isfinite(record.value(position))) << samples.size() << " " << samples[0];
                ASSERT_TRUE(std::isfinite(uncertainty.centroid));
                ASSERT_GT(record.pkWidth, 0);
            }
        }
    }
}

}  // namespace
}  // namespace korvane
