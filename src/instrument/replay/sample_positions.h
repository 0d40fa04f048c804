// Where the samples of an m/z axis lie on the flight-time axis of a calibration.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "korvane/mass_time.h"

namespace korvane::replay {

/// Flight times origin + k x interval.
struct TimeScale {
    double origin_ns = 0;
    double interval_ns = 0;
};

/// How far from its law a sample may lie, in steps.
inline constexpr double largest_deviation_steps = 0.01;

struct SamplePositions {
    std::vector<std::int64_t> steps;  ///< k of every sample
    double worst_deviation_steps = 0;
    std::size_t worst_sample = 0;

    bool met() const { return worst_deviation_steps <= largest_deviation_steps; }
};

/// Puts every m/z at the nearest sampling time of `scale` under `calibration`. The deviation is that in mass, over the
/// mass step there; an axis whose numbers are all 32-bit floats is granted their rounding on top. Infinite where
/// positions do not ascend or a mass has no flight time. Ends at the first sample that is not met.
SamplePositions locate_samples(std::span<const double> mz, const MassTimeCalibration& calibration,
                               const TimeScale& scale);

}  // namespace korvane::replay
