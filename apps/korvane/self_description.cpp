#include "self_description.h"

#include <fmt/format.h>

#include <map>

#include "commands.h"
#include "known_names.h"
#include "korvane/listing.h"
#include "run.h"

namespace korvane::program {

namespace {

using WordList = std::vector<std::string>;

// ---- manual pages ----

/// The text as roff prints it: minus signs that can be copied, no line taken for a request.
std::string roff(std::string_view text) {
    std::string out;
    bool line_begins = true;
    for (const char character : text) {
        if (line_begins && (character == '.' || character == '\'')) out += "\\&";
        if (character == '\\' || character == '-') out += '\\';
        out += character == '\\' ? "e" : std::string(1, character);
        line_begins = character == '\n';
    }
    return out;
}

std::string option_line(const CLI::Option& option) {
    std::string line = "\\fB" + roff(option.get_name(option.get_positional(), true)) + "\\fR";
    if (option.get_items_expected_max() > 0 && !option.get_positional())
        line += " \\fI" + roff(option.get_type_name()) + "\\fR";
    return fmt::format(".TP\n{}\n{}\n", line, roff(option.get_description()));
}

std::string options_of(const CLI::App& command) {
    std::string text;
    for (const CLI::Option* option : command.get_options()) text += option_line(*option);
    return text;
}

/// Those that are shown.
std::vector<const CLI::App*> commands_of(const CLI::App& command) {
    return command.get_subcommands([](const CLI::App* child) { return !child->get_group().empty(); });
}

// ---- completion ----

WordList calibrant_masses(Session& session) {
    TuneGlobals globals(session.platform());
    WordList masses;
    for (const double mass : chosen_masses(session, globals, {})) masses.push_back(fmt::format("{}", mass));
    return masses;
}

WordList record_ids(Session& session) {
    WordList ids{"last", "yesterday", "last-week"};
    for (const TuneRecord& record : open_history(session, false).list(20)) ids.push_back(std::to_string(record.id));
    return ids;
}

WordList list_sources(Session& session) {
    WordList sources;
    for (const ListedMassList& list : list_mass_lists(session.platform())) sources.push_back(list.source);
    return sources;
}

/// What an argument may be, by its name, or by that of its kind.
WordList values_for(Session& session, const std::string& name, const WordList& given) {
    const auto is_one_of = [&](const WordList& names) { return std::ranges::count(names, name) > 0; };
    if (name == "SETPOINT") return setpoint_names(session, SetpointNames::internal);
    if (is_one_of({"MASS", "--mass", "--mz"})) return calibrant_masses(session);
    if (name == "GROUP") return parameter_groups(session, autotune_tree);
    if (name == "KEY") return given.empty() ? WordList() : parameter_keys(session, autotune_tree, given.back());
    if (name == "NAME") return preference_names(session);
    if (is_one_of({"RECORD", "--record"})) return record_ids(session);
    if (name == "--source") return list_sources(session);
    if (name == "--polarity") return {"Positive", "Negative"};
    if (is_one_of({"FILE", "DIR", "LAYER", "TEXT", "--base", "--replay", "--scene", "--instrument"})) return {"*files"};
    return {};
}

/// Where the words stand: in which command, with which of its arguments given, and behind which option.
struct Place {
    const CLI::App* command = nullptr;
    WordList given;
    const CLI::Option* value_of = nullptr;
};

Place place_of(Session& session, const CLI::App& program, const WordList& words) {
    Place place{&program, {}, nullptr};
    const std::map<std::string, std::optional<std::string>*> chosen{{"--base", &session.options.base},
                                                                    {"--replay", &session.options.replay},
                                                                    {"--scene", &session.options.scene},
                                                                    {"--instrument", &session.options.instrument}};
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const std::string& word = words[i];
        if (place.value_of) {
            if (const auto choice = chosen.find(words[i - 1]); choice != chosen.end()) *choice->second = word;
            place.value_of = nullptr;
        } else if (word.starts_with("-")) {
            for (const CLI::App* owner = place.command; owner && !place.value_of; owner = owner->get_parent())
                place.value_of = owner->get_option_no_throw(word);
            if (place.value_of && place.value_of->get_items_expected_max() == 0) place.value_of = nullptr;
        } else {
            const CLI::App* const above = place.command;
            for (const CLI::App* child : commands_of(*above))
                if (child->get_name() == word) place.command = child;
            if (place.command == above) place.given.push_back(word);
        }
    }
    return place;
}

WordList words_at(Session& session, const Place& place, const std::string& begun) {
    if (place.value_of) return values_for(session, place.value_of->get_name(), place.given);
    if (begun.starts_with("-")) return words_that_may_follow(*place.command, true);
    if (place.command->get_name() == "call" && place.given.empty()) return member_names();
    WordList words = words_that_may_follow(*place.command, false);
    std::size_t position = 0;
    for (const CLI::Option* option : place.command->get_options())
        if (option->get_positional() && (position++ == place.given.size() || option->get_items_expected_max() > 1))
            for (std::string& value : values_for(session, option->get_name(true), place.given))
                words.push_back(std::move(value));
    return words;
}

}  // namespace

