// The files of a base folder: making one, parameters, preferences, mass lists, the abort flag, old logs.
#include <algorithm>
#include <array>
#include <chrono>
#include <regex>

#include "commands.h"
#include "korvane/abort_helper.h"
#include "korvane/cal_mass_list.h"
#include "korvane/listing.h"
#include "korvane/system.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "run.h"
#include "self_description.h"

namespace korvane::program {

namespace {

ExitCode init(Session& session, const std::optional<std::string>& wanted) {
    const auto path = std::filesystem::absolute(path_of(*wanted));
    create_base_folder(path);
    return session.show(Json{{"base_folder", utf8_of(path)}}, utf8_of(path) + "\n");
}

constexpr const char* manual_tree = "ManualTuneParameters";

struct ParameterOptions {
    std::string group, key, tree = autotune_tree;
    std::optional<std::string> text;  // to write, as given, so that the file keeps it so
};

/// Names of elements, and nothing that a query would read otherwise.
void require_name(const std::string& name) {
    static const std::regex plain("[A-Z_a-z\\x80-\\xFF][-.0-9A-Z_a-z\\x80-\\xFF]*");
    if (!std::regex_match(name, plain)) throw UsageError(fmt::format("\"{}\" is not a name", name));
}

double parameter(Session& session, const ParameterOptions& options) {
    clsTuneParamsXML store(session.platform());
    if (options.text) store.WriteTuneParamValue(options.group, options.key, stored_number(*options.text), options.tree);
    if (options.tree == autotune_tree) return store.GetAutotuneLimitValue(options.group, options.key);
    if (options.tree == manual_tree) return store.GetManualTuneValue(options.group, options.key);
    return store.GetTuneParamByXMLPath("/QTOFTuneParams/TOF/" + options.tree + "/" + options.group, options.key);
}

ExitCode show_parameter(Session& session, const ParameterOptions& options) {
    for (const std::string& name : {options.tree, options.group, options.key}) require_name(name);
    double value = 0;
    suggesting(
        session, {{"GROUP", options.group}, {"KEY", options.key}}, [&] { value = parameter(session, options); },
        options.tree);
    return session.show(Json{{"tree", options.tree}, {"group", options.group}, {"key", options.key}, {"value", value}},
                        fmt::format("{}\n", value));
}

ExitCode list_parameters(Session& session, const ParameterOptions& options) {
    require_name(options.tree);
    Json groups = Json::object();
    Table table({"<group", "<key", "<value"});
    for (const ListedParameter& parameter : list_tune_parameters(session.platform(), options.tree)) {
        groups[parameter.group][parameter.name] = parameter.text;
        table.add(parameter.group, parameter.name, parameter.text);
    }
    return session.show(Json{{"tree", options.tree}, {"groups", std::move(groups)}}, table);
}

void add_tree(CLI::App& command, ParameterOptions& options) {
    command
        .add_option("--tree", options.tree, "tree of the file below TOF: AutotuneParameters, ManualTuneParameters, ...")
        ->type_name("TREE")
        ->capture_default_str();
}

void add_key(CLI::App& command, ParameterOptions& options) {
    command.add_option("GROUP", options.group, "group, such as RampParams")->required();
    command.add_option("KEY", options.key, "key, such as MinimumAcceptableAbundance")->required();
}

struct PreferenceOptions {
    std::string name;
    std::optional<std::string> text;  // to write
};

ExitCode show_preference(Session& session, const PreferenceOptions& options) {
    require_name(options.name);
    clsTunePrefsXML store(session.platform());
    std::string value;
    suggesting(session, {{"NAME", options.name}}, [&] {
        if (options.text) store.WriteTunePreference(options.name, *options.text);
        value = store.GetTunePreference(options.name);
    });
    return session.show(Json{{"name", options.name}, {"value", value}}, value + "\n");
}

ExitCode list_preferences(Session& session, const NoOptions&) {
    Json values = Json::object();
    Table table({"<name", "<value"});
    for (const ListedPreference& preference : list_tune_preferences(session.platform())) {
        values[preference.name] = preference.text;
        table.add(preference.name, preference.text);
    }
    return session.show(Json{{"preferences", std::move(values)}}, table);
}

// Which list: what the options leave open is what the instrument is set to.
struct ListChoice {
    std::string source, polarity;
    bool all = false;
};

struct MassListChange {
    ListChoice choice;
    std::vector<double> masses, unused;
};

ListChoice filled_in(ListChoice choice, Session& session) {
    if (choice.source.empty())
        choice.source = session.globals().GetMassListTypeFromSourceTypeString(session.instrument().source_type());
    if (choice.polarity.empty()) choice.polarity = session.globals().GetPolarityStr();
    if (choice.source.find_first_of("'\"<>&[]/=") != std::string::npos)
        throw UsageError(fmt::format("\"{}\" is not a name", choice.source));
    return choice;
}

ListedMassList chosen_list(Session& session, const ListChoice& choice) {
    for (ListedMassList& list : list_mass_lists(session.platform()))
        if (list.source == choice.source && list.polarity == choice.polarity) return std::move(list);
    throw Error(error_number::file_or_element, "masslist",
                fmt::format("no list for source {} and {} polarity in {}", choice.source, choice.polarity,
                            default_mass_list_file(session.platform())));
}

ExitCode show_lists(Session& session, const ListChoice& choice) {
    const auto lists = choice.all ? list_mass_lists(session.platform())
                                  : std::vector{chosen_list(session, filled_in(choice, session))};
    Json rows = Json::array();
    Table table({"<source", "<polarity", "|mass", "|used", "m/z|text", "<used"});
    for (const ListedMassList& list : lists) {
        const std::size_t first = table.size();
        for (const auto& [used, text] : list.masses)
            table.add(list.source, list.polarity, parse_number(plain_number(text)), used, text, used);
        rows.push_back(Json{{"source", list.source}, {"polarity", list.polarity}, {"masses", table.json(first)}});
    }
    return session.show(Json{{"file", default_mass_list_file(session.platform())}, {"lists", std::move(rows)}}, table);
}

ExitCode set_list(Session& session, const MassListChange& options) {
    const ListChoice choice = filled_in(options.choice, session);
    chosen_list(session, choice);
    std::vector<std::pair<double, char>> masses;
    for (const double mass : options.masses) masses.emplace_back(mass, '1');
    for (const double mass : options.unused) masses.emplace_back(mass, '0');
    std::sort(masses.begin(), masses.end());
    std::string text;
    for (const auto& [mass, used] : masses)
        text += fmt::format("{}{}\t{}", text.empty() ? "" : "\n", used, stored_number(fmt::format("{}", mass)));

    const std::string file = default_mass_list_file(session.platform());
    CalMassList lists(session.platform());
    lists.OpenMassListFile(file);
    lists.UpdateMassList(choice.source, choice.polarity, text);
    lists.SaveMassListToFile(file);
    return show_lists(session, choice);
}

// What the routines that use the lists do not work with, a sentence each.
std::vector<std::string> faults_of(const std::vector<ListedMassList>& lists) {
    constexpr std::size_t least_calibrants = 4;
    std::vector<std::string> faults;
    if (lists.empty()) faults.emplace_back("the file holds no lists");
    for (const auto& [source, polarity, masses] : lists) {
        const auto add = [&](const std::string& fault) {
            faults.push_back(fmt::format("{}, {}: {}", source, polarity, fault));
        };
        double previous = 0;
        for (const auto& mass : masses) {
            const double number = parse_number(plain_number(mass.text)).value_or(0);
            if (number <= 0)
                add(fmt::format("\"{}\" is not a mass", mass.text));
            else if (number <= std::exchange(previous, number))
                add(mass.text + " does not ascend");
        }
        if (masses.size() < least_calibrants)
            add(fmt::format("{} masses, fewer than {}", masses.size(), least_calibrants));
    }
    return faults;
}

ExitCode check_lists(Session& session, const NoOptions&) {
    const auto lists = list_mass_lists(session.platform());
    const std::vector<std::string> faults = faults_of(lists);
    const std::string file = default_mass_list_file(session.platform());
    session.show(Json{{"file", file}, {"lists", lists.size()}, {"faults", faults}},
                 faults.empty() ? fmt::format("{} lists, no faults\n", lists.size())
                                : fmt::format("{}\n", fmt::join(faults, "\n")));
    return session.checked(faults.empty() ? "" : fmt::format("{} faults in {}", faults.size(), file));
}

void add_list_choice(CLI::App& command, ListChoice& choice) {
    command.add_option("--source", choice.source, "ion source, such as ESI (the instrument's)")->type_name("NAME");
    add_choice(command, "--polarity", choice.polarity, "Positive or Negative (the instrument's)", "NAME",
               std::array{"Positive", "Negative"});
}

ExitCode abort_status(Session& session, const NoOptions&) {
    const bool requested = AbortHelper(session.platform()).UserHasClickedAbort();
    return session.show(Json{{"requested", requested}}, requested ? "abort requested\n" : "no abort requested\n");
}

template <void (AbortHelper::*act)()>
ExitCode change_abort(Session& session, const NoOptions& none) {
    (AbortHelper(session.platform()).*act)();
    return abort_status(session, none);
}

struct PruneOptions {
    std::string age;
    bool dry_run = false;
};

std::chrono::year_month_day date_of(int year, int month, int day) {
    return {std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
            std::chrono::day(static_cast<unsigned>(day))};
}

/// The day in "NAME_YYYYMMDD_HHMMSS.txt" or ".html"; nothing in another name, which is no dated log or report.
std::optional<std::chrono::sys_days> dated_day(const std::string& name) {
    static const std::regex dated(".+_([0-9]{4})([0-9]{2})([0-9]{2})_[0-9]{6}\\.(txt|html)");
    std::smatch parts;
    if (!std::regex_match(name, parts, dated)) return std::nullopt;
    const auto date = date_of(std::stoi(parts[1]), std::stoi(parts[2]), std::stoi(parts[3]));
    return date.ok() ? std::optional<std::chrono::sys_days>(date) : std::nullopt;
}

std::int64_t days_of(const std::string& text) {
    const std::int64_t unit = text.ends_with('w') ? 7 : 1;
    const auto count = parse_integer(std::string_view(text).substr(0, text.size() - (text.empty() ? 0 : 1)));
    if (!count || *count < 0 || *count > 36500 || (!text.ends_with('d') && !text.ends_with('w')))
        throw UsageError(fmt::format("--older-than: \"{}\" is no number of days or weeks, such as 90d or 12w", text));
    return *count * unit;
}

ExitCode prune(Session& session, const PruneOptions& options) {
    const std::int64_t most_days = days_of(options.age);
    const std::string folder = utf8_of(path_of(session.base_folder()) / "Logfiles");
    const LocalTime now = session.platform().clock->now();
    Files& files = *session.platform().files;
    Table table({"<log|file", "age days|age_days"});
    try {
        std::vector<std::string> names = files.list(folder);
        std::ranges::sort(names);
        for (const std::string& name : names) {
            const auto day = dated_day(name);
            if (!day) continue;
            const auto age = (std::chrono::sys_days(date_of(now.year, now.month, now.day)) - *day).count();
            if (age <= most_days) continue;
            if (!options.dry_run) files.remove(utf8_of(path_of(folder) / name));
            table.add(name, age);
        }
    } catch (const FileError& error) {
        throw Error(error.runtime_error_number(), "", folder + ": " + error.what());
    }
    return session.show(Json{{"folder", folder}, {"removed", !options.dry_run}, {"logs", table.json()}}, table);
}

}  // namespace

void declare_init(CLI::App& command, Session& session) {
    auto& folder = runs(command, session, "korvane init ~/tune/instrument-1", init);
    add_name(command, "DIR", folder, "folder to make; must not exist yet, or be empty", "TEXT")->required();
}

void declare_params(CLI::App& group, Session& session) {
    const auto [get, got] = add_command(group, session, "get", "print a parameter",
                                        "korvane params get RampParams MinimumAcceptableAbundance", show_parameter);
    add_key(get, got);
    add_tree(get, got);

    const auto [set, change] =
        add_command(group, session, "set", "change a parameter that exists",
                    "korvane params set PeakHandling PeakFindWindowInPercentT 0.2", show_parameter);
    add_key(set, change);
    set.add_option("VALUE", change.text, "the new number")->required()->check([](const std::string& text) {
        return parse_number(text) ? std::string() : "\"" + text + "\" is not a number";
    });
    add_tree(set, change);

    const auto [list, listed] =
        add_command(group, session, "list", "print all parameters of a tree",
                    "korvane params list --tree ManualTuneParameters", list_parameters, Prints::table);
    add_tree(list, listed);
}

void declare_prefs(CLI::App& group, Session& session) {
    const auto [get, got] = add_command(group, session, "get", "print a preference",
                                        "korvane prefs get AIC_RunFastVersion", show_preference);
    get.add_option("NAME", got.name, "name of the preference")->required();

    const auto [set, change] = add_command(group, session, "set", "change a preference that exists",
                                           "korvane prefs set LogSetpointTraffic Yes", show_preference);
    set.add_option("NAME", change.name, "name of the preference")->required();
    set.add_option("VALUE", change.text, "the new text, written as given")->required();

    add_command(group, session, "list", "print all preferences", "korvane prefs list --json", list_preferences,
                Prints::table);
}

void declare_masslist(CLI::App& group, Session& session) {
    const auto [show, shown] = add_command(group, session, "show", "print a mass list",
                                           "korvane masslist show --polarity Negative", show_lists, Prints::table);
    add_list_choice(show, shown);
    show.add_flag("--all", shown.all, "all lists of the file");

    const auto [set, change] =
        add_command(group, session, "set", "replace a mass list; it is kept in ascending order",
                    "korvane masslist set 158.9640 294.9388 566.8885 838.8381 --source ESI", set_list);
    add_numbers(set, "MASS", change.masses, "m/z of the calibrants in use", positive)->required();
    add_numbers(set, "--unused", change.unused, "m/z to list as not used", positive);
    add_list_choice(set, change.choice);

    add_command(group, session, "check",
                "check every list of the file: numbers, ascending, enough of them; exit code 1 on faults",
                "korvane masslist check", check_lists);
}

void declare_abort(CLI::App& group, Session& session) {
    group.footer("A request stands until it is reset, and ends whatever runs on the base folder with exit code 6.\n");
    add_command(group, session, "request", "make the request", "korvane abort request",
                change_abort<&AbortHelper::TriggerAbort>);
    add_command(group, session, "reset", "take the request back", "korvane abort reset",
                change_abort<&AbortHelper::Reset>);
    add_command(group, session, "status", "tell whether there is a request", "korvane abort status", abort_status);
}

void declare_logs(CLI::App& group, Session& session) {
    const auto [command, options] =
        add_command(group, session, "prune",
                    "remove dated logs and reports (NAME_YYYYMMDD_HHMMSS.txt, .html) of the folder Logfiles",
                    "korvane logs prune --older-than 90d", prune, Prints::table);
    command.add_option("--older-than", options.age, "days or weeks, such as 90d or 12w")->type_name("AGE")->required();
    command.add_flag("--dry-run", options.dry_run, "tell which, and remove nothing");
}

}  // namespace korvane::program
