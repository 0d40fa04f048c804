// What is expected of every peak under the present conditions; kept between spectra while nothing changes.
#pragma once

#include <cstddef>
#include <vector>

#include "instrument/simulator/acquisition_conditions.h"
#include "instrument/simulator/ion_population.h"
#include "instrument/simulator/scene.h"

namespace korvane::simulation {

/// Standard deviations of the undelayed peak, ns.
struct PeakWidth {
    double arrival_sigma_ns = 0;  ///< spread of the arrival times
    double total_sigma_ns = 0;
};

/// FWHM^2 = (t / 2R)^2 + detector^2.
PeakWidth peak_width(double flight_time_ns, double resolution_limit, double detector_width_ns);

/// The shape of a peak in flight time, in units of its standard deviation: a Gaussian of which a part is delayed by an
/// exponential.
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

/// One peak on the sample axis.
struct ExpectedPeak {
    double centre_samples = 0;  ///< centre of the undelayed peak; sample 0 is at 0
    double arrival_sigma_samples = 0;
    double total_sigma_samples = 0;
    double ions = 0;
    std::size_t first_sample = 0;  ///< where its samples begin
    std::size_t first_value = 0;   ///< their place in the two arrays of `ExpectedSignal`
    std::size_t sample_count = 0;
};

struct ExpectedSignal {
    std::vector<ExpectedPeak> peaks;
    double detector_sigma_samples = 0;
    // For each sample of each peak: the expected number of ions, and the probability that none comes (where that
    // number is below 10).
    std::vector<double> ions;
    std::vector<double> zero_probabilities;
};

/// How the time axis of a spectrum lies over the ions' flight times.
struct SpectrumTiming {
    double start_time_ns = 0;
    double time_factor = 1;  ///< flight times are longer by this, from mass drift
    friend bool operator==(const SpectrumTiming&, const SpectrumTiming&) = default;
};

/// Where a peak lies: the centre of its undelayed part, ns.
double peak_centre_ns(const IonPeak& peak, double total_sigma_ns, const PeakShapeSetup& setup, double time_factor);

ExpectedSignal expected_signal(const IonPeaks& peaks, const Scene& scene, const PeakShape& shape,
                               const AcquisitionConditions& conditions, const SpectrumTiming& timing);

}  // namespace korvane::simulation
