// The shape of a peak in flight time, in units of its standard deviation: a Gaussian of which a part is delayed by an
// exponential.
#pragma once

#include <vector>

#include "instrument/simulator/scene.h"

namespace korvane::simulation {

/// Standard deviations of the undelayed peak, ns.
struct PeakWidth {
    double arrival_sigma_ns = 0;   ///< spread of the arrival times
    double detector_sigma_ns = 0;  ///< width of the pulse that one ion makes
    double total_sigma_ns = 0;
};

/// FWHM^2 = (t / 2R)^2 + detector^2.
PeakWidth peak_width(double flight_time_ns, double resolution_limit, double detector_width_ns);

class PeakShape {
public:
    /// `tail_fraction` of the ions are delayed by an exponential of mean `tail_length` sigmas.
    PeakShape(double tail_fraction, double tail_length);

    /// Density at x sigmas from the centre of the undelayed peak; its integral is 1. Zero outside first() to last().
    double density(double x) const {
        const double position = (x - first()) * nodes_per_sigma;
        if (!(position >= 0.0) || position >= static_cast<double>(nodes_.size() - 1)) return 0.0;
        const auto node = static_cast<std::size_t>(position);
        const double share = position - static_cast<double>(node);
        return nodes_[node] + share * (nodes_[node + 1] - nodes_[node]);
    }
    static constexpr double first() { return -6.5; }
    double last() const { return first() + static_cast<double>(nodes_.size() - 1) / nodes_per_sigma; }
    /// Where, beyond the centre, the density has fallen below `density_limit` for good.
    double reach(double density_limit) const;

private:
    static constexpr int nodes_per_sigma = 256;
    std::vector<double> nodes_;
    std::vector<double> largest_beyond_;  // from the centre on, the largest node there or farther out
};

}  // namespace korvane::simulation
