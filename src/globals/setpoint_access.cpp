#include "globals/setpoint_access.h"

#include <cmath>

namespace korvane {

namespace {

constexpr std::int32_t setpoint_trace_level = 4;
constexpr const char* set_source = "SetMSSetpointValueByIdx()";

[[noreturn]] void raise_aborted() {
    throw Error(error_number::user_aborted, "TuneGlobals", "User aborted");
}

}  // namespace

double SetpointAccess::set(std::int32_t index, const SetpointChange& change) {
    const auto unable_to_set = [&](TraceObj& record, RoutineName name, const Error& error) {
        record.error_line("Error[", error.number(), "] in ", name.name, ": unable to set current value for setpoint[",
                          index, "]: ", error.description());
    };
    const Outcome outcome = routine(trace_, {"SetMSSetpointValueByIdx", setpoint_trace_level}, unable_to_set,
                                    [&](TraceObj& record) { return set_guarded(index, change, record); });
    // An abort goes to the caller past the routine's own handler.
    if (outcome.aborted) raise_aborted();
    return outcome.value;
}

SetpointAccess::Outcome SetpointAccess::set_guarded(std::int32_t index, const SetpointChange& change,
                                                    TraceObj& record) {
    record.TR_PRINT("Setting Setpoint[", index, "] to ", change.new_value);
    double value = setpoints_.value(index);
    const bool nothing_asked = change.delta == 0 && change.new_value == setpoint_value_not_given;
    if (!nothing_asked) {
        if (const auto target = reachable_target(index, value, change)) {
            write_typed(index, *target);
            if (is_aborted_while_settling(index, *target, value, change)) return {value, true};
        }
        clock_.process_pending_events();
        value = setpoints_.value(index);
        clock_.process_pending_events();
    }
    record.TR_PRINT("New setpoint value: ", value);
    return {value, false};
}

std::optional<double> SetpointAccess::reachable_target(std::int32_t index, double current,
                                                       const SetpointChange& change) const {
    const double target = change.delta != 0 ? current + change.delta : change.new_value;
    if (std::isnan(target))
        raise_runtime_fault(error_number::invalid_call, text_of("setpoint[", index, "]: the value is not a number"));
    const double lower = setpoints_.table().lower_limit(index);
    const double upper = setpoints_.table().upper_limit(index);
    if (target < lower || target > upper) return std::nullopt;
    return target;
}

void SetpointAccess::write_typed(std::int32_t index, double target) {
    switch (setpoints_.table().variable_type(index)) {
        case contract::variable_type.real:
            return setpoints_.write(index, target);
        case contract::variable_type.int32:
            return setpoints_.write(index, to_int32(target));
        case contract::variable_type.int16:
            return setpoints_.write(index, to_int16(target));
        default:
            throw Error(error_number::routine_detected, set_source, "invalid setpoint variable type");
    }
}

bool SetpointAccess::is_aborted_while_settling(std::int32_t index, double target, double current,
                                               const SetpointChange& change) {
    if (change.wait_seconds > 0 && (!wait_traced(change.wait_seconds) || abort_.UserHasClickedAbort())) return true;
    if (!change.until_seen) return false;
    const Arrival arrival = wait_until_seen(index, target, current);
    if (arrival.code == SetpointModificationReturnCodes::UserAborted) return true;
    if (arrival.code != SetpointModificationReturnCodes::Success)
        throw Error(error_number::setpoint_not_reached, set_source,
                    text_of("SetMSSetpointValueByIdx: setpoint[", index, "] did not reach expected value[", target,
                            "]; last value[", arrival.last_value, "]"));
    return false;
}

double SetpointAccess::set(const std::string& internal_name, const SetpointChange& change) {
    return routine(trace_, {"SetMSSetpointValueByInternalName", setpoint_trace_level}, no_line,
                   [&] { return set(setpoints_.table().index_of(internal_name), change); });
}

double SetpointAccess::get(std::int32_t index) {
    return routine(trace_, {"GetMSSetpointValueByIdx", setpoint_trace_level}, [&](TraceObj& record) {
        raise_if_aborted();
        record.TR_PRINT("Current value of SP[lSetpointIdx, CurrentTimeSegment, CurrentScanSegment] = ");
        const double value = setpoints_.value(index);
        record.TR_PRINT("Current value of SP[", index, "] = ", value);
        raise_if_aborted();
        return value;
    });
}

double SetpointAccess::get(const std::string& internal_name) {
    return routine(trace_, {"GetMSSetpointValueByInternalName", setpoint_trace_level},
                   [&] { return get(setpoints_.table().index_of(internal_name)); });
}

void SetpointAccess::raise_if_aborted() {
    if (abort_.UserHasClickedAbort()) raise_aborted();
}

void SetpointAccess::wait(double seconds) {
    if (!wait_traced(seconds)) raise_aborted();
}

bool SetpointAccess::wait_traced(double seconds) {
    return routine(trace_, {"WaitThisManySeconds"}, no_line, [&] { return poll_until_over(seconds); });
}

}  // namespace korvane
