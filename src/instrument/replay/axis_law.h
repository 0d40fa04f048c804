// The least-squares fit of a mass-time law with given powers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "instrument/masstime/square_law_calibration.h"

namespace korvane::replay {

struct AxisPoint {
    double time_ns = 0;
    double mz = 0;
};

/// Powers that a law may have beside the square; 1 and 2 are A and B.
inline constexpr std::int32_t axis_powers[] = {0, 3, 4, 5, 6, 7, 8};
inline constexpr std::size_t largest_axis_power = 8;
inline constexpr std::size_t largest_term_count = 6;  // coefficients C to H

struct AxisLaw {
    std::shared_ptr<const SquareLawCalibration> calibration;  ///< null where the fit fails
    double root_mean_square_ns = 0;                           ///< residual in mass over the slope of the law
};

/// Fits A, B and the coefficients of `powers` (ascending) to `points`, weighted by one over the slope, so that all
/// deviations in time count alike. Times are scaled to the last one and the columns orthogonalised: the powers of
/// narrow axes are nearly alike.
AxisLaw fit_axis_law(std::span<const AxisPoint> points, const std::vector<std::int32_t>& powers);

}  // namespace korvane::replay
