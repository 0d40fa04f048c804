// Counts the sampling steps of an m/z axis and recovers its mass-time law.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "instrument/replay/recording.h"

namespace korvane::replay {

/// Position of every sample, counted in sampling steps from the first one, 0. `roots` are the square roots of the m/z,
/// ascending, at least two; by the square law they lie almost evenly, with holes where samples were left out. The steps
/// of a hole follow from the neighbourhood, where the number of steps is a smooth function of the root; holes whose
/// number is certain are counted first and make the neighbourhood of the others larger. An axis that is not even gives
/// positions that no law meets: the caller checks. Holes longer than `limit` steps count as `limit`.
std::vector<std::int64_t> count_steps(std::span<const double> roots, std::int64_t limit);

/// Flight times origin + k x interval.
struct TimeScale {
    double origin_ns = 0;
    double interval_ns = 0;
};

/// How far from its law a sample may lie, in steps, for the law to be met, and for it to tell the samples apart at all.
inline constexpr double largest_deviation_steps = 0.01;
inline constexpr double largest_misfit_steps = 0.4;

struct SamplePositions {
    std::vector<std::int64_t> steps;  ///< k of every sample
    double worst_deviation_steps = 0;
    std::size_t worst_sample = 0;

    bool met(double limit_steps = largest_deviation_steps) const { return worst_deviation_steps <= limit_steps; }
};

/// Puts every m/z at the nearest sampling time of `scale` under `calibration`. The deviation is that in mass, over the
/// mass step there; an axis whose numbers are all 32-bit floats is granted their rounding on top. Infinite where
/// positions do not ascend or a mass has no flight time. Ends at the first sample that lies farther off than the limit.
SamplePositions locate_samples(std::span<const double> mz, const MassTimeCalibration& calibration,
                               const TimeScale& scale, double limit_steps = largest_deviation_steps);

/// What is known of the flight times from elsewhere.
struct KnownTimes {
    std::optional<double> first_sample_ns;
    std::optional<double> interval_ns;
};

struct AxisFit {
    std::shared_ptr<const MassTimeCalibration> calibration;
    TimeScale scale;
    SamplePositions positions;
};

/// Fits m = (A (t - B))^2 to an axis whose samples are evenly spaced in time, and adds polynomial terms c t^p (p out of
/// 0 and 3 to 8, each time the one that helps most) until every sample is met (`SamplePositions::met`) by the
/// calibration returned, to which the positions refer.
///
/// An axis alone has no time scale. Where the interval is not known it is the slowest of 1, 0.5 and 0.25 ns (the
/// digitiser's 1, 2 and 4 GHz) that keeps the last sample within 150 us; where the first flight time is not known it is
/// the one that gives a straight line through the square roots the offset B = 0.
///
/// Where six terms are not enough the nearest law is returned as long as it tells the samples apart
/// (`largest_misfit_steps`); else, and for fewer than three samples, it fails at `place` naming the deviation.
AxisFit fit_axis(std::span<const double> mz, const KnownTimes& known, const RecordingPlace& place);

}  // namespace korvane::replay
