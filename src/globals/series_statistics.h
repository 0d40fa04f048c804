// Means, sample standard deviations and mass errors of measured series.
#pragma once

#include <cstddef>
#include <vector>

#include "korvane/mass_time.h"
#include "korvane/variant_array.h"

namespace korvane {

struct SeriesStatistics {
    std::vector<double> means;
    std::vector<double> standard_deviations;  ///< divisor count - 1
};

/// Of every column. Error 11 with fewer than two rows, 6 where a result exceeds a double.
SeriesStatistics column_statistics(const VariantMatrix<double>& values);

/// (measured - expected) / expected x 10^6 of every time (rows: masses, columns: repeats), in the same shape. Error 9
/// unless there is one expected mass a row, 11 for an expected mass of 0.
VariantMatrix<double> mass_errors_ppm(const VariantArray<double>& expected_masses,
                                      const VariantMatrix<double>& times_ns, const MassTimeCalibration& calibration);

VariantMatrix<double> transposed(const VariantMatrix<double>& matrix);

}  // namespace korvane
