// Peaks that overlap, that the detector clips, and that the window cuts.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <ostream>

#include "accuracy_score.h"
#include "support/information_bounds.h"

namespace korvane {
namespace {

constexpr double first_peak_ns = 60000;

#ifdef NDEBUG
constexpr int spectra = 200;
#else
constexpr int spectra = 100;
#endif

SyntheticSet short_set() {
    SyntheticSet set = accuracy_sets()[2];
    set.samples = 2000;
    set.baseline_drift = 0.01;
    return set;
}

struct Pair {
    double ions;
    double next_ions;
    double widths_apart;
};

void PrintTo(const Pair& pair, std::ostream* out) {
    *out << pair.ions << " and " << pair.next_ions << " ions, " << pair.widths_apart << " widths apart";
}

class OverlappingPeaks : public testing::TestWithParam<Pair> {};

TEST_P(OverlappingPeaks, DisturbEachOtherLittle) {
    const SyntheticSet set = short_set();
    const double apart_ns = GetParam().widths_apart * set.fwhm_ns(first_peak_ns);
    const std::vector<TruePeak> truth{{first_peak_ns, GetParam().ions, true},
                                      {first_peak_ns + apart_ns, GetParam().next_ions, true}};
    std::array<CalibrantScore, 2> scores;
    int not_two = 0;
    for (int i = 0; i < spectra; ++i) {
        const double start_ns = first_peak_ns - 200 + set.interval_ns * (i % 16) / 16;
        const auto spectrum = synthesize_peaks(set, truth, start_ns, static_cast<std::uint64_t>(i));
        const auto found = find_peaks(spectrum, known_of(set), {first_peak_ns - 20, first_peak_ns + 20});
        not_two += found.size() != 2;
        if (found.size() != 2) continue;
        for (std::size_t k = 0; k < 2; ++k) {
            scores[k].ions = truth[k].ions;
            scores[k].add(set, truth[k], found[k]);
            scores[k].position_bound_variance.add(position_variance_bound_ns2(set, truth[k], start_ns));
        }
        EXPECT_LE(found[0].record.pkEnd, found[1].record.pkStart + 1e-6);
    }
    EXPECT_LE(not_two, 0.08 * spectra);
    const double sigma_ns = set.sigma_ns(first_peak_ns);
    for (const auto& score : scores) {
        SCOPED_TRACE(score.ions);
        // Alone, late ions pull every peak by 0.06 deviations.
        const double chance = score.position_ns.chance_of_mean() / sigma_ns;
        EXPECT_NEAR(score.position_ns.mean() / sigma_ns, 0.06, (GetParam().widths_apart < 2 ? 0.15 : 0.04) + chance);
        const bool close = GetParam().widths_apart < 2;
        EXPECT_LE(score.position_over_bound(), close ? 2.4 : 1.6);  // the bound is that of the peak alone
        EXPECT_NEAR(std::sqrt(score.stated_over_observed_variance()), 1, 0.35);
        EXPECT_NEAR(score.relative_area.mean(), 1, close ? 0.12 : 0.05);
        EXPECT_NEAR(score.relative_width.mean(), 1, close ? 0.12 : 0.05);
    }
}

INSTANTIATE_TEST_SUITE_P(Pairs, OverlappingPeaks,
                         testing::Values(Pair{1000, 1000, 1.5}, Pair{10000, 10000, 1.5}, Pair{1000, 333, 1.5},
                                         Pair{3000, 10000, 1.5}, Pair{10000, 1000, 1.5}, Pair{1000, 100, 2},
                                         Pair{1000, 1000, 2}, Pair{1000, 333, 2}, Pair{333, 1000, 2},
                                         Pair{10000, 1000, 2}, Pair{1000, 100, 3}, Pair{100, 1000, 3},
                                         Pair{10000, 1000, 3}, Pair{1000, 10000, 3}));

TEST(OverlappingPeaks, AreSeparatedAlsoWithoutKnowledgeOfTheWidth) {
    const SyntheticSet set = short_set();
    for (const double widths_apart : {2.0, 3.0}) {
        const double next_ns = first_peak_ns + widths_apart * set.fwhm_ns(first_peak_ns);
        for (int i = 0; i < spectra / 4; ++i) {
            const auto spectrum = synthesize_peaks(set, {{first_peak_ns, 3000, true}, {next_ns, 1000, true}},
                                                   first_peak_ns - 200, static_cast<std::uint64_t>(i));
            EXPECT_EQ(find_peaks(spectrum, {}, {first_peak_ns - 20, first_peak_ns + 20}).size(), 2U);
        }
    }
}

TEST(OverlappingPeaks, AreNotSeenInTheWidePeaksOfADefocusedInstrument) {
    SyntheticSet set = short_set();
    const PeakFinderOptions as_tuned = known_of(set);
    set.detector_fwhm_ns *= 1.5;
    const TruePeak truth{first_peak_ns, 3000, true};
    CalibrantScore score;
    std::size_t extra_peaks = 0;
    for (int i = 0; i < spectra; ++i) {
        const double start_ns = first_peak_ns - 200 + set.interval_ns * (i % 16) / 16;
        const auto spectrum = synthesize_peaks(set, {truth}, start_ns, static_cast<std::uint64_t>(i));
        const auto found = find_peaks(spectrum, as_tuned, {first_peak_ns - 20, first_peak_ns + 20});
        ASSERT_FALSE(found.empty()) << "spectrum " << i;
        extra_peaks += found.size() - 1;
        score.add(set, truth, found.front());
        score.position_bound_variance.add(position_variance_bound_ns2(set, truth, start_ns));
    }
    EXPECT_LE(extra_peaks, spectra / 25U);
    EXPECT_NEAR(score.relative_width.mean(), 1, 0.02);
    EXPECT_LE(score.position_over_bound(), 1.2);
}

TEST(ClippedPeaks, KeepTheirCentroidAndRegainTheirHeight) {
    for (const bool knowing : {true, false}) {
        SyntheticSet set = short_set();
        const TruePeak truth{first_peak_ns, 10000, true};
        const double height = true_height_counts(set, truth);
        set.saturation_counts = std::floor(0.6 * height + set.baseline_counts);
        CalibrantScore score;
        Spread relative_height;
        for (int i = 0; i < spectra; ++i) {
            const double start_ns = first_peak_ns - 200 + set.interval_ns * (i % 16) / 16;
            const auto spectrum = synthesize_peaks(set, {truth}, start_ns, static_cast<std::uint64_t>(i));
            const auto found = find_peaks(spectrum, knowing ? known_of(set) : PeakFinderOptions(),
                                          {first_peak_ns - 20, first_peak_ns + 20});
            ASSERT_EQ(found.size(), 1U) << "spectrum " << i;
            score.add(set, truth, found.front());
            score.position_bound_variance.add(position_variance_bound_ns2(set, truth, start_ns));
            relative_height.add(found.front().record.pkHeight / height);
        }
        EXPECT_LE(score.position_over_bound(), 1.6);  // the bound is that of the peak without the clip
        EXPECT_NEAR(score.position_ns.mean() / set.sigma_ns(first_peak_ns), 0.06, 0.05);
        EXPECT_NEAR(relative_height.mean(), 1, 0.15);  // 0.6 as clipped
    }
}

TEST(CutPeaks, AreMeasuredAsWholeOnesAndBelongToTheWindowOfTheirCentroid) {
    const SyntheticSet set = short_set();
    const TruePeak truth{first_peak_ns, 3000, true};
    const auto spectrum = synthesize_peaks(set, {truth}, first_peak_ns - 200.1, 5);
    const auto whole = find_peaks(spectrum, known_of(set), {first_peak_ns - 30, first_peak_ns + 30});
    ASSERT_EQ(whole.size(), 1U);
    const double centroid_ns = whole.front().record.pkCentroid;
    const double fwhm_ns = set.fwhm_ns(first_peak_ns);
    for (const double cut : {0.05, 0.3, 1.0, 2.0}) {
        const double edge_ns = cut * fwhm_ns;
        for (const bool from_left : {true, false}) {
            const SearchWindow keeps = from_left ? SearchWindow{centroid_ns - edge_ns, first_peak_ns + 30}
                                                 : SearchWindow{first_peak_ns - 30, centroid_ns + edge_ns};
            const SearchWindow loses = from_left ? SearchWindow{centroid_ns + edge_ns, first_peak_ns + 30}
                                                 : SearchWindow{first_peak_ns - 30, centroid_ns - edge_ns};
            const auto kept = find_peaks(spectrum, known_of(set), keeps);
            ASSERT_EQ(kept.size(), 1U) << cut;
            EXPECT_NEAR(kept.front().record.pkCentroid, centroid_ns, 0.02 * kept.front().uncertainty.centroid);
            EXPECT_NEAR(kept.front().record.pkArea / whole.front().record.pkArea, 1, 0.002);
            EXPECT_TRUE(find_peaks(spectrum, known_of(set), loses).empty()) << cut;
        }
    }
}

TEST(CutPeaks, AtTheEndsOfTheSpectrumAreFoundFromWhatThereIs) {
    const SyntheticSet set = short_set();
    const double sigma_ns = set.sigma_ns(first_peak_ns);
    const double length_ns = static_cast<double>(set.samples - 1) * set.interval_ns;
    for (const double inside : {0.5, 1.0, 3.0}) {
        for (const double start_ns :
             {first_peak_ns - inside * sigma_ns, first_peak_ns + inside * sigma_ns - length_ns}) {
            const auto spectrum = synthesize_peaks(set, {{first_peak_ns, 3000, true}}, start_ns, 5);
            const auto found = find_peaks(spectrum, known_of(set));
            ASSERT_EQ(found.size(), 1U) << inside;
            EXPECT_NEAR(found.front().record.pkCentroid, first_peak_ns, 0.3 * sigma_ns) << inside;
        }
    }
}

}  // namespace
}  // namespace korvane
