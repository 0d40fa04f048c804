// Setpoints, by index and by name.
#include <algorithm>
#include <cmath>

#include "instrument/conformance/checks.h"

namespace korvane {

namespace {

SetpointValue in_type(std::int32_t type, double value) {
    if (type == contract::variable_type.int32) return to_int32(value);
    if (type == contract::variable_type.int16) return to_int16(value);
    return value;
}

/// Moves a setpoint that takes any number by one step of its resolution, and back; others are codes and switches, which
/// are left alone.
bool follows(SetpointTable& table, std::int32_t index, double before) {
    if (table.variable_type(index) != contract::variable_type.real) return true;
    const double step = table.resolution(index);
    const double moved = before + step <= table.upper_limit(index) ? before + step : before - step;
    if (moved < table.lower_limit(index)) return true;
    table.write(index, 0, 0, moved);
    const double now = to_double(table.value(index, 0, 0));
    table.write(index, 0, 0, before);
    const double back = to_double(table.value(index, 0, 0));
    return std::fabs(now - moved) < 0.5 * step && std::fabs(back - before) < 0.5 * step;
}

struct SetpointProperty {
    const char* operation;
    const char* expected;
    std::function<bool(std::int32_t)> holds;
};

std::vector<SetpointProperty> setpoint_properties(InstrumentGlobals& globals) {
    const auto table = [&globals]() -> SetpointTable& { return globals.setpoints(); };
    const auto number = [=](std::int32_t index) { return to_double(table().value(index, 0, 0)); };
    return {{"value", "a number for every index", [=](std::int32_t index) { return std::isfinite(number(index)); }},
            {"lower_limit", "not above the value",
             [=](std::int32_t index) {
                 const double limit = table().lower_limit(index);
                 return index == unknown_number || limit <= number(index) + table().tolerance(index);
             }},
            {"upper_limit", "not below the value",
             [=](std::int32_t index) {
                 const double limit = table().upper_limit(index);
                 return index == unknown_number || limit >= number(index) - table().tolerance(index);
             }},
            {"resolution", "above 0", [=](std::int32_t index) { return table().resolution(index) > 0; }},
            {"tolerance", "above 0", [=](std::int32_t index) { return table().tolerance(index) > 0; }},
            {"variable_type", "3, 4 or 6",
             [=](std::int32_t index) {
                 const auto types = contract::entries<contract::Number>(contract::variable_type);
                 return std::ranges::find(types, table().variable_type(index), &contract::Number::key) != types.end();
             }},
            {"external_name", "one line of text",
             [=](std::int32_t index) { return unless_text(table().external_name(index)).empty(); }},
            {"internal_name", "one line of text, found by index_of",
             [=](std::int32_t index) {
                 const std::string name = table().internal_name(index);
                 return unless_text(name).empty() && table().index_of(name) == index;
             }},
            {"write", "the value can be read back", [=](std::int32_t index) {
                 if (index == unknown_number) return table().write(index, 0, 0, 1.0), true;
                 const double before = number(index);
                 table().write(index, 0, 0, in_type(table().variable_type(index), before));
                 return std::fabs(number(index) - before) < table().tolerance(index) && follows(table(), index, before);
             }}};
}

}  // namespace

void check_setpoints(ConformanceChecks& checks, InstrumentGlobals& globals) {
    const auto table = [&]() -> SetpointTable& { return globals.setpoints(); };
    std::vector<std::int32_t> all;
    checks.check("SetpointTable.indexes", "ascending, each once", [&] {
        all = table().indexes();
        const bool ascend = std::ranges::adjacent_find(all, std::greater_equal<>()) == all.end();
        return unless(!all.empty() && ascend, all.empty() ? "none" : "they do not ascend");
    });
    checks.answers(contract::setpoint, unknown_number, [&](std::int32_t index) {
        if (index != unknown_number && !std::ranges::binary_search(all, index))
            raise_runtime_fault(error_number::subscript, "not among the indexes");
        return table().value(index, 0, 0);
    });
    for (const SetpointProperty& property : setpoint_properties(globals)) {
        const std::string operation = text_of("SetpointTable.", property.operation);
        checks.check(operation, property.expected, [&] {
            std::string failing;
            for (const std::int32_t index : all)
                if (!property.holds(index)) failing += (failing.empty() ? "not so for " : ", ") + text_of(index);
            return failing;
        });
        checks.refuses(operation, error_number::subscript, text_of(unknown_number.key),
                       [&] { property.holds(unknown_number); });
    }
    checks.check(contract::slicer.group.operation, "a slicer's position has running hours", [&] {
        for (const std::int32_t index : all)
            if (table().internal_name(index) == contract::slicer.position.key) {
                const std::int32_t position = to_int32(table().value(index, 0, 0));
                return unless_answer(globals.dictionary_item(contract::slicer_hours_item(position)), "h");
            }
        return std::string();
    });
    checks.check("SetpointTable.value", "transients are 1 or more", [&] {
        for (const std::int32_t index : {contract::setpoint.transients_1_ghz, contract::setpoint.transients_2_ghz,
                                         contract::setpoint.transients_4_ghz})
            if (!(to_double(table().value(index, 0, 0)) >= 1)) return "not so for " + text_of(index);
        return std::string();
    });
    checks.refuses("SetpointTable.index_of", error_number::invalid_call, unknown_text,
                   [&] { table().index_of(unknown_text); });
}

}  // namespace korvane
