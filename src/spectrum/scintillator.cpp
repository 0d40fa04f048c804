#include "spectrum/scintillator.h"

namespace korvane {

void Scintillator::put_aside(TraceObj& record) {
    const Segments segments = session_.current_segments();
    kept_ = CurrentSetpoints(session_.instrument, segments).value(contract::setpoint.scintillator);
    if (kept_ == 0) return;
    record.TR_PRINT("Scint NOT TTI mode; setting scint=0");
    set(0);
}

void Scintillator::restore() {
    const Segments segments = session_.current_segments();
    const CurrentSetpoints setpoints(session_.instrument, segments);
    if (access_ == Access::awaited && setpoints.value(contract::setpoint.scintillator) == kept_) return;
    set(kept_);
}

void Scintillator::set(double value) {
    constexpr double no_delta = 0;
    constexpr float no_wait = 0;
    if (access_ == Access::awaited) {
        session_.tune.SetMSSetpointValueByIdx(contract::setpoint.scintillator, value, no_delta, no_wait, true);
        return;
    }
    const Segments segments = session_.current_segments();
    CurrentSetpoints(session_.instrument, segments).write(contract::setpoint.scintillator, value);
}

}  // namespace korvane
