// How a flight time moves a mass.
#pragma once

#include "korvane/mass_time.h"

namespace korvane {

/// Relative change of the mass with the flight time, by a symmetric difference of 1 ns.
inline double ppm_per_ns(const MassTimeCalibration& calibration, double time_ns) {
    const double difference = calibration.mass_from_time(time_ns + 0.5) - calibration.mass_from_time(time_ns - 0.5);
    return difference / calibration.mass_from_time(time_ns) * 1e6;
}

}  // namespace korvane
