// The mass axis, computed once for as long as nothing that it depends on changes.
#pragma once

#include <cstddef>

#include "korvane/mass_time.h"

namespace korvane::simulation {

class MassAxis {
public:
    /// Masses of the samples; copies share storage.
    const VariantArray<double>& masses(const MassTimeCalibration& calibration, double start_time_ns,
                                       double sampling_interval_ns, std::size_t sample_count) {
        const CalibrationCoefficients coefficients = calibration.coefficients();
        const bool same = coefficients == coefficients_ && start_time_ns == start_time_ns_ &&
                          sampling_interval_ns == sampling_interval_ns_ && sample_count == masses_.size();
        if (same) return masses_;
        masses_.clear();
        std::vector<double> times(sample_count);
        for (std::size_t i = 0; i < sample_count; ++i)
            times[i] = start_time_ns + static_cast<double>(i) * sampling_interval_ns;
        masses_ = calibration.masses_from_times(times);
        coefficients_ = coefficients;
        start_time_ns_ = start_time_ns;
        sampling_interval_ns_ = sampling_interval_ns;
        return masses_;
    }

private:
    VariantArray<double> masses_;
    CalibrationCoefficients coefficients_;
    double start_time_ns_ = -1;
    double sampling_interval_ns_ = -1;
};

}  // namespace korvane::simulation
