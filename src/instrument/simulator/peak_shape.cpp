#include "instrument/simulator/peak_shape.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "instrument/simulator/portable_math.h"
#include "korvane/peak_finder.h"

namespace korvane::simulation {

PeakWidth peak_width(double flight_time_ns, double resolution_limit, double detector_width_ns) {
    PeakWidth width;
    width.arrival_sigma_ns = flight_time_ns / (2.0 * resolution_limit) / fwhm_per_sigma;
    width.detector_sigma_ns = detector_width_ns / fwhm_per_sigma;
    width.total_sigma_ns =
        std::sqrt(width.arrival_sigma_ns * width.arrival_sigma_ns + width.detector_sigma_ns * width.detector_sigma_ns);
    return width;
}

// The delayed part g, a Gaussian convolved with exp(-x / length) / length, solves length g' = N - g; one step of the
// fourth-order Runge-Kutta rule a node.
PeakShape::PeakShape(double tail_fraction, double tail_length) {
    const double tail_end = tail_fraction > 0.0 ? 7.0 + 20.0 * tail_length : 7.0;
    const auto count = static_cast<std::size_t>((tail_end - first()) * nodes_per_sigma) + 1;
    const double step = 1.0 / nodes_per_sigma;
    nodes_.resize(count);
    double delayed = 0.0;
    double undelayed = normal_density(first());
    for (std::size_t i = 0; i < count; ++i) {
        nodes_[i] = (1.0 - tail_fraction) * undelayed + tail_fraction * delayed;
        const double x = first() + static_cast<double>(i) * step;
        const double middle = normal_density(x + 0.5 * step);
        const double end = normal_density(x + step);
        const double k1 = (undelayed - delayed) / tail_length;
        const double k2 = (middle - (delayed + 0.5 * step * k1)) / tail_length;
        const double k3 = (middle - (delayed + 0.5 * step * k2)) / tail_length;
        const double k4 = (end - (delayed + step * k3)) / tail_length;
        delayed += step / 6.0 * (k1 + 2.0 * k2 + 2.0 * k3 + k4);
        undelayed = end;
    }
    largest_beyond_.assign(nodes_.begin() + static_cast<std::ptrdiff_t>(-first() * nodes_per_sigma), nodes_.end());
    for (std::size_t i = largest_beyond_.size(); i-- > 1;)
        largest_beyond_[i - 1] = std::max(largest_beyond_[i - 1], largest_beyond_[i]);
}

double PeakShape::reach(double density_limit) const {
    const auto below = std::ranges::partition_point(largest_beyond_, [=](double d) { return d >= density_limit; });
    const auto nodes_within = std::max<std::ptrdiff_t>(below - largest_beyond_.begin(), 1);
    return static_cast<double>(nodes_within) / nodes_per_sigma;
}

}  // namespace korvane::simulation
