#include "abundance/readiness.h"

#include "korvane/system.h"

namespace korvane {

namespace {
constexpr int poll_milliseconds = 500;
}

bool Readiness::CheckInstrumentReadyState() {
    return routine(session_.trace, {"CheckInstrumentReadyState"}, no_line, [&](TraceObj& record) {
        if (session_.prefs.GetTunePreference("WaitForReady_SkipAll") == "Yes") return true;
        const double not_ready_state = to_double(session_.instrument->actual_value(
            contract::instrument_register.not_ready_state, contract::not_ready_state_type));
        if (session_.prefs.GetTunePreference("WaitDialogHandlesRunStateAlso") != "Yes") {
            record.TR_PRINT("NrdyState is ", not_ready_state);
            return to_int16(not_ready_state) >= 0;
        }
        const double run_state = to_double(
            session_.instrument->actual_value(contract::instrument_register.run_state, contract::run_state_type));
        const std::int16_t not_ready = to_int16(not_ready_state);
        if (not_ready >= 0) return true;
        const std::int16_t running = to_int16(run_state);
        record.TR_PRINT("Waiting: NReady[", not_ready, "], RunState[", running, "]");
        return false;
    });
}

void Readiness::wait_until_ready() {
    Clock& clock = *session_.platform.clock;
    while (!CheckInstrumentReadyState()) {
        clock.process_pending_events();
        clock.sleep_milliseconds(poll_milliseconds);
        session_.raise_if_aborted();
    }
}

}  // namespace korvane
