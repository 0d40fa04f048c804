// Recovers the mass-time law of an m/z axis.
#pragma once

#include <memory>
#include <optional>
#include <span>

#include "instrument/masstime/square_law_calibration.h"
#include "instrument/replay/recording_fault.h"
#include "instrument/replay/sample_positions.h"

namespace korvane::replay {

/// What is known of the flight times from elsewhere.
struct KnownTimes {
    std::optional<double> first_sample_ns;
    std::optional<double> interval_ns;
};

struct AxisFit {
    std::shared_ptr<const SquareLawCalibration> calibration;
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
/// Fails at `place` naming the deviation when six terms are not enough, and for fewer than three samples.
AxisFit fit_axis(std::span<const double> mz, const KnownTimes& known, const RecordingPlace& place);

}  // namespace korvane::replay
