#include "spectrum/scintillator.h"

namespace korvane {

namespace {
constexpr std::int32_t scintillator_setpoint = 69;
}

void Scintillator::put_aside(TraceObj& record) {
    const Segments segments = session_.current_segments();
    kept_ = CurrentSetpoints(*session_.instrument, segments).value(scintillator_setpoint);
    if (kept_ == 0) return;
    record.TR_PRINT("Scint NOT TTI mode; setting scint=0");
    set(0);
}

void Scintillator::restore() {
    const Segments segments = session_.current_segments();
    const CurrentSetpoints setpoints(*session_.instrument, segments);
    if (access_ == Access::awaited && setpoints.value(scintillator_setpoint) == kept_) return;
    set(kept_);
}

void Scintillator::set(double value) {
    constexpr double no_delta = 0;
    constexpr float no_wait = 0;
    if (access_ == Access::awaited) {
        session_.tune.SetMSSetpointValueByIdx(scintillator_setpoint, value, no_delta, no_wait, true);
        return;
    }
    const Segments segments = session_.current_segments();
    CurrentSetpoints(*session_.instrument, segments).write(scintillator_setpoint, value);
}

}  // namespace korvane
