#include "setpoints.h"

#include <fmt/format.h>

#include <algorithm>

#include "number_options.h"

namespace korvane::program {

namespace {

std::string type_text(std::int32_t code) {
    switch (code) {
        case 3:
            return "int32";
        case 4:
            return "double";
        case 6:
            return "int16";
    }
    return fmt::format("type {}", code);
}

double number_of(const InstrumentValue& value) {
    if (const auto* integer = std::get_if<std::int32_t>(&value)) return *integer;
    if (const auto* number = std::get_if<double>(&value)) return *number;
    if (const auto* text = std::get_if<std::string>(&value))
        if (const auto number = parse_number(*text)) return *number;
    raise_runtime_fault(error_number::type_mismatch, "setpoint value");
}

}  // namespace

std::int32_t setpoint_index(Session& session, const std::string& text) {
    SetpointTable& table = session.instrument().setpoints();
    const auto number = parse_integer(text);
    for (const std::int32_t index : table.indexes())
        if (number ? index == *number : table.internal_name(index) == text) return index;
    throw UsageError(fmt::format("the instrument has no setpoint {} (korvane setpoint list shows them)", text));
}

SetpointDescription describe_setpoint(Session& session, std::int32_t index) {
    SetpointTable& table = session.instrument().setpoints();
    return {index,
            table.internal_name(index),
            table.external_name(index),
            number_of(table.value(index, 0, 0)),
            table.lower_limit(index),
            table.upper_limit(index),
            table.resolution(index),
            type_text(table.variable_type(index))};
}

Json setpoint_json(const SetpointDescription& setpoint) {
    return Json{{"index", setpoint.index},
                {"internal_name", setpoint.internal_name},
                {"external_name", setpoint.external_name},
                {"value", setpoint.value},
                {"lower_limit", setpoint.lower},
                {"upper_limit", setpoint.upper},
                {"resolution", setpoint.resolution},
                {"type", setpoint.type}};
}

void require_within_limits(const SetpointDescription& setpoint, double value) {
    if (value < setpoint.lower || value > setpoint.upper)
        throw UsageError(fmt::format("{} lies outside the limits of setpoint {} ({}), {} to {}", value, setpoint.index,
                                     setpoint.internal_name, setpoint.lower, setpoint.upper));
}

}  // namespace korvane::program
