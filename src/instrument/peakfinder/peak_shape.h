// The shape of a peak on the sampling grid.
#pragma once

#include <numbers>

#include "instrument/peakfinder/search_context.h"

namespace korvane {

/// A Gaussian. Lengths are in samples, positions in samples from the spectrum's first, heights in counts above the
/// baseline.
struct PeakShape {
    double height = 0;
    double centre = 0;
    double sigma = 1;

    double counts() const { return height * sigma * std::sqrt(2 * std::numbers::pi); }
    friend bool operator==(const PeakShape&, const PeakShape&) = default;
};

/// Two samples at a time.
using Pair = double __attribute__((vector_size(16)));

/// h exp(-((i - c) / s)^2 / 2) by recurrence from the sample nearest to the centre, where no rounding error can grow:
/// away from `middle`, where it is `top`, every value is the last one times the step of its side (right, left), and
/// every step the last one times `square_step`.
struct GaussianSteps {
    GaussianSteps(const PeakShape& shape, const SampleRange& range);

    Index middle;
    double distance;  ///< of `middle` from the centre, in sigmas
    double top;
    double square_step;
    Pair step;
};

/// At samples first, first + 1, ...
void gaussian_samples(const PeakShape& shape, Index first, std::span<double> values);

/// What a peak of this sigma about a sample would make of it: over the samples within reach, sums of weight x counts,
/// weight x counts x distance, and weight squared, the weight a Gaussian of height 1.
struct Correlation {
    double sum = 0;
    double moment = 0;
    double square_sum = 0;

    double height() const { return sum / square_sum; }
};
Correlation correlation(std::span<const double> counts, Index centre, double sigma, double reach_sigmas,
                        double pedestal = 0);

/// The samples of a whole peak with late ions whose Gaussian fit is `fitted`, added to `values`: undelayed ions as a
/// Gaussian, the others with an exponential delay of `tail_sigmas` deviations.
void add_late_peak_samples(const PeakShape& fitted, double tail_fraction, Index first, std::span<double> values);

}  // namespace korvane
