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

struct SetpointProperty {
    const char* operation;
    const char* expected;
    std::function<bool(std::int32_t)> holds;
};

std::vector<SetpointProperty> setpoint_properties(InstrumentGlobals& globals) {
    const auto table = [&globals]() -> SetpointTable& { return globals.setpoints(); };
    const auto number = [=](std::int32_t index) { return to_double(table().value(index, 0, 0)); };
    return {{"value", "a number for every index", [=](std::int32_t index) { return std::isfinite(number(index)); }},
            {"lower_limit", "not above the upper limit",
             [=](std::int32_t index) { return table().lower_limit(index) <= table().upper_limit(index); }},
            {"upper_limit", "not below the lower limit",
             [=](std::int32_t index) { return table().upper_limit(index) >= table().lower_limit(index); }},
            {"resolution", "above 0", [=](std::int32_t index) { return table().resolution(index) > 0; }},
            {"tolerance", "above 0", [=](std::int32_t index) { return table().tolerance(index) > 0; }},
            {"variable_type", "3, 4 or 6",
             [=](std::int32_t index) {
                 const auto types = contract::entries<contract::Number>(contract::variable_type);
                 return std::ranges::find(types, table().variable_type(index), &contract::Number::key) != types.end();
             }},
            {"external_name", "not empty", [=](std::int32_t index) { return !table().external_name(index).empty(); }},
            {"internal_name", "found by index_of",
             [=](std::int32_t index) { return table().index_of(table().internal_name(index)) == index; }},
            {"write", "the value can be read back", [=](std::int32_t index) {
                 if (index == unknown_number) return table().write(index, 0, 0, 1.0), true;
                 const double before = number(index);
                 table().write(index, 0, 0, in_type(table().variable_type(index), before));
                 return std::fabs(number(index) - before) < table().tolerance(index);
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
    checks.refuses("SetpointTable.index_of", error_number::invalid_call, unknown_text,
                   [&] { table().index_of(unknown_text); });
}

}  // namespace korvane
