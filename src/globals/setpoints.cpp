// Reading and changing setpoints, and the waits that go with it. Each wait polls: pending events, abort flag, sleep.
#include <cmath>
#include <string_view>

#include "globals/tune_globals_state.h"
#include "platform/automation_arithmetic.h"
#include "platform/stopwatch.h"

namespace korvane {

namespace {

using ReturnCode = SetpointModificationReturnCodes;

constexpr std::int32_t setpoint_trace_level = 4;
constexpr const char* set_source = "SetMSSetpointValueByIdx()";
constexpr int poll_milliseconds = 500;
constexpr double arrival_limit_seconds = 15;

/// A wait's end, seen by the waits inside it.
struct Deadline {
    Stopwatch stopwatch;
    double seconds;
    bool passed() { return stopwatch.seconds() >= seconds; }
};

/// What came of the wait for a spectrum that reports a setpoint's value.
struct Arrival {
    ReturnCode code = ReturnCode::UnexpectedError;
    double last_value = 0;  // that a spectrum reported, or the one before the write
    bool is_reported = false;
};

[[noreturn]] void raise_aborted() {
    throw Error(error_number::user_aborted, "TuneGlobals", "User aborted");
}

void raise_if_aborted(TuneGlobalsState& state) {
    if (state.abort.UserHasClickedAbort()) raise_aborted();
}

/// False when the user asked to abort.
bool is_waited_out(TuneGlobalsState& state, double seconds) {
    return routine(state.trace, {"WaitThisManySeconds"}, no_line, [&] {
        if (!std::isfinite(seconds)) raise_runtime_fault(error_number::invalid_call, "wait time in seconds");
        Clock& clock = *state.platform.clock;
        Stopwatch stopwatch(clock);
        for (;;) {
            const double elapsed = stopwatch.seconds();
            if (state.abort.UserHasClickedAbort()) return false;
            if (elapsed > seconds || seconds <= 0) return true;
            if (state.abort.UserHasClickedAbort()) return false;
            clock.process_pending_events();
            clock.sleep_milliseconds(poll_milliseconds);
        }
    });
}

bool is_item_sought(std::string_view item, std::string_view sought) {
    const bool whole = equal_but_for_case(sought, contract::metadata_name.lens_2.key);
    return equal_but_for_case(whole ? item : item.substr(0, sought.size()), sought);
}

double number_of_item(const MetaItem& item) {
    const auto named = [&] { return "metadata item [" + item.name + "]"; };
    if (std::holds_alternative<std::monostate>(item.value))
        raise_runtime_fault(error_number::type_mismatch, named(), " has no value");
    if (const auto* text = std::get_if<std::string>(&item.value)) return located_number(*text, named);
    return to_double(item.value);
}

/// Halves to the even neighbour.
double rounded_to_2_decimals(double value) {
    const double hundredfold = value * 100;
    return std::isfinite(hundredfold) ? nearest_even(hundredfold) / 100 : value;
}

using FoundItem = std::optional<double>;

FoundItem find_item(TuneGlobalsState& state, const std::vector<MetaItem>& items, const std::string& name) {
    for (const MetaItem& item : items) {
        if (is_item_sought(item.name, name)) return rounded_to_2_decimals(number_of_item(item));
        state.platform.clock->process_pending_events();
    }
    return std::nullopt;
}

/// False when the deadline passes before.
bool is_in_pre_run(TraceObj& record, TuneGlobalsState& state, InstrumentControl& control, Deadline* deadline) {
    for (;;) {
        const double run_state = control.read_register(contract::instrument_register.run_state);
        if (run_state == contract::run_state.pre_run) return true;
        state.platform.clock->process_pending_events();
        record.TR_PRINT("Waiting for PreRun state; current state = ", run_state);
        raise_if_aborted(state);
        if (deadline && deadline->passed()) return false;
        state.platform.clock->sleep_milliseconds(poll_milliseconds);
    }
}

/// Of the next spectrum, which may not have it. Nothing when the deadline passes before the instrument is ready.
std::optional<FoundItem> metadata_value(TuneGlobalsState& state, const std::string& name,
                                        Deadline* deadline = nullptr) {
    const ErrorLine line{"Error[", "] in GetMetaValue: "};
    return routine(state.trace, {"GetMetaValue"}, line, [&](TraceObj& record) -> std::optional<FoundItem> {
        record.TR_PRINT("Param Name is ", name);
        InstrumentControl& control = state.instrument.control();
        record.TR_PRINT("g_VexMSCtrl is valid");
        record.TR_PRINT("Getting next spectrum...");
        if (!is_in_pre_run(record, state, control, deadline)) return std::nullopt;
        const FoundItem found = find_item(state, control.next_spectrum_metadata(), name);
        if (found) record.TR_PRINT("Reporting back MetaData value [", name, "] of ", *found);
        raise_if_aborted(state);
        if (!found) record.TR_PRINT("MetaData value [", name, "] NOT FOUND");
        return found;
    });
}

bool is_seen(TraceObj& record, TuneGlobalsState& state, std::int32_t index, double target, Arrival& arrival,
             Deadline& deadline) {
    record.TR_PRINT("NewScan received - calling m_tunelibfunctions.GetMetaValue()");
    record.TR_PRINT("m_Globals.ISetpoints is valid");
    record.TR_PRINT("Looking up Setpoints[", index, "]");
    const std::string name = state.setpoints.table().external_name(index);
    record.TR_PRINT("Name to search is ", name);
    const auto next = metadata_value(state, name, &deadline);
    if (!next) return false;
    arrival.is_reported |= next->has_value();
    state.unreported_item = arrival.is_reported ? std::string() : name;
    arrival.last_value = next->value_or(arrival.last_value);
    const double value = next->value_or(setpoint_value_not_given);
    if (std::abs(target - value) < state.setpoints.table().tolerance(index)) {
        record.TR_PRINT("New value reached");
        return true;
    }
    record.TR_PRINT("New value Not yet reached OR Not the first scan");
    record.TR_PRINT("MetaValue is ", value);
    record.TR_PRINT("TargetValue to look for is ", target);
    return false;
}

Arrival wait_until_seen(TuneGlobalsState& state, std::int32_t index, double target, double current) {
    Arrival arrival{ReturnCode::UnexpectedError, current};
    state.unreported_item.clear();
    const auto note = [&](TraceObj& record, RoutineName name, const Error& error) {
        record.error_line("Error[", error.number(), "] in ", name.name, ": ", error.description());
        const bool unexplained = arrival.code == ReturnCode::UnexpectedError;
        if (unexplained && error.number() == error_number::user_aborted) arrival.code = ReturnCode::UserAborted;
        return true;
    };
    constexpr RoutineName name{"WaitForSpectrumWithSetpointValue"};
    routine(state.trace, name, note, [&](TraceObj& record) {
        Clock& clock = *state.platform.clock;
        Deadline deadline{Stopwatch(clock), arrival_limit_seconds};
        while (!deadline.passed()) {
            raise_if_aborted(state);
            if (is_seen(record, state, index, target, arrival, deadline)) {
                arrival.code = ReturnCode::Success;
                return;
            }
            clock.process_pending_events();
            clock.sleep_milliseconds(poll_milliseconds);
        }
        raise_if_aborted(state);
        arrival.code = ReturnCode::Timeout;
        throw Error(error_number::user_aborted, "TuneGlobals",
                    text_of("Setpoint[", index, "] in ", name.name, ": timed out waiting for setpoint"));
    });
    return arrival;
}

bool is_within_limits(SetpointTable& table, std::int32_t index, double target) {
    if (std::isnan(target))
        raise_runtime_fault(error_number::invalid_call, "setpoint[", index, "]: the value is not a number");
    const double lower = table.lower_limit(index);
    const double upper = table.upper_limit(index);
    return target >= lower && target <= upper;
}

void write_typed(const CurrentSetpoints& setpoints, std::int32_t index, double target) {
    const auto integer = [&](const auto& convert) {
        try {
            return convert(target);
        } catch (const Error&) {
            raise_runtime_fault(error_number::overflow, "setpoint[", index, "]: [", target, "]");
        }
    };
    switch (setpoints.table().variable_type(index)) {
        case contract::variable_type.real:
            return setpoints.write(index, target);
        case contract::variable_type.int32:
            return setpoints.write(index, integer([](double value) { return to_int32(value); }));
        case contract::variable_type.int16:
            return setpoints.write(index, integer([](double value) { return to_int16(value); }));
        default:
            throw Error(error_number::routine_detected, set_source, "invalid setpoint variable type");
    }
}

/// False when the user asked to abort.
bool is_settled(TuneGlobalsState& state, std::int32_t index, double target, double current, float wait_seconds,
                bool until_seen) {
    if (wait_seconds > 0 && (!is_waited_out(state, wait_seconds) || state.abort.UserHasClickedAbort())) return false;
    if (!until_seen) return true;
    const Arrival arrival = wait_until_seen(state, index, target, current);
    if (arrival.code != ReturnCode::Success && arrival.code != ReturnCode::UserAborted)
        throw Error(error_number::setpoint_not_reached, set_source,
                    text_of("SetMSSetpointValueByIdx: setpoint[", index, "] did not reach expected value[", target,
                            "]; last value[", arrival.last_value, "]"));
    return arrival.code == ReturnCode::Success;
}

}  // namespace

double TuneGlobals::SetMSSetpointValueByIdx(std::int32_t SetpointIdx, double new_value, double Delta, float wait_time,
                                            bool bDoNotReturnUntilSetpointValueHasBeenSet) {
    const auto unable_to_set = [&](TraceObj& record, RoutineName name, const Error& error) {
        record.error_line("Error[", error.number(), "] in ", name.name, ": unable to set current value for setpoint[",
                          SetpointIdx, "]: ", error.description());
    };
    bool aborted = false;
    const auto body = [&](TraceObj& record) {
        record.TR_PRINT("Setting Setpoint[", SetpointIdx, "] to ", new_value);
        const CurrentSetpoints& setpoints = impl_->setpoints;
        double value = setpoints.value(SetpointIdx);
        if (Delta != 0 || new_value != setpoint_value_not_given) {
            const double target = Delta != 0 ? value + Delta : new_value;
            if (is_within_limits(setpoints.table(), SetpointIdx, target)) {
                write_typed(setpoints, SetpointIdx, target);
                aborted = !is_settled(*impl_, SetpointIdx, target, value, wait_time,
                                      bDoNotReturnUntilSetpointValueHasBeenSet);
                if (aborted) return value;
            }
            impl_->platform.clock->process_pending_events();
            value = setpoints.value(SetpointIdx);
            impl_->platform.clock->process_pending_events();
        }
        record.TR_PRINT("New setpoint value: ", value);
        return value;
    };
    const double value = routine(impl_->trace, {"SetMSSetpointValueByIdx", setpoint_trace_level}, unable_to_set, body);
    // An abort goes to the caller past the routine's own handler.
    if (aborted) raise_aborted();
    return value;
}

double TuneGlobals::SetMSSetpointValueByInternalName(const std::string& strParameterName, double new_value,
                                                     double Delta, float wait_time,
                                                     bool bDoNotReturnUntilSetpointValueHasBeenSet) {
    return routine(impl_->trace, {"SetMSSetpointValueByInternalName", setpoint_trace_level}, [&] {
        return SetMSSetpointValueByIdx(impl_->setpoints.table().index_of(strParameterName), new_value, Delta, wait_time,
                                       bDoNotReturnUntilSetpointValueHasBeenSet);
    });
}

double TuneGlobals::GetMSSetpointValueByIdx(std::int32_t lSetpointIdx) {
    return routine(impl_->trace, {"GetMSSetpointValueByIdx", setpoint_trace_level}, [&](TraceObj& record) {
        raise_if_aborted(*impl_);
        record.TR_PRINT("Current value of SP[lSetpointIdx, CurrentTimeSegment, CurrentScanSegment] = ");
        const double value = impl_->setpoints.value(lSetpointIdx);
        record.TR_PRINT("Current value of SP[", lSetpointIdx, "] = ", value);
        raise_if_aborted(*impl_);
        return value;
    });
}

double TuneGlobals::GetMSSetpointValueByInternalName(const std::string& strParameterName) {
    return routine(impl_->trace, {"GetMSSetpointValueByInternalName", setpoint_trace_level},
                   [&] { return GetMSSetpointValueByIdx(impl_->setpoints.table().index_of(strParameterName)); });
}

double TuneGlobals::GetMetaValue(const std::string& SetpointExternalName) {
    return metadata_value(*impl_, SetpointExternalName)->value_or(setpoint_value_not_given);
}

void TuneGlobals::WaitThisManySeconds(double wait_time_in_seconds) {
    if (!is_waited_out(*impl_, wait_time_in_seconds)) raise_aborted();
}

bool TuneGlobals::UserHasClickedAbort() {
    return routine(impl_->trace, [&] { return impl_->abort.UserHasClickedAbort(); });
}

std::string TuneGlobals::unreported_item() const {
    return impl_->unreported_item;
}

}  // namespace korvane
