#include "spectrum/session.h"

#include <cfloat>
#include <cmath>

#include "korvane/system.h"

namespace korvane {

Session::Session(const Platform& world)
    : platform(world),
      trace(world.tracers),
      instrument(world.instrument),
      tune(world),
      params(world),
      prefs(world),
      abort(world) {}

InstrumentControl& Session::control() const {
    InstrumentControl* connected = instrument->control();
    if (!connected) raise_runtime_fault(error_number::object_not_set, "instrument control");
    return *connected;
}

CalibrationObject Session::calibration_of_current_polarity() const {
    const Segments segments = current_segments();
    const std::int32_t polarity = CurrentSetpoints(instrument, segments).is_positive() ? contract::polarity.positive
                                                                                       : contract::polarity.negative;
    CalibrationObject calibration = instrument->calibrations().calibration(polarity);
    if (!calibration) raise_runtime_fault(error_number::object_not_set, "mass-time calibration");
    return calibration;
}

void Session::raise_if_aborted() {
    if (abort.UserHasClickedAbort()) throw Error(error_number::user_aborted, "", "User aborted");
}

double checked_quotient(double value, double divisor) {
    if (divisor == 0) raise_runtime_fault(error_number::division_by_zero);
    return value / divisor;
}

float to_single(double value) {
    // The first double that no longer rounds to a single-precision number.
    constexpr double beyond = FLT_MAX + 0x1p103;
    if (std::abs(value) >= beyond) raise_runtime_fault(error_number::overflow, number_text(value));
    return static_cast<float>(value);
}

}  // namespace korvane
