// Windows, options, hostile samples: what the search does beside measuring well.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <random>

#include "accuracy.h"
#include "support/raised.h"

namespace korvane {
namespace {

constexpr double far_ns = std::numeric_limits<double>::max();
constexpr double nan_ns = std::numeric_limits<double>::quiet_NaN();

const SyntheticSet& plain_set() {
    return accuracy_sets()[0];
}

const SyntheticSpectrum& plain_spectrum() {
    static const SyntheticSpectrum spectrum = synthesize(plain_set(), 3);
    return spectrum;
}

TEST(Search, AWindowWithoutSamplesGivesAnEmptyListAWideOneAllPeaksAndASenselessOneAnError) {
    const auto& spectrum = plain_spectrum();
    const double end_ns = spectrum.start_time_ns + static_cast<double>(spectrum.counts.size());
    for (const SearchWindow& window : {SearchWindow{50000, 40000}, SearchWindow{0, 9000},
                                       SearchWindow{end_ns + 1, end_ns + 1000}, SearchWindow{50000.6, 50000.7}})
        EXPECT_TRUE(find_peaks(spectrum, {}, window).empty()) << window.start_ns << " " << window.end_ns;
    EXPECT_TRUE(find_peaks({{}, 10000, 1, {}}).empty());
    const auto whole = find_peaks(spectrum);
    EXPECT_GT(whole.size(), 200U);
    EXPECT_EQ(find_peaks(spectrum, {}, {-far_ns, far_ns}).size(), whole.size());
    EXPECT_TRUE(std::ranges::is_sorted(whole, {}, [](const MeasuredPeak& peak) { return peak.record.pkCentroid; }));
    const auto finder = make_peak_finder();
    for (const double interval_ns : {0.0, -1.0, nan_ns, std::numeric_limits<double>::infinity()}) {
        if (interval_ns != 0) finder->set_sampling_interval_ns(interval_ns);
        EXPECT_NE(raised([&] { finder->run(0); }).find("sampling interval"), std::string::npos) << interval_ns;
    }
    for (const SearchWindow& window : {SearchWindow{nan_ns, 1}, SearchWindow{0, nan_ns}})
        EXPECT_EQ(raised([&] { find_peaks(*finder, spectrum, window); }).substr(0, 2), "5|");
    find_peaks(*finder, spectrum);
    EXPECT_NE(raised([&] { finder->run(nan_ns); }).find("search time"), std::string::npos);
    for (const std::size_t first : {30000U, 110000U}) {
        const double start_ns = spectrum.start_time_ns + static_cast<double>(first);
        find_peaks(*finder, spectrum, {start_ns, start_ns + 800});
        // The median of the window's samples is disturbed by peaks only as far as they cover it.
        std::vector<std::int32_t> samples(&spectrum.counts[first], &spectrum.counts[first + 800]);
        std::ranges::nth_element(samples, samples.begin() + 400);
        EXPECT_NEAR(finder->baseline(), samples[400], 3);
    }
}

TEST(Search, TheSameSamplesGiveTheSamePeaksBitForBitWhateverTheHostsRounding) {
    const auto first = find_peaks(plain_spectrum());
    for (const int rounding : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        std::fesetround(rounding);
        const auto again = find_peaks(plain_spectrum());
        EXPECT_EQ(std::fegetround(), rounding);
        std::fesetround(FE_TONEAREST);
        EXPECT_TRUE(std::ranges::equal(again, first, [](const MeasuredPeak& left, const MeasuredPeak& right) {
            return left.record == right.record && left.uncertainty.centroid == right.uncertainty.centroid;
        }));
    }
}

TEST(Search, RecordsAreWhatTheirDefinitionsSayWithAndWithoutBaselineAndWindowsFindTheSame) {
    const auto finder = make_peak_finder(known_of(plain_set()));
    const auto peaks = find_peaks(*finder, plain_spectrum());
    finder->set_baseline_removal(0);
    const auto on_zero = finder->run(plain_spectrum().start_time_ns);
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        const auto& [record, uncertainty, quality, signal] = peaks[i];
        EXPECT_LT(record.pkStart, record.pkCentroid);
        EXPECT_GT(record.pkEnd, record.pkCentroid);
        EXPECT_NEAR(record.pkApexX, record.pkCentroid, 0.1 * record.pkWidth);
        EXPECT_EQ(record.pkResolution, record.pkCentroid / (2 * record.pkWidth));
        // A Gaussian's area over its height and width, samples of 1 ns.
        const double shape = record.pkArea / (record.pkHeight * record.pkWidth);
        EXPECT_NEAR(shape, 1.0645, 0.1 + 4 * uncertainty.area / record.pkArea + 4 * uncertainty.width / record.pkWidth);
        EXPECT_FALSE(quality.clipped);
        EXPECT_GT(std::min({uncertainty.centroid, uncertainty.height, uncertainty.width, uncertainty.area}), 0);
        const PeakInfo standing = on_zero->GetPeakAttributeInfo(static_cast<std::int32_t>(i), true);
        EXPECT_EQ(standing.pkCentroid, record.pkCentroid);
        EXPECT_NEAR(standing.pkHeight - record.pkHeight, 300, 35);
        const double samples = record.pkEnd - record.pkStart;
        EXPECT_NEAR((standing.pkArea - record.pkArea) / 300, samples, 1.1 + 0.12 * samples);
        if (uncertainty.ions < 10) continue;  // at the edge of what is found
        const auto found =
            find_peaks(plain_spectrum(), known_of(plain_set()), {record.pkCentroid - 5, record.pkCentroid + 5});
        ASSERT_EQ(found.size(), 1U) << record.pkCentroid;
        EXPECT_NEAR(found[0].record.pkCentroid, record.pkCentroid, 0.2 * uncertainty.centroid);
        EXPECT_NEAR(found[0].record.pkHeight, record.pkHeight, 0.4 * uncertainty.height);
    }
}

TEST(Search, ASpikeIsNoPeakAndTheLeastNumberOfSamplesCounts) {
    const auto clean = synthesize_peaks(plain_set(), {{60000, 1000}, {120000, 1000}}, 10000.3, 2);
    auto spiked = clean;
    spiked.counts[30000] = 2000;
    for (const auto& options : {known_of(plain_set()), PeakFinderOptions()}) {
        const auto finder = make_peak_finder(options);
        EXPECT_EQ(find_peaks(*finder, spiked).size(), 2U);
        for (const auto& [samples, number] : {std::pair{1, 3}, {50, 0}}) {
            finder->set_minimum_samples(samples);
            EXPECT_EQ(finder->run(clean.start_time_ns)->count(), number);
        }
    }
}

TEST(Search, CutPeaksAreMeasuredAsWholeOnesAndBelongToTheWindowOfTheirCentroid) {
    SyntheticSet set = accuracy_sets()[2];
    set.samples = 2000;
    set.baseline_drift = 0.01;
    constexpr double time_ns = 60000;
    const auto spectrum = synthesize_peaks(set, {{time_ns, 3000}}, time_ns - 200.1, 5);
    const auto whole = find_peaks(spectrum, known_of(set));
    ASSERT_EQ(whole.size(), 1U);
    const double centroid_ns = whole[0].record.pkCentroid;
    for (const double cut : {0.05, 1.0, -0.05, -2.0}) {
        const double edge_ns = centroid_ns + cut * set.fwhm_ns(time_ns);
        auto kept = find_peaks(spectrum, known_of(set), {time_ns - 30, edge_ns});
        auto other = find_peaks(spectrum, known_of(set), {edge_ns, time_ns + 30});
        if (cut < 0) std::swap(kept, other);
        EXPECT_TRUE(other.empty()) << cut;
        ASSERT_EQ(kept.size(), 1U) << cut;
        EXPECT_NEAR(kept[0].record.pkCentroid, centroid_ns, 0.02 * kept[0].uncertainty.centroid);
        EXPECT_NEAR(kept[0].record.pkArea / whole[0].record.pkArea, 1, 0.002);
    }
    // At the ends of the spectrum they are found from what there is.
    const double sigma_ns = set.sigma_ns(time_ns);
    for (const double start_ns : {time_ns - 0.5 * sigma_ns, time_ns + 0.5 * sigma_ns - 1999 * set.interval_ns}) {
        const auto found = find_peaks(synthesize_peaks(set, {{time_ns, 3000}}, start_ns, 5), known_of(set));
        ASSERT_EQ(found.size(), 1U) << start_ns;
        EXPECT_NEAR(found[0].record.pkCentroid, time_ns, 0.3 * sigma_ns) << start_ns;
    }
}

TEST(Search, HostileSamplesGiveFiniteRecordsOrNone) {
    constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    std::mt19937 random(5);
    for (int variant = 0; variant < 9 * 8; ++variant) {
        const int size = std::array{1, 2, 3, 15, 16, 17, 255, 1025, 5000}[variant / 8];
        std::vector<std::int32_t> samples;
        for (int i = 0; i < size; ++i) {
            const auto drawn = static_cast<std::int32_t>(random());
            const std::int32_t sparse = random() % 7 == 0 ? static_cast<std::int32_t>(random() % 5) : 0;
            samples.push_back(
                std::array{0, 1, least, most, drawn, sparse, i % 2 == 0 ? least : most, i * 1000}[variant % 8]);
        }
        for (const auto& options : {known_of(accuracy_sets()[2]), PeakFinderOptions()}) {
            for (const auto& [record, uncertainty, quality, signal] : find_peaks({samples, 10000, 0.25, {}}, options)) {
                for (std::int32_t position = 0; position < 8; ++position)
                    ASSERT_TRUE(std::isfinite(record.value(position))) << variant;
                ASSERT_TRUE(std::isfinite(uncertainty.centroid) && quality.misfit >= 1);
                ASSERT_GT(record.pkWidth, 0);
            }
        }
    }
}

}  // namespace
}  // namespace korvane
