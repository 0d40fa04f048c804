#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "calibrants.h"
#include "commands.h"
#include "korvane/cal_mass_list.h"
#include "korvane/listing.h"
#include "mass_list_check.h"
#include "number_options.h"
#include "text_table.h"

namespace korvane::program {

namespace {

// Which list: what the options leave open is what the instrument is set to.
struct ListChoice {
    std::string source, polarity;
    bool all = false;
};

struct MassListChange {
    ListChoice choice;
    std::vector<double> masses, unused;
};

void fill_in(ListChoice& choice, Session& session) {
    TuneGlobals globals(session.platform());
    if (choice.source.empty()) choice.source = current_mass_list_source(session, globals);
    if (choice.polarity.empty()) choice.polarity = globals.GetPolarityStr();
}

ListedMassList chosen_list(const std::vector<ListedMassList>& lists, const ListChoice& choice, Session& session) {
    const auto found = std::find_if(lists.begin(), lists.end(), [&](const ListedMassList& list) {
        return list.source == choice.source && list.polarity == choice.polarity;
    });
    if (found != lists.end()) return *found;
    throw Error(error_number::file_or_element, "masslist",
                fmt::format("no list for source {} and {} polarity in {}", choice.source, choice.polarity,
                            default_mass_list_file(session.platform())));
}

Json list_json(const ListedMassList& list) {
    Json masses = Json::array();
    for (const auto& mass : list.masses) masses.push_back(Json{{"mass", mass.text}, {"used", mass.used}});
    for (Json& row : masses)
        if (const auto number = parse_number(row["mass"].get<std::string>())) row["mass"] = *number;
    return Json{{"source", list.source}, {"polarity", list.polarity}, {"masses", std::move(masses)}};
}

void print_lists(Session& session, const std::vector<ListedMassList>& lists) {
    if (session.json) {
        Json rows = Json::array();
        for (const ListedMassList& list : lists) rows.push_back(list_json(list));
        session.print_json(Json{{"file", default_mass_list_file(session.platform())}, {"lists", std::move(rows)}});
        return;
    }
    TextTable table({{"source", Align::left}, {"polarity", Align::left}, {"m/z"}, {"used", Align::left}});
    for (const ListedMassList& list : lists)
        for (const auto& mass : list.masses) table.add({list.source, list.polarity, mass.text, mass.used});
    session.print(table.text());
}

ExitCode show_list(Session& session, ListChoice choice) {
    if (choice.all) {
        print_lists(session, list_mass_lists(session.platform()));
        return ExitCode::done;
    }
    fill_in(choice, session);
    print_lists(session, {chosen_list(list_mass_lists(session.platform()), choice, session)});
    return ExitCode::done;
}

std::string list_text(const MassListChange& options) {
    std::vector<std::pair<double, char>> masses;
    for (const double mass : options.masses) masses.emplace_back(mass, '1');
    for (const double mass : options.unused) masses.emplace_back(mass, '0');
    std::sort(masses.begin(), masses.end());
    std::string text;
    for (const auto& [mass, used] : masses) text += fmt::format("{}{}\t{}", text.empty() ? "" : "\n", used, mass);
    return text;
}

ExitCode set_list(Session& session, MassListChange options) {
    fill_in(options.choice, session);
    chosen_list(list_mass_lists(session.platform()), options.choice, session);
    const std::string file = default_mass_list_file(session.platform());
    CalMassList lists(session.platform());
    lists.OpenMassListFile(file);
    lists.UpdateMassList(options.choice.source, options.choice.polarity, list_text(options));
    lists.SaveMassListToFile(file);
    return show_list(session, options.choice);
}

ExitCode check_list(Session& session) {
    const auto lists = list_mass_lists(session.platform());
    std::vector<std::string> faults;
    for (const ListedMassList& list : lists)
        for (std::string& fault : mass_list_faults(list)) faults.push_back(std::move(fault));
    if (lists.empty()) faults.push_back("the file holds no lists");
    const std::string file = default_mass_list_file(session.platform());
    if (session.json) {
        session.print_json(Json{{"file", file}, {"lists", lists.size()}, {"faults", faults}});
    } else {
        for (const std::string& fault : faults) session.print(fault + "\n");
        if (faults.empty()) session.print(fmt::format("{} lists, no faults\n", lists.size()));
    }
    if (faults.empty()) return ExitCode::done;
    session.talk(failure_line(
        Error(error_number::routine_detected, "masslist check", fmt::format("{} faults in {}", faults.size(), file)),
        {}));
    return ExitCode::check_failed;
}

void add_choice(CLI::App& command, ListChoice& choice) {
    command.add_option("--source", choice.source, "ion source, such as ESI (the instrument's)")->type_name("NAME");
    command.add_option("--polarity", choice.polarity, "Positive or Negative (the instrument's)")
        ->type_name("NAME")
        ->check(CLI::IsMember({"Positive", "Negative"}));
}

}  // namespace

void add_masslist(CLI::App& program, Session& session) {
    CLI::App* group = add_group(program, "masslist", "the calibrant masses by ion source and polarity");

    auto shown = std::make_shared<ListChoice>();
    CLI::App* show =
        add_command(*group, session, "show", "print a mass list", "korvane masslist show --polarity Negative");
    add_choice(*show, *shown);
    show->add_flag("--all", shown->all, "all lists of the file");
    on_run(show, session, shown, show_list);

    auto setting = std::make_shared<MassListChange>();
    CLI::App* set = add_command(*group, session, "set", "replace a mass list; it is kept in ascending order",
                                "korvane masslist set 158.9640 294.9388 566.8885 838.8381 --source ESI");
    add_numbers(*set, "MASS", setting->masses, "m/z of the calibrants in use", positive)->required();
    add_numbers(*set, "--unused", setting->unused, "m/z to list as not used", positive);
    add_choice(*set, setting->choice);
    on_run(set, session, setting, set_list);

    CLI::App* check =
        add_command(*group, session, "check",
                    "check every list of the file: numbers, ascending, enough of them; exit code 1 on faults",
                    "korvane masslist check");
    on_run(check, session, check_list);
}

}  // namespace korvane::program
