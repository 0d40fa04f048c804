#include <fmt/format.h>

#include "commands.h"
#include "korvane/tune_globals.h"
#include "number_options.h"
#include "setpoints.h"
#include "text_table.h"

namespace korvane::program {

namespace {

struct SetpointChange {
    std::string setpoint;
    std::optional<double> value, delta, wait_seconds;
    bool until_set = false;
};

ExitCode print_setpoint(Session& session, const SetpointDescription& setpoint) {
    if (session.json)
        session.print_json(setpoint_json(setpoint));
    else
        session.print(fmt::format("{}\n", setpoint.value));
    return ExitCode::done;
}

ExitCode get_setpoint(Session& session, const std::string& name) {
    SetpointDescription setpoint = describe_setpoint(session, setpoint_index(session, name));
    setpoint.value = TuneGlobals(session.platform()).GetMSSetpointValueByIdx(setpoint.index);
    return print_setpoint(session, setpoint);
}

ExitCode set_setpoint(Session& session, const SetpointChange& options) {
    if (options.value.has_value() == options.delta.has_value()) throw UsageError("give either a value or --delta");
    SetpointDescription setpoint = describe_setpoint(session, setpoint_index(session, options.setpoint));
    require_within_limits(setpoint, options.value ? *options.value : setpoint.value + *options.delta);
    TuneGlobals globals(session.platform());
    setpoint.value = globals.SetMSSetpointValueByIdx(
        setpoint.index, options.value.value_or(setpoint_value_not_given), options.delta.value_or(0),
        static_cast<float>(options.wait_seconds.value_or(0)), options.until_set);
    return print_setpoint(session, setpoint);
}

ExitCode list_setpoints(Session& session) {
    std::vector<SetpointDescription> setpoints;
    for (const std::int32_t index : session.instrument().setpoints().indexes())
        setpoints.push_back(describe_setpoint(session, index));
    if (session.json) {
        Json rows = Json::array();
        for (const auto& setpoint : setpoints) rows.push_back(setpoint_json(setpoint));
        session.print_json(Json{{"setpoints", std::move(rows)}});
        return ExitCode::done;
    }
    TextTable table({{"index"},
                     {"internal name", Align::left},
                     {"value"},
                     {"lower"},
                     {"upper"},
                     {"resolution"},
                     {"type", Align::left},
                     {"external name", Align::left}});
    for (const auto& setpoint : setpoints)
        table.add({fmt::format("{}", setpoint.index), setpoint.internal_name, fmt::format("{}", setpoint.value),
                   fmt::format("{}", setpoint.lower), fmt::format("{}", setpoint.upper),
                   fmt::format("{}", setpoint.resolution), setpoint.type, setpoint.external_name});
    session.print(table.text());
    return ExitCode::done;
}

constexpr const char* setpoint_help = "index or internal name (korvane setpoint list)";

}  // namespace

void add_setpoint(CLI::App& program, Session& session) {
    CLI::App* group = add_group(program, "setpoint", "read and change the instrument's setpoints");

    auto name = std::make_shared<std::string>();
    CLI::App* get =
        add_command(*group, session, "get", "print a setpoint's value", "korvane setpoint get FragmentTune");
    get->add_option("SETPOINT", *name, setpoint_help)->required();
    on_run(get, session, name, get_setpoint);

    auto options = std::make_shared<SetpointChange>();
    CLI::App* set = add_command(*group, session, "set", "change a setpoint and print the value read back",
                                "korvane setpoint set FragmentTune --delta -5 --until-set");
    set->add_option("SETPOINT", options->setpoint, setpoint_help)->required();
    add_number(*set, "VALUE", options->value, "the new value");
    add_number(*set, "--delta", options->delta, "add this to the value instead");
    add_number(*set, "--wait", options->wait_seconds, "wait so many seconds after the change",
               {.above = 0, .below = 86400});
    set->add_flag("--until-set", options->until_set,
                  "return when a spectrum shows the new value; exit code 5 after 15 s");
    on_run(set, session, options, set_setpoint);

    CLI::App* list = add_command(*group, session, "list", "print all setpoints", "korvane setpoint list");
    on_run(list, session, list_setpoints);
}

}  // namespace korvane::program
