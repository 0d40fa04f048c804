// Search of a setpoint for a target abundance that knows the noise of its readings.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "korvane/platform.h"

namespace korvane {

struct SecantRequest {
    std::int32_t setpoint = 0;  ///< index
    double mz = 0;
    double target = 0;  ///< counts at the number of transients on entry, above 0
    /// Half width, relative to the target, in which the abundance at the value found is to lie.
    double relative_tolerance = 0.05;
    bool lower_value_reduces_abundance = true;
    std::optional<double> low = {}, high = {};  ///< the setpoint's limits where not given
    std::optional<double> resolution = {};      ///< the setpoint's where not given
};

struct SecantProbe {
    double value = 0;           ///< of the setpoint
    double transients = 0;      ///< that the reading took
    double abundance = 0;       ///< scaled to the number of transients on entry; 0 without a peak
    double standard_error = 0;  ///< of `abundance`
};

struct SecantOutcome {
    enum class End { within_tolerance, resolution_reached, no_signal, out_of_reach, wrong_direction };
    End end = End::no_signal;
    double value = 0;           ///< that the setpoint has afterwards: as on entry but for the first two ends
    double abundance = 0;       ///< expected there, at the number of transients on entry
    double standard_error = 0;  ///< of `abundance`
    std::vector<SecantProbe> probes;
};

/// Whether the setpoint has a value that was searched for.
inline bool is_reached(SecantOutcome::End end) noexcept {
    return end == SecantOutcome::End::within_tolerance || end == SecantOutcome::End::resolution_reached;
}

/// "within tolerance", "resolution reached", "no signal at this mass", "out of reach", "wrong direction".
KORVANE_API const char* name_of(SecantOutcome::End end) noexcept;

/// A secant through the logarithms of the readings, each weighted by its standard error. A bound moves only to a
/// reading that lies on its side of the target by two standard errors; the search ends when the crossing is known to
/// half the tolerance, or to the setpoint's resolution, and takes more transients, up to the number on entry, where the
/// noise of a reading forbids that. The number of transients is put back on every way out, the setpoint's value on
/// every one but success. `on_probe` is called after every reading. Errors: 5 for a request that means nothing (a
/// target, tolerance or resolution not above 0, bounds that are none or beyond the setpoint's limits); those of
/// `SpectrumParser::GetPeakInfoForCalibrantMasses` and `TuneGlobals::SetMSSetpointValueByIdx`.
KORVANE_API SecantOutcome adjust_by_secant(const Platform& platform, const SecantRequest& request,
                                           const std::function<void(const SecantProbe&)>& on_probe = {});

}  // namespace korvane
