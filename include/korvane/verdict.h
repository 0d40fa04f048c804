// Verdicts: what is wrong with a calibrant, by limits that the base folder states.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "korvane/calibrants.h"
#include "korvane/platform.h"

namespace korvane {

/// Limits of a healthy calibrant. Those of the file "TuneLimits.json" in the base folder (JSON with // comments); the
/// values here where it says nothing.
struct TuneLimits {
    double mass_error_ppm = 5;                   ///< most, to either side, beyond what chance does (3 standard errors)
    double resolution = 8000;                    ///< least, m / FWHM
    double height = 0;                           ///< least, counts; see `read_tune_limits`
    double part_of_reference = 0.3;              ///< least part of a reference height
    double misfit = 4;                           ///< most, of the peak shape: root of chi-square per degree of freedom
    std::map<double, double> reference_heights;  ///< counts by m/z, of a healthy tune
};

/// Reads the limits. Without a height it is `RampParams/MinimumAcceptableAbundance` of the tune parameters, whose
/// errors this then has. Errors, of the kind `configuration`: -904 naming the file, and the key where one is unknown,
/// is no number or is not above 0.
KORVANE_API TuneLimits read_tune_limits(const Platform& platform);

/// In the order of looking: the first that holds is the verdict.
enum class CalibrantState { missing, off_mass, clipped, low, broad, misshapen, ok };
KORVANE_API const char* name_of(CalibrantState state) noexcept;

struct CalibrantVerdict {
    CalibrantState state = CalibrantState::ok;
    double value = 0;  ///< the number that decided, in the unit of its limit; 0 for ok, missing and clipped
    double limit = 0;
    std::string text;  ///< "low: height 620 below 5000"; "ok" alone
};

KORVANE_API CalibrantVerdict verdict_of(const MeasuredCalibrant& calibrant, const TuneLimits& limits);

}  // namespace korvane
