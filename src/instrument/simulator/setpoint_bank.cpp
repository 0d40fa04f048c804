#include "instrument/simulator/setpoint_bank.h"

#include <cmath>

#include "korvane/error.h"
#include "platform/automation_arithmetic.h"

namespace korvane::simulation {

namespace {

double plain_number(const SetpointValue& value) {
    return std::visit([](auto number) { return static_cast<double>(number); }, value);
}

}  // namespace

SetpointBank::SetpointBank(const Scene& scene) {
    for (const SetpointDefinition& definition : setpoint_definitions())
        entries_.push_back({&definition, definition.default_value, definition.default_value});
    restore(scene.setpoints);
    for (const SetpointFault& fault : scene.faults.setpoints) {
        Entry& affected = entry(fault.index);
        affected.never_arrives = !fault.after_spectra.has_value();
        affected.delay_spectra = fault.after_spectra.value_or(0);
    }
}

const SetpointBank::Entry& SetpointBank::entry(std::int32_t index) const {
    const SetpointDefinition* found = find_setpoint(index);
    if (!found) raise_runtime_fault(error_number::subscript, "setpoint[" + std::to_string(index) + "]");
    return entries_[static_cast<std::size_t>(found - setpoint_definitions().data())];
}

SetpointBank::Entry& SetpointBank::entry(std::int32_t index) {
    return const_cast<Entry&>(std::as_const(*this).entry(index));
}

const SetpointDefinition& SetpointBank::definition(std::int32_t index) const {
    return *entry(index).definition;
}

InstrumentValue SetpointBank::typed(const SetpointDefinition& definition, double value) {
    if (definition.type == SetpointType::real) return value;
    return static_cast<std::int32_t>(value);
}

double SetpointBank::checked(const SetpointDefinition& definition, double value) {
    if (definition.type == SetpointType::int32) value = to_int32(value);
    if (definition.type == SetpointType::int16) value = to_int16(value);
    if (value >= definition.lower_limit && value <= definition.upper_limit) return value;
    throw Error(error_number::invalid_call, "Simulator",
                "setpoint[" + std::to_string(definition.index) + "] refuses value[" + number_text(value) +
                    "]: outside its limits [" + number_text(definition.lower_limit) + ", " +
                    number_text(definition.upper_limit) + "]");
}

void SetpointBank::arrive(Entry& arriving) {
    arriving.remaining_spectra = 0;
    if (arriving.actual == arriving.commanded) return;
    arriving.actual = arriving.commanded;
    ++revision_;
}

bool SetpointBank::command(std::int32_t index, const SetpointValue& value) {
    Entry& target = entry(index);
    const double number = checked(*target.definition, plain_number(value));
    const bool changed = number != target.commanded;
    target.commanded = number;
    if (!changed || target.never_arrives) return changed;
    target.remaining_spectra = target.delay_spectra;
    if (target.remaining_spectra == 0) arrive(target);
    return changed;
}

bool SetpointBank::command_now(std::int32_t index, double value) {
    Entry& target = entry(index);
    const double number = checked(*target.definition, value);
    const bool changed = number != target.commanded;
    target.commanded = number;
    arrive(target);
    return changed;
}

void SetpointBank::spectrum_begins() {
    for (Entry& waiting : entries_) {
        if (waiting.remaining_spectra == 0) continue;
        if (waiting.remaining_spectra-- == 1) arrive(waiting);
    }
}

std::map<std::string, double> SetpointBank::commanded_by_name() const {
    std::map<std::string, double> values;
    for (const Entry& kept : entries_) values.emplace(kept.definition->internal_name, kept.commanded);
    return values;
}

void SetpointBank::restore(const std::map<std::string, double>& values) {
    for (const auto& [name, value] : values) {
        Entry& target = entry(find_setpoint(name)->index);
        target.commanded = checked(*target.definition, value);
        arrive(target);
    }
}

}  // namespace korvane::simulation
