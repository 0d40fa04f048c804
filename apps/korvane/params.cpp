#include <fmt/format.h>

#include "commands.h"
#include "korvane/listing.h"
#include "korvane/tune_params_xml.h"
#include "number_options.h"
#include "text_table.h"

namespace korvane::program {

namespace {

constexpr const char* autotune_tree = "AutotuneParameters";
constexpr const char* manual_tree = "ManualTuneParameters";

struct ParameterOptions {
    std::string group, key, tree = autotune_tree;
    std::string text;  // as given, so that the file keeps it so
};

ExitCode print_parameter(Session& session, const ParameterOptions& options, double value) {
    if (session.json)
        session.print_json(
            Json{{"tree", options.tree}, {"group", options.group}, {"key", options.key}, {"value", value}});
    else
        session.print(fmt::format("{}\n", value));
    return ExitCode::done;
}

double read_parameter(Session& session, const ParameterOptions& options) {
    clsTuneParamsXML store(session.platform());
    if (options.tree == autotune_tree) return store.GetAutotuneLimitValue(options.group, options.key);
    if (options.tree == manual_tree) return store.GetManualTuneValue(options.group, options.key);
    return store.GetTuneParamByXMLPath("/QTOFTuneParams/TOF/" + options.tree + "/" + options.group, options.key);
}

ExitCode get_parameter(Session& session, const ParameterOptions& options) {
    return print_parameter(session, options, read_parameter(session, options));
}

ExitCode set_parameter(Session& session, const ParameterOptions& options) {
    clsTuneParamsXML(session.platform()).WriteTuneParamValue(options.group, options.key, options.text, options.tree);
    return print_parameter(session, options, read_parameter(session, options));
}

ExitCode list_parameters(Session& session, const ParameterOptions& options) {
    const auto parameters = list_tune_parameters(session.platform(), options.tree);
    if (session.json) {
        Json groups = Json::object();
        for (const ListedParameter& parameter : parameters) groups[parameter.group][parameter.name] = parameter.text;
        session.print_json(Json{{"tree", options.tree}, {"groups", std::move(groups)}});
        return ExitCode::done;
    }
    TextTable table({{"group", Align::left}, {"key", Align::left}, {"value", Align::left}});
    for (const ListedParameter& parameter : parameters) table.add({parameter.group, parameter.name, parameter.text});
    session.print(table.text());
    return ExitCode::done;
}

void add_tree(CLI::App& command, std::string& tree) {
    command.add_option("--tree", tree, "tree of the file below TOF: AutotuneParameters, ManualTuneParameters, ...")
        ->type_name("TREE")
        ->capture_default_str();
}

void add_key(CLI::App& command, ParameterOptions& options) {
    command.add_option("GROUP", options.group, "group, such as RampParams")->required();
    command.add_option("KEY", options.key, "key, such as MinimumAcceptableAbundance")->required();
}

}  // namespace

void add_params(CLI::App& program, Session& session) {
    CLI::App* group = add_group(program, "params", "read and change the numbers in TuneParams.xml");
    auto options = std::make_shared<ParameterOptions>();

    CLI::App* get = add_command(*group, session, "get", "print a parameter",
                                "korvane params get RampParams MinimumAcceptableAbundance");
    add_key(*get, *options);
    add_tree(*get, options->tree);
    on_run(get, session, options, get_parameter);

    CLI::App* set = add_command(*group, session, "set", "change a parameter that exists",
                                "korvane params set PeakHandling PeakFindWindowInPercentT 0.2");
    add_key(*set, *options);
    set->add_option("VALUE", options->text, "the new number")->required()->check([](const std::string& text) {
        return parse_number(text) ? std::string() : "VALUE: \"" + text + "\" is not a number";
    });
    add_tree(*set, options->tree);
    on_run(set, session, options, set_parameter);

    CLI::App* list = add_command(*group, session, "list", "print all parameters of a tree",
                                 "korvane params list --tree ManualTuneParameters");
    add_tree(*list, options->tree);
    on_run(list, session, options, list_parameters);
}

}  // namespace korvane::program