std::string manual_page(const CLI::App& command) {
    const CLI::App* const parent = command.get_parent();
    const std::string whole = parent ? "korvane " + command.get_name() : "korvane";
    const std::string title = parent ? "korvane-" + command.get_name() : "korvane";
    const auto children = commands_of(command);
    std::string page =
        fmt::format(".TH {} 1 \"\" \"korvane " KORVANE_VERSION "\" \"User Commands\"\n.SH NAME\n{} \\- {}\n",
                    roff(title), roff(title), parent ? roff(command.get_description()) : "measure and adjust a tune");
    page += fmt::format(".SH SYNOPSIS\n.B {}\n[OPTIONS]{}", roff(whole), children.empty() ? "" : " COMMAND");
    for (const CLI::Option* option : command.get_options())
        if (option->get_positional())
            page += option->get_required() ? " " + option->get_name(true) : " [" + option->get_name(true) + "]";
    page += "\n.SH DESCRIPTION\n" + roff(command.get_description()) + "\n.SH OPTIONS\n" + options_of(command);
    if (!children.empty()) page += ".SH COMMANDS\n";
    for (const CLI::App* child : children) {
        const std::string name = parent ? whole + " " + child->get_name() : title + "-" + child->get_name() + "(1)";
        page += fmt::format("{}{}\n{}\n", parent ? ".SS " : ".TP\n.B ", roff(name), roff(child->get_description()));
        if (parent) page += options_of(*child) + ".PP\n.nf\n" + roff(child->get_footer()) + ".fi\n";
    }
    return page + ".SH NOTES\n.nf\n" + roff(command.get_footer()) + "\n.fi\n" +
           (parent ? ".SH SEE ALSO\n.BR korvane (1)\n" : "");
}

std::vector<std::string> words_that_may_follow(const CLI::App& command, bool options) {
    WordList names;
    if (!options)
        for (const CLI::App* child : commands_of(command)) names.push_back(child->get_name());
    for (const CLI::App* owner = &command; options && owner; owner = owner->get_parent())
        for (const CLI::Option* option : owner->get_options())
            for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    return names;
}

std::vector<std::string> completions(Session& session, const CLI::App& program, const std::vector<std::string>& words) {
    const std::string begun = words.empty() ? "" : words.back();
    WordList found;
    try {
        for (std::string& word : words_at(session, place_of(session, program, words), begun))
            if (word.starts_with('*') || word.starts_with(begun)) found.push_back(std::move(word));
    } catch (const Error&) {
        // Nothing to complete with: the command itself will say why.
    }
    std::ranges::sort(found);
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

}  // namespace korvane::program
