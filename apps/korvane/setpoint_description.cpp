#include "setpoint_description.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <functional>

#include "calibrants.h"
#include "commands.h"
#include "known_names.h"
#include "korvane/instrument_contract.h"

namespace korvane::program {

namespace {

std::string type_text(std::int32_t code) {
    constexpr auto& type = contract::variable_type;
    return code == type.int32.key   ? "int32"
           : code == type.real.key  ? "double"
           : code == type.int16.key ? "int16"
                                    : fmt::format("type {}", code);
}

}  // namespace

SetpointDescription describe_setpoint(Session& session, std::int32_t index) {
    SetpointTable& table = session.instrument().setpoints();
    return {index,
            table.internal_name(index),
            table.external_name(index),
            number_of(table.value(index, 0, 0), "setpoint value"),
            table.lower_limit(index),
            table.upper_limit(index),
            table.resolution(index),
            type_text(table.variable_type(index))};
}

bool same_but_for_case(std::string_view text, std::string_view other) {
    const auto folded = [](unsigned char c) { return std::tolower(c); };
    return std::ranges::equal(text, other, {}, folded, folded);
}

SetpointDescription setpoint_named(Session& session, const std::string& text) {
    SetpointTable& table = session.instrument().setpoints();
    const auto number = parse_integer(text);
    const std::vector<std::int32_t> indexes = table.indexes();
    const std::function<bool(std::int32_t)> meanings[] = {
        [&](std::int32_t index) { return number ? index == *number : table.internal_name(index) == text; },
        [&](std::int32_t index) { return same_but_for_case(table.internal_name(index), text); },
        [&](std::int32_t index) { return same_but_for_case(table.external_name(index), text); }};
    for (const auto& meant : meanings)
        if (const auto found = std::ranges::find_if(indexes, meant); found != indexes.end())
            return describe_setpoint(session, *found);
    throw UsageError(fmt::format("the instrument has no setpoint {} (korvane setpoint list shows them){}", text,
                                 did_you_mean(text, setpoint_names(session, SetpointNames::internal_and_external))));
}

void require_whole(const SetpointDescription& setpoint, double value) {
    if (setpoint.type != "double" && value != std::trunc(value))
        throw UsageError(fmt::format("setpoint {} ({}) takes whole numbers only, not {}", setpoint.index,
                                     setpoint.internal_name, value));
}

void require_within_limits(const SetpointDescription& setpoint, double value) {
    if (value < setpoint.lower || value > setpoint.upper)
        throw UsageError(fmt::format("{} lies outside the limits of setpoint {} ({}), {} to {}", value, setpoint.index,
                                     setpoint.internal_name, setpoint.lower, setpoint.upper));
}

double followed_value(Session& session, const SetpointDescription& setpoint, double wanted) {
    SetpointTable& table = session.instrument().setpoints();
    const double shown = number_of(table.value(setpoint.index, 0, 0), "setpoint value");
    const double rounding = 1e-9 * std::abs(wanted);
    if (std::abs(shown - wanted) <= std::max(table.tolerance(setpoint.index), rounding)) return shown;
    throw Error(error_number::setpoint_not_reached, "",
                fmt::format("the instrument did not follow: setpoint {} ({}) shows {}, not {}", setpoint.index,
                            setpoint.internal_name, shown, wanted));
}

CLI::Option* add_setpoint(CLI::App& command, std::string& setpoint) {
    return command.add_option("SETPOINT", setpoint, "index or name (korvane setpoint list)")->required();
}

}  // namespace korvane::program
