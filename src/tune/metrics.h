// What charts and exports know of a calibrant, by number.
#pragma once

#include <array>
#include <limits>

#include "korvane/calibrants.h"

namespace korvane {

struct CalibrantMetric {
    double value, standard_error;  ///< NaN where it is not told
};

/// In the order of `tune_metrics`; of a calibrant that was found.
inline std::array<CalibrantMetric, 4> metrics_of(const MeasuredCalibrant& calibrant) {
    constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
    const PeakUncertainty errors = calibrant.standard_errors.value_or(PeakUncertainty{unknown, unknown, unknown, 0, 0});
    const double resolution = calibrant.amu.pkResolution;
    return {{{calibrant.error_ppm(), errors.centroid * calibrant.ppm_per_ns},
             {calibrant.ns.pkHeight, errors.height},
             {resolution, resolution * errors.width / calibrant.ns.pkWidth},
             {calibrant.quality ? calibrant.quality->misfit : unknown, unknown}}};
}

}  // namespace korvane
