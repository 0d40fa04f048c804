#include "self_description.h"

#include <cctype>
#include <numeric>

#include "commands.h"
#include "korvane/automation.h"
#include "korvane/listing.h"
#include "run.h"

namespace korvane::program {

namespace {

/// Letters to put in, take out, change or swap with their neighbour to come from one word to the other, without regard
/// to case (optimal string alignment: Damerau, Comm. ACM 7 (1964) 171).
std::size_t word_distance(std::string_view from, std::string_view to) {
    const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    std::vector<std::size_t> before_last, last, row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= from.size(); ++i) {
        before_last = std::exchange(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t change = same(from[i - 1], to[j - 1]) ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + change});
            if (i > 1 && j > 1 && same(from[i - 1], to[j - 2]) && same(from[i - 2], to[j - 1]))
                row[j] = std::min(row[j], before_last[j - 2] + 1);
        }
    }
    return row.back();
}

// ---- names ----

template <class Rows, class Name>
WordList names_of(const Rows& rows, Name name) {
    WordList names;
    for (const auto& row : rows) names.emplace_back(std::invoke(name, row));
    return names;
}

// ---- completion ----

/// Where the words stand: in which command, with which of its arguments given, and behind which option.
struct Place {
    CLI::App* command = nullptr;
    WordList given;
    CLI::Option* value_of = nullptr;
};

/// Options of the program that the words give count from here on.
Place place_of(CLI::App& program, const WordList& words) {
    Place place{&program, {}, nullptr};
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const std::string& word = words[i];
        if (place.value_of) {
            if (place.value_of == program.get_option_no_throw(words[i - 1]))
                place.value_of->add_result(word)->run_callback();
            place.value_of = nullptr;
        } else if (word.starts_with("-")) {
            for (CLI::App* owner = place.command; owner && !place.value_of; owner = owner->get_parent())
                place.value_of = owner->get_option_no_throw(word);
            if (place.value_of && place.value_of->get_items_expected_max() == 0) place.value_of = nullptr;
        } else {
            const auto named =
                place.command->get_subcommands([&](CLI::App* child) { return child->get_name() == word; });
            if (named.empty())
                place.given.push_back(word);
            else
                place.command = named.front();
        }
    }
    return place;
}

WordList words_at(Session& session, const Place& place, const std::string& begun) {
    if (place.value_of) return names_for(session, place.value_of->get_name(), place.given);
    if (begun.starts_with("-")) return words_that_may_follow(*place.command, true);
    if (place.command->get_name() == "call" && place.given.empty()) return names_for(session, "MEMBER");
    WordList words = words_that_may_follow(*place.command, false);
    std::size_t position = 0;
    for (const CLI::Option* option : place.command->get_options())
        if (option->get_positional() && (position++ == place.given.size() || option->get_items_expected_max() > 1))
            for (std::string& value : names_for(session, option->get_name(true), place.given))
                words.push_back(std::move(value));
    return words;
}

}  // namespace

WordList names_for(Session& session, const std::string& kind, const WordList& given, const std::string& tree) try {
    const auto is_one_of = [&](const WordList& names) { return std::ranges::count(names, kind) > 0; };
    if (kind == "SETPOINT") {
        SetpointTable& table = session.instrument().setpoints();
        return names_of(table.indexes(), [&](std::int32_t index) { return table.internal_name(index); });
    }
    if (is_one_of({"MASS", "--mass", "--mz"}))
        return names_of(chosen_masses(session, {}), [](double mass) { return fmt::format("{}", mass); });
    if (kind == "GROUP") return names_of(list_tune_parameters(session.platform(), tree), &ListedParameter::group);
    if (kind == "KEY") {
        std::vector<ListedParameter> keys = list_tune_parameters(session.platform(), tree);
        std::erase_if(keys, [&](const ListedParameter& key) { return given.empty() || key.group != given.back(); });
        return names_of(keys, &ListedParameter::name);
    }
    if (kind == "NAME") return names_of(list_tune_preferences(session.platform()), &ListedPreference::name);
    if (kind == "MEMBER")
        return names_of(automation::member_summaries(),
                        [](const auto& member) { return member.class_name + "." + member.name; });
    if (is_one_of({"RECORD", "--record"})) {
        WordList ids = names_of(open_history(session, false).list(20),
                                [](const TuneRecord& record) { return std::to_string(record.id); });
        ids.insert(ids.end(), {"last", "yesterday", "last-week"});
        return ids;
    }
    if (kind == "--source") return names_of(list_mass_lists(session.platform()), &ListedMassList::source);
    if (kind == "--polarity") return {"Positive", "Negative"};
    if (is_one_of({"FILE", "DIR", "LAYER", "TEXT", "--base", "--replay", "--scene", "--instrument"})) return {"*files"};
    return {};
} catch (const Error&) {
    return {};  // who needs them will say why
}

std::string did_you_mean(std::string_view word, const WordList& known) {
    // A third of the letters may be wrong, and one of a short word.
    std::size_t nearest = std::max<std::size_t>(1, word.size() / 3);
    WordList found;
    for (const std::string& candidate : known) {
        const std::size_t distance = word_distance(word, candidate);
        if (distance > nearest || candidate.size() <= distance) continue;
        if (distance < nearest) found.clear();
        nearest = distance;
        if (!std::ranges::count(found, candidate)) found.push_back(candidate);
    }
    return found.empty() ? "" : fmt::format("; did you mean {}?", fmt::join(found, " or "));
}

void suggesting(Session& session, const std::vector<std::pair<const char*, std::string>>& words,
                const std::function<void()>& work, const std::string& tree) {
    try {
        work();
    } catch (const Error& error) {
        std::string text = error.description();
        WordList given;
        for (const auto& [kind, word] : words) {
            const WordList known = names_for(session, kind, given, tree);
            if (!std::ranges::count(known, word)) text += did_you_mean(word, known);
            given.push_back(word);
        }
        throw error.described(text);
    }
}

WordList words_that_may_follow(const CLI::App& command, bool options) {
    WordList names;
    const auto is_shown = [&](const CLI::App* child) { return !options && !child->get_group().empty(); };
    for (const CLI::App* child : command.get_subcommands(is_shown)) names.push_back(child->get_name());
    for (const CLI::App* owner = &command; options && owner; owner = owner->get_parent())
        for (const CLI::Option* option : owner->get_options())
            for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    return names;
}

WordList completions(Session& session, CLI::App& program, const WordList& words) {
    const std::string begun = words.empty() ? "" : words.back();
    WordList found;
    try {
        found = words_at(session, place_of(program, words), begun);
    } catch (const CLI::ParseError&) {
        // Nothing to complete with: the command itself will say why.
    }
    std::erase_if(found, [&](const std::string& word) { return !word.starts_with('*') && !word.starts_with(begun); });
    std::ranges::sort(found);
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

}  // namespace korvane::program
