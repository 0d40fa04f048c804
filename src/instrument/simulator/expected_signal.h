// What the setpoints make of the instrument while a spectrum is acquired, and what is then expected of every peak.
#pragma once

#include <cstddef>
#include <utility>

#include "instrument/embedded/setpoints.h"
#include "instrument/simulator/ion_population.h"
#include "instrument/simulator/scene.h"

namespace korvane::simulation {

struct AcquisitionConditions {
    std::int32_t polarity = 0;
    double sampling_interval_ns = 0;
    std::size_t sample_count = 0;
    std::int32_t transients = 0;
    double counts_per_ion = 0;  ///< summed over the samples
    double resolution_limit = 0;
    double baseline_counts = 0;  ///< a sample, all transients
    double noise_counts = 0;     ///< rms a sample, all transients
    double scan_seconds = 0;     ///< what the transients take
    double ion_factor = 0;       ///< on every ion, apart from the transmissions
    /// Responses that weaken or strengthen ions by their mass, with the values of their setpoints.
    std::vector<std::pair<const ResponseCurve*, double>> transmissions;

    /// Ions a spectrum of a peak that gives `reference_ions` at the reference transients and default setpoints.
    double expected_ions(double reference_ions, double mz) const;
    /// Largest sum of 8-bit samples.
    double full_scale() const { return 255.0 * transients; }
};

/// The polarity is the one in which the spectrum is acquired, whatever the setpoint says.
AcquisitionConditions acquisition_conditions(const Scene& scene, std::int32_t polarity,
                                             const embedded::Setpoints& setpoints);

/// Where the undelayed part of a peak lies, ns.
struct PeakPlace {
    double centre_ns = 0;
    double arrival_sigma_ns = 0;  ///< spread of the arrival times
    double total_sigma_ns = 0;
};

/// FWHM^2 = (t / 2R)^2 + detector^2. Flight times are longer by `time_factor`.
PeakPlace peak_place(double flight_time_ns, double time_factor, double resolution_limit, const PeakShapeSetup& setup);

/// The shape of a peak in flight time, in units of its standard deviation: a Gaussian of which a part is delayed by an
/// exponential.
class PeakShape {
public:
    static constexpr double first = -6.5;

    /// `tail_fraction` of the ions are delayed by an exponential of mean `tail_length` sigmas.
    PeakShape(double tail_fraction, double tail_length);

    /// Density at x sigmas from the centre of the undelayed peak; its integral is 1. Zero outside first to last().
    double density(double x) const {
        const double position = (x - first) * nodes_per_sigma;
        if (!(position >= 0.0) || position >= static_cast<double>(nodes_.size() - 1)) return 0.0;
        const auto node = static_cast<std::size_t>(position);
        const double share = position - static_cast<double>(node);
        return nodes_[node] + share * (nodes_[node + 1] - nodes_[node]);
    }
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
    std::size_t first_sample = 0;
    std::vector<double> samples;  ///< expected ions of each, from the first on
};

/// How the time axis of a spectrum lies over the ions' flight times.
struct SpectrumTiming {
    double start_time_ns = 0;
    double time_factor = 1;  ///< flight times are longer by this, from mass drift
};

/// Of the peaks that reach into the spectrum.
std::vector<ExpectedPeak> expected_peaks(const IonPeaks& peaks, const Scene& scene, const PeakShape& shape,
                                         const AcquisitionConditions& conditions, const SpectrumTiming& timing);

}  // namespace korvane::simulation
