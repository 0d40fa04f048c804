// What the setpoints make of the instrument while a spectrum is acquired.
#pragma once

#include <cstdint>
#include <vector>

#include "instrument/embedded/setpoints.h"
#include "instrument/simulator/scene.h"

namespace korvane::simulation {

struct AcquisitionConditions {
    /// A response that weakens or strengthens ions by their mass.
    struct Transmission {
        const ResponseCurve* curve;
        double value, default_value;
    };

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
    std::vector<Transmission> transmissions;

    /// Ions a spectrum of a peak that gives `reference_ions` at the reference transients and default setpoints.
    double expected_ions(double reference_ions, double mz) const;
    /// Largest sum of 8-bit samples.
    double full_scale() const { return 255.0 * transients; }
};

/// Sampling interval in seconds of a sampling-rate code, 1 to 3.
double sampling_interval_seconds(std::int32_t sampling_rate_code);

/// The polarity is the one in which the spectrum is acquired, whatever the setpoint says.
AcquisitionConditions acquisition_conditions(const Scene& scene, std::int32_t polarity,
                                             const embedded::Setpoints& setpoints);

}  // namespace korvane::simulation
