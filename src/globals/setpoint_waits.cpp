// The waits of setpoint access. Each polls: pending events, abort flag, sleep.
#include <algorithm>
#include <cmath>
#include <string_view>

#include "frame/located_number.h"
#include "globals/setpoint_access.h"
#include "platform/rounding.h"

namespace korvane {

namespace {

using ReturnCode = SetpointModificationReturnCodes;

constexpr int poll_milliseconds = 500;
constexpr double arrival_limit_seconds = 15;

bool is_item_sought(std::string_view item, std::string_view sought) {
    if (sought.empty()) return false;
    const bool whole = equal_but_for_case(sought, contract::metadata_name.lens_2.key);
    return equal_but_for_case(whole ? item : item.substr(0, sought.size()), sought);
}

double number_of_item(const MetaItem& item) {
    if (std::holds_alternative<std::monostate>(item.value))
        raise_runtime_fault(error_number::type_mismatch, "metadata item [" + item.name + "] has no value");
    if (const auto* text = std::get_if<std::string>(&item.value))
        return located_number(*text, [&] { return "metadata item [" + item.name + "]"; });
    return to_double(item.value);
}

/// Halves to the even neighbour.
double rounded_to_2_decimals(double value) {
    const double hundredfold = value * 100;
    if (!std::isfinite(hundredfold)) return value;
    return nearest_even(hundredfold) / 100;
}

}  // namespace

bool SetpointAccess::poll_until_over(double seconds) {
    if (!std::isfinite(seconds)) raise_runtime_fault(error_number::invalid_call, "wait time in seconds");
    Stopwatch stopwatch(clock_);
    for (;;) {
        const double elapsed = stopwatch.seconds();
        if (abort_.UserHasClickedAbort()) return false;
        if (elapsed > seconds || seconds <= 0) return true;
        if (abort_.UserHasClickedAbort()) return false;
        clock_.process_pending_events();
        clock_.sleep_milliseconds(poll_milliseconds);
    }
}

SetpointAccess::Arrival SetpointAccess::wait_until_seen(std::int32_t index, double target, double current) {
    Arrival arrival{ReturnCode::UnexpectedError, current};
    const auto note = [&](TraceObj& record, RoutineName name, const Error& error) {
        record.error_line("Error[", error.number(), "] in ", name.name, ": ", error.description());
        const bool unexplained = arrival.code == ReturnCode::UnexpectedError;
        if (unexplained && error.number() == error_number::user_aborted) arrival.code = ReturnCode::UserAborted;
        return true;
    };
    routine(trace_, {"WaitForSpectrumWithSetpointValue"}, note,
            [&](TraceObj& record) { poll_until_seen(record, index, target, arrival); });
    return arrival;
}

void SetpointAccess::poll_until_seen(TraceObj& record, std::int32_t index, double target, Arrival& arrival) {
    Limit limit{Stopwatch(clock_), arrival_limit_seconds};
    while (!limit.passed()) {
        raise_if_aborted();
        if (is_seen(record, index, target, arrival, limit)) {
            arrival.code = ReturnCode::Success;
            return;
        }
        clock_.process_pending_events();
        clock_.sleep_milliseconds(poll_milliseconds);
    }
    raise_if_aborted();
    arrival.code = ReturnCode::Timeout;
    throw Error(error_number::user_aborted, "TuneGlobals",
                text_of("Setpoint[", index, "] in WaitForSpectrumWithSetpointValue: timed out waiting for setpoint"));
}

bool SetpointAccess::is_seen(TraceObj& record, std::int32_t index, double target, Arrival& arrival, Limit& limit) {
    record.TR_PRINT("NewScan received - calling m_tunelibfunctions.GetMetaValue()");
    record.TR_PRINT("m_Globals.ISetpoints is valid");
    record.TR_PRINT("Looking up Setpoints[", index, "]");
    const std::string name = setpoints_.table().external_name(index);
    record.TR_PRINT("Name to search is ", name);
    const std::optional<double> value = metadata_value(name, &limit);
    if (!value) return false;
    arrival.last_value = *value;
    if (std::abs(target - *value) < setpoints_.table().tolerance(index)) {
        record.TR_PRINT("New value reached");
        return true;
    }
    record.TR_PRINT("New value Not yet reached OR Not the first scan");
    record.TR_PRINT("MetaValue is ", *value);
    record.TR_PRINT("TargetValue to look for is ", target);
    return false;
}

double SetpointAccess::next_metadata_value(const std::string& external_name) {
    return metadata_value(external_name, nullptr).value_or(setpoint_value_not_given);
}

std::optional<double> SetpointAccess::metadata_value(const std::string& external_name, Limit* limit) {
    const auto body = [&](TraceObj& record) -> std::optional<double> {
        record.TR_PRINT("Param Name is ", external_name);
        InstrumentControl* const control = instrument_->control();
        if (!control) raise_runtime_fault(error_number::object_not_set, "instrument control");
        record.TR_PRINT("g_VexMSCtrl is valid");
        record.TR_PRINT("Getting next spectrum...");
        if (!wait_for_pre_run(record, *control, limit)) return std::nullopt;
        const std::optional<double> found = find_item(control->next_spectrum_metadata(), external_name);
        if (found) record.TR_PRINT("Reporting back MetaData value [", external_name, "] of ", *found);
        raise_if_aborted();
        if (!found) record.TR_PRINT("MetaData value [", external_name, "] NOT FOUND");
        return found.value_or(setpoint_value_not_given);
    };
    return routine(trace_, {"GetMetaValue"}, ErrorLine{"Error[", "] in GetMetaValue: "}, body);
}

bool SetpointAccess::wait_for_pre_run(TraceObj& record, InstrumentControl& control, Limit* limit) {
    for (;;) {
        const double state = control.read_register(contract::instrument_register.run_state);
        if (state == contract::run_state.pre_run) return true;
        clock_.process_pending_events();
        record.TR_PRINT("Waiting for PreRun state; current state = ", state);
        raise_if_aborted();
        if (limit && limit->passed()) return false;
        clock_.sleep_milliseconds(poll_milliseconds);
    }
}

std::optional<double> SetpointAccess::find_item(const std::vector<MetaItem>& items, const std::string& name) {
    for (const MetaItem& item : items) {
        if (is_item_sought(item.name, name)) return rounded_to_2_decimals(number_of_item(item));
        clock_.process_pending_events();
    }
    return std::nullopt;
}

}  // namespace korvane
