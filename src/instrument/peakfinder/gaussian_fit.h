// Weighted fit of one peak's height, centre and width.
#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <span>
#include <vector>

#include "instrument/peakfinder/gaussian_samples.h"
#include "instrument/peakfinder/matrix3.h"

namespace korvane {

/// Marks a sample at the detector's limit, which says nothing about the peak.
inline constexpr double saturated = std::numeric_limits<double>::infinity();

/// What a peak is fitted to: counts above the baseline of samples first, first + 1, ..., or `saturated`.
struct PeakSamples {
    std::ptrdiff_t first = 0;
    std::span<const double> above;
    /// Part of `above` that neighbouring peaks make; empty or as long as `above`.
    std::span<const double> others;
};

struct FitConditions {
    double noise = 1;         ///< standard deviation of a sample without ions, counts
    double ion_variance = 1;  ///< variance of a sum of counts, per count, that the ions make
    /// Standard deviation of the pulse of one ion, samples; 0 where every sample has ions of its own.
    double pulse_sigma = 0;
    double tail_fraction = 0;       ///< part of the ions that come late
    double tail_pulse_part = 0;     ///< of the pulse's variance in what their delay goes by
    double expected_sigma = 1;      ///< samples
    double expected_spread = 0.05;  ///< relative standard deviation of a peak's width about the expected one
};

struct PeakFit {
    PeakShape shape;       ///< with the width drawn towards the expected one as far as the peak's own data are weak
    double own_sigma = 0;  ///< width by the peak's own data, samples
    /// Standard errors: height and own width relative, centre in samples.
    double height_error = 0;
    double centre_error = 0;
    double sigma_error = 0;
    bool valid = false;
};

/// Reach of the fit about the centre, in standard deviations.
inline constexpr double fit_reach = 4;

/// Gaussian least squares with weights 1 / (variance + a part of the height), which is within 2 % of the information
/// bound for the centre also where a few percent of the ions come late: the added part keeps the ends of the peak from
/// counting as much as their few ions would deserve on a peak without such a tail.
class GaussianFitter {
public:
    PeakFit fit(const PeakSamples& samples, const PeakShape& start, const FitConditions& conditions);

private:
    /// Over the samples, with u = (i - c) / s, m the model and w the weight: w m^2 u^k, w m u^k (sample - m), and
    /// w^2 m^2 u^k x variance of the sample where every sample has its own.
    struct Sums {
        std::array<double, 5> information{};
        Vector3 residual{};
        std::array<double, 5> variance{};
    };
    /// The stretch of samples within reach of the peak.
    struct Reach {
        std::size_t offset = 0;
        std::size_t count = 0;
        double first_distance = 0;  // u of its first sample
    };

    Reach model_peak(const PeakSamples& samples, const PeakShape& shape);
    template <bool with_scatter>
    Sums accumulate(const PeakSamples& samples, const PeakShape& shape, const FitConditions& conditions);
    bool approach(const PeakSamples& samples, const FitConditions& conditions, double spread, PeakShape& shape);
    bool conclude(const PeakSamples& samples, const FitConditions& conditions, double spread, PeakFit& fit);
    Matrix3 scatter(const PeakSamples& samples, const PeakShape& shape, const FitConditions& conditions,
                    const Sums& sums) const;

    std::vector<double> model_;
    std::vector<double> influence_;  // of the samples within reach on the sums, for pulses
};

}  // namespace korvane
