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
        const Basis basis{calibration.coefficients(), start_time_ns, sampling_interval_ns, sample_count};
        if (basis == basis_) return masses_;
        std::vector<double> times(sample_count);
        for (std::size_t i = 0; i < sample_count; ++i)
            times[i] = start_time_ns + static_cast<double>(i) * sampling_interval_ns;
        masses_ = calibration.masses_from_times(times);
        basis_ = basis;
        return masses_;
    }

private:
    struct Basis {
        CalibrationCoefficients coefficients;
        double start_time_ns = -1, sampling_interval_ns = -1;
        std::size_t sample_count = 0;
        friend bool operator==(const Basis&, const Basis&) = default;
    };

    VariantArray<double> masses_;
    Basis basis_;
};

}  // namespace korvane::simulation
