// The peak finder against the information bounds, on spectra of known truth.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <ostream>
#include <tuple>

#include "accuracy_score.h"
#include "support/information_bounds.h"

namespace korvane {
namespace {

#ifdef NDEBUG
constexpr int spectra = 100;
constexpr int single_peaks = 400;
#else
constexpr int spectra = 25;
constexpr int single_peaks = 200;
#endif

/// What chance adds to a ratio of spreads: so many standard deviations of an estimate from `samples` values.
double chance(double deviations, double samples) {
    return 1 + deviations / std::sqrt(2 * (samples - 1));
}

struct Case {
    std::size_t set;
    bool knowing;
    SearchBy by;
};

void PrintTo(const Case& test_case, std::ostream* out) {
    *out << accuracy_sets()[test_case.set].name << (test_case.knowing ? " knowing" : " unknowing")
         << (test_case.by == SearchBy::Windows ? " windows" : "");
}

/// The score of a case, made once.
const AccuracyScore& score_of(const Case& test_case) {
    static std::map<std::tuple<std::size_t, bool, SearchBy>, AccuracyScore> scores;
    const auto [place, fresh] = scores.try_emplace({test_case.set, test_case.knowing, test_case.by});
    if (fresh) {
        const SyntheticSet& set = accuracy_sets()[test_case.set];
        place->second = score(set, test_case.knowing ? known_of(set) : PeakFinderOptions(), test_case.by, spectra);
    }
    return place->second;
}

class SetAccuracy : public testing::TestWithParam<Case> {
protected:
    const SyntheticSet& set_ = accuracy_sets()[GetParam().set];
    const AccuracyScore& score_ = score_of(GetParam());
};

TEST_P(SetAccuracy, CalibrantsComeNearTheBoundsAndNothingElseIsFound) {
    for (const auto& calibrant : score_.calibrants) {
        SCOPED_TRACE(calibrant.ions);
        EXPECT_EQ(calibrant.missed, 0);
        const double limit = calibrant.ions >= 1000 ? 1.15 : 1.5;
        EXPECT_LE(calibrant.position_over_bound(), spectra >= 100 ? limit : limit * chance(2, spectra));
    }
    EXPECT_LE(score_.geometric_mean_position(), spectra >= 100 ? 1.08 : 1.08 * chance(2, 10 * spectra));
    if (GetParam().by == SearchBy::Windows) return;
    EXPECT_LE(score_.false_peaks, 1);
    EXPECT_GE(score_.background_found, 0.98);
}

TEST_P(SetAccuracy, WidthAndAreaOfStrongPeaksAreNeitherBiasedNorScattered) {
    // Pulses of random height carry less than a whole ion's worth of information each.
    const double height_spread = set_.statistics == IonStatistics::Pulse ? set_.pulse_height_spread : 0;
    const double area_limit = 1.05 * std::hypot(1, height_spread);
    const bool windows = GetParam().by == SearchBy::Windows;
    double width_squares = 0;
    double area_squares = 0;
    double strong = 0;
    for (const auto& calibrant : score_.calibrants) {
        if (calibrant.ions < 1000) continue;
        SCOPED_TRACE(calibrant.ions);
        // One peak of a window has to tell its late ions as well: 0.9 % is left, and the chance of a hundred spectra.
        const double granted = spectra < 100 ? 1 : windows ? 0.5 : 0;
        EXPECT_NEAR(calibrant.relative_width.mean(), 1, 0.01 + granted * calibrant.relative_width.chance_of_mean());
        const double area_chance = spectra < 100 ? calibrant.relative_area.chance_of_mean() : 0;
        EXPECT_NEAR(calibrant.relative_area.mean(), 1, 0.01 + area_chance);
        EXPECT_LE(calibrant.width_over_bound(), 1.10 * chance(2.5, spectra));
        EXPECT_LE(calibrant.area_over_bound(), area_limit * chance(2.5, spectra));
        width_squares += std::pow(calibrant.width_over_bound(), 2);
        area_squares += std::pow(calibrant.area_over_bound(), 2);
        strong += 1;
    }
    // One number from a hundred spectra is good to 7 %, all of them together to 3 %.
    const double slack = spectra >= 100 ? 1 : chance(2, strong * spectra);
    EXPECT_LE(std::sqrt(width_squares / strong), 1.10 * slack);
    EXPECT_LE(std::sqrt(area_squares / strong), area_limit * slack);
}

TEST_P(SetAccuracy, StatedErrorsAreThoseObserved) {
    const double slack = spectra >= 100 ? 0 : 2 / std::sqrt(20.0 * (spectra - 1));
    EXPECT_NEAR(score_.stated_over_observed(), 1, 0.15 + slack);
}

INSTANTIATE_TEST_SUITE_P(Sets, SetAccuracy,
                         testing::Values(Case{0, true, SearchBy::WholeSpectrum}, Case{1, true, SearchBy::WholeSpectrum},
                                         Case{2, true, SearchBy::WholeSpectrum}, Case{3, true, SearchBy::WholeSpectrum},
                                         Case{0, false, SearchBy::WholeSpectrum},
                                         Case{1, false, SearchBy::WholeSpectrum},
                                         Case{2, false, SearchBy::WholeSpectrum},
                                         Case{3, false, SearchBy::WholeSpectrum}, Case{0, false, SearchBy::Windows},
                                         Case{1, false, SearchBy::Windows}, Case{2, false, SearchBy::Windows},
                                         Case{3, false, SearchBy::Windows}));

/// One peak alone, at sub-sample phases all over, so many samples a width.
struct SinglePeak {
    double samples_per_width;
    double ions;
    double tail_fraction;
    double noise_ions;
};

void PrintTo(const SinglePeak& peak, std::ostream* out) {
    *out << peak.samples_per_width << " samples a width, " << peak.ions << " ions, " << 100 * peak.tail_fraction
         << " % late, noise of " << peak.noise_ions << " ions";
}

SyntheticSet set_of(const SinglePeak& peak) {
    SyntheticSet set = accuracy_sets()[2];
    set.samples = 1500;
    set.resolution_limit = 1e9;
    set.detector_fwhm_ns = peak.samples_per_width * set.interval_ns;
    set.tail_fraction = peak.tail_fraction;
    set.baseline_drift = 0.002;
    set.saturation_counts = 1e9;
    set.noise_counts = peak.noise_ions * set.counts_per_ion;
    return set;
}

class SinglePeakAccuracy : public testing::TestWithParam<SinglePeak> {};

TEST_P(SinglePeakAccuracy, AnySamplingAndAnyNoiseComesNearTheBounds) {
    const SyntheticSet set = set_of(GetParam());
    const TruePeak truth{10187.5, GetParam().ions, true};
    CalibrantScore score;
    score.ions = truth.ions;
    int extra_peaks = 0;
    for (int i = 0; i < single_peaks; ++i) {
        const double start_ns = 10000 + set.interval_ns * (i % 16) / 16;
        const auto spectrum = synthesize_peaks(set, {truth}, start_ns, static_cast<std::uint64_t>(i));
        const auto found = find_peaks(spectrum, known_of(set), {truth.time_ns - 5, truth.time_ns + 5});
        ASSERT_FALSE(found.empty()) << "spectrum " << i;
        extra_peaks += static_cast<int>(found.size()) - 1;
        const auto higher = [](const FoundPeak& a, const FoundPeak& b) {
            return a.record.pkHeight < b.record.pkHeight;
        };
        score.add(set, truth, *std::max_element(found.begin(), found.end(), higher));
        if (i >= 16) continue;
        score.position_bound_variance.add(position_variance_bound_ns2(set, truth, start_ns));
        score.width_bound_variance.add(relative_width_variance_bound(set, truth, start_ns));
    }
    EXPECT_LE(extra_peaks, 0.015 * single_peaks);
    EXPECT_LE(score.position_over_bound(), 1.03 * chance(3, single_peaks));
    EXPECT_NEAR(std::sqrt(score.stated_over_observed_variance()), 1, 0.1 + chance(3, single_peaks) - 1);
    EXPECT_NEAR(score.relative_width.mean(), 1, 0.01 + score.relative_width.chance_of_mean());
    EXPECT_LE(score.width_over_bound(), 1.10 * chance(2, single_peaks));
    EXPECT_NEAR(score.relative_area.mean(), 1, 0.005 + score.relative_area.chance_of_mean());
}

INSTANTIATE_TEST_SUITE_P(Samplings, SinglePeakAccuracy,
                         testing::Values(SinglePeak{1.6, 1000, 0, 0.22}, SinglePeak{1.6, 10000, 0.08, 0.22},
                                         SinglePeak{2, 100, 0.08, 0.22}, SinglePeak{3.2, 10000, 0, 0.22},
                                         SinglePeak{6.4, 100, 0, 2}, SinglePeak{6.4, 1000, 0.08, 2},
                                         SinglePeak{8, 100, 0.08, 0.22}, SinglePeak{8, 10000, 0.08, 0.22}));

TEST(LonePeaks, OfFewIonsASampleAreTakenForOneOfTheirWidth) {
    // One sample at the top of such a peak can hold twice as many ions as its neighbours.
    SyntheticSet set = accuracy_sets()[2];
    set.samples = 1600;
    set.baseline_drift = 0.005;
    int wrong = 0;
    for (const double time_ns : {40000.0, 75000.0, 130000.0}) {
        const TruePeak truth{time_ns, 300, true};
        for (int i = 0; i < single_peaks; ++i) {
            const auto spectrum = synthesize_peaks(set, {truth}, time_ns - 200, static_cast<std::uint64_t>(i));
            const auto found = find_peaks(spectrum, {}, {time_ns - 40, time_ns + 40});
            wrong += found.size() != 1 || std::abs(found[0].record.pkWidth / true_fwhm_ns(set, truth) - 1) > 0.3;
        }
    }
    EXPECT_LE(wrong, 1);
}

}  // namespace
}  // namespace korvane
