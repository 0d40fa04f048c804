#include "commands.h"
#include "korvane/listing.h"
#include "korvane/tune_prefs_xml.h"
#include "text_table.h"

namespace korvane::program {

namespace {

struct PreferenceOptions {
    std::string name, value;
};

ExitCode print_preference(Session& session, const std::string& name) {
    const std::string value = clsTunePrefsXML(session.platform()).GetTunePreference(name);
    if (session.json)
        session.print_json(Json{{"name", name}, {"value", value}});
    else
        session.print(value + "\n");
    return ExitCode::done;
}

ExitCode get_preference(Session& session, const PreferenceOptions& options) {
    return print_preference(session, options.name);
}

ExitCode set_preference(Session& session, const PreferenceOptions& options) {
    clsTunePrefsXML(session.platform()).WriteTunePreference(options.name, options.value);
    return print_preference(session, options.name);
}

ExitCode list_preferences(Session& session) {
    const auto preferences = list_tune_preferences(session.platform());
    if (session.json) {
        Json values = Json::object();
        for (const ListedPreference& preference : preferences) values[preference.name] = preference.text;
        session.print_json(Json{{"preferences", std::move(values)}});
        return ExitCode::done;
    }
    TextTable table({{"name", Align::left}, {"value", Align::left}});
    for (const ListedPreference& preference : preferences) table.add({preference.name, preference.text});
    session.print(table.text());
    return ExitCode::done;
}

}  // namespace

void add_prefs(CLI::App& program, Session& session) {
    CLI::App* group = add_group(program, "prefs", "read and change the switches in TunePreferences.xml");
    auto options = std::make_shared<PreferenceOptions>();

    CLI::App* get = add_command(*group, session, "get", "print a preference", "korvane prefs get AIC_RunFastVersion");
    get->add_option("NAME", options->name, "name of the preference")->required();
    on_run(get, session, options, get_preference);

    CLI::App* set = add_command(*group, session, "set", "change a preference that exists",
                                "korvane prefs set LogSetpointTraffic Yes");
    set->add_option("NAME", options->name, "name of the preference")->required();
    set->add_option("VALUE", options->value, "the new text, written as given")->required();
    on_run(set, session, options, set_preference);

    CLI::App* list = add_command(*group, session, "list", "print all preferences", "korvane prefs list --json");
    on_run(list, session, list_preferences);
}

}  // namespace korvane::program
