// A Gaussian on the sampling grid.
#pragma once

#include <cstddef>
#include <span>

namespace korvane {

/// Lengths are in samples, positions in samples from the spectrum's first, heights in counts above the baseline.
struct PeakShape {
    double height = 0;
    double centre = 0;
    double sigma = 1;
};

/// h exp(-((i - c) / s)^2 / 2) at samples first, first + 1, ... By recurrence from the sample nearest to the centre,
/// where no rounding error can grow.
void gaussian_samples(const PeakShape& shape, std::ptrdiff_t first, std::span<double> values);

/// The samples of a whole peak with late ions whose Gaussian fit is `fitted`, added to `values`: undelayed ions as a
/// Gaussian, the others with an exponential delay of `tail_sigmas` deviations.
void add_late_peak_samples(const PeakShape& fitted, double tail_fraction, std::ptrdiff_t first,
                           std::span<double> values);

/// Mean delay of the late ions, in standard deviations of the peak.
inline constexpr double tail_sigmas = 1.5;

}  // namespace korvane
