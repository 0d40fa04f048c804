#include <algorithm>
#include <array>

#include "instrument/conformance/checks.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace {

// Indexes that the library itself addresses.
constexpr std::array<std::int32_t, 21> used_indexes{18,  69,  104, 105, 106, 107, 116, 117, 119, 121, 123,
                                                    124, 125, 126, 127, 128, 149, 150, 160, 161, 165};
constexpr std::int32_t polarity_index = 119;
constexpr std::int32_t missing_index = 987654;
constexpr const char* missing_name = "NoSuchSetpoint";

std::string listed(const std::vector<std::int32_t>& indexes) {
    std::string text;
    for (const std::int32_t index : indexes) text += (text.empty() ? "" : ", ") + std::to_string(index);
    return text;
}

/// The indexes for which `holds` is false.
template <class Condition>
std::string exceptions(SetpointTable& table, Condition holds) {
    std::vector<std::int32_t> failing;
    for (const std::int32_t index : table.indexes())
        if (!holds(index)) failing.push_back(index);
    return unless(failing.empty(), "not so for " + listed(failing));
}

SetpointValue typed(std::int32_t type, double value) {
    if (type == 3) return to_int32(value);
    if (type == 6) return to_int16(value);
    return value;
}

void check_table(ConformanceChecks& checks, SetpointTable& table) {
    checks.check("SetpointTable.indexes", "ascending, each once", [&] {
        const auto all = table.indexes();
        return unless(!all.empty() && std::adjacent_find(all.begin(), all.end(), std::greater_equal<>()) == all.end(),
                      listed(all));
    });
    checks.check("SetpointTable.indexes", "holds what the library addresses", [&] {
        const auto all = table.indexes();
        std::vector<std::int32_t> missing;
        for (const std::int32_t index : used_indexes)
            if (!std::binary_search(all.begin(), all.end(), index)) missing.push_back(index);
        return unless(missing.empty(), "missing: " + listed(missing));
    });
    checks.check("SetpointTable.value", "a number for every index", [&] {
        return exceptions(table,
                          [&](std::int32_t index) { return std::isfinite(to_double(table.value(index, 0, 0))); });
    });
    checks.check("SetpointTable.lower_limit, upper_limit", "the lower is not above the upper", [&] {
        return exceptions(table,
                          [&](std::int32_t index) { return table.lower_limit(index) <= table.upper_limit(index); });
    });
    checks.check("SetpointTable.resolution, tolerance", "above 0", [&] {
        return exceptions(
            table, [&](std::int32_t index) { return table.resolution(index) > 0 && table.tolerance(index) > 0; });
    });
    checks.check("SetpointTable.variable_type", "4, 3 or 6", [&] {
        return exceptions(table, [&](std::int32_t index) {
            const std::int32_t type = table.variable_type(index);
            return type == 4 || type == 3 || type == 6;
        });
    });
    checks.check("SetpointTable.external_name", "not empty", [&] {
        return exceptions(table, [&](std::int32_t index) { return !table.external_name(index).empty(); });
    });
    checks.check("SetpointTable.index_of", "finds every internal name", [&] {
        return exceptions(table,
                          [&](std::int32_t index) { return table.index_of(table.internal_name(index)) == index; });
    });
    checks.check("SetpointTable.write", "the value can be read back", [&] {
        return exceptions(table, [&](std::int32_t index) {
            const double before = to_double(table.value(index, 0, 0));
            table.write(index, 0, 0, typed(table.variable_type(index), before));
            return std::fabs(to_double(table.value(index, 0, 0)) - before) < table.tolerance(index);
        });
    });
}

void check_refusals(ConformanceChecks& checks, SetpointTable& table) {
    const std::string number = std::to_string(missing_index);
    const auto refuses_index = [&](const std::string& operation, const std::function<void()>& body) {
        checks.refuses("SetpointTable." + operation, "error 9 naming an index that there is not",
                       error_number::subscript, number, body);
    };
    refuses_index("value", [&] { table.value(missing_index, 0, 0); });
    refuses_index("write", [&] { table.write(missing_index, 0, 0, 1.0); });
    refuses_index("lower_limit", [&] { table.lower_limit(missing_index); });
    refuses_index("upper_limit", [&] { table.upper_limit(missing_index); });
    refuses_index("resolution", [&] { table.resolution(missing_index); });
    refuses_index("tolerance", [&] { table.tolerance(missing_index); });
    refuses_index("variable_type", [&] { table.variable_type(missing_index); });
    refuses_index("external_name", [&] { table.external_name(missing_index); });
    refuses_index("internal_name", [&] { table.internal_name(missing_index); });
    checks.refuses("SetpointTable.index_of", "error 5 naming an unknown name", error_number::invalid_call, missing_name,
                   [&] { table.index_of(missing_name); });
}

}  // namespace

void check_setpoints(ConformanceChecks& checks, InstrumentGlobals& globals) {
    SetpointTable* table = nullptr;
    checks.check("InstrumentGlobals.setpoints", "there is a table, with the polarity in it", [&] {
        table = &globals.setpoints();
        const double polarity = to_double(table->value(polarity_index, 0, 0));
        return unless(polarity == 0 || polarity == 1, "polarity " + number_text(polarity));
    });
    if (!table) return;
    check_table(checks, *table);
    check_refusals(checks, *table);
}

}  // namespace korvane
