#include "known_names.h"

#include <fmt/format.h>

#include <cctype>
#include <numeric>
#include <set>

#include "korvane/automation.h"
#include "korvane/listing.h"

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

}  // namespace

std::vector<std::string> setpoint_names(Session& session, SetpointNames which) {
    SetpointTable& table = session.instrument().setpoints();
    std::vector<std::string> names;
    for (const std::int32_t index : table.indexes()) {
        names.push_back(table.internal_name(index));
        if (which == SetpointNames::internal_and_external) names.push_back(table.external_name(index));
    }
    return names;
}

std::vector<std::string> parameter_groups(Session& session, const std::string& tree) {
    std::set<std::string> groups;
    for (const ListedParameter& parameter : list_tune_parameters(session.platform(), tree))
        groups.insert(parameter.group);
    return {groups.begin(), groups.end()};
}

std::vector<std::string> parameter_keys(Session& session, const std::string& tree, const std::string& group) {
    std::vector<std::string> keys;
    for (const ListedParameter& parameter : list_tune_parameters(session.platform(), tree))
        if (parameter.group == group) keys.push_back(parameter.name);
    return keys;
}

std::vector<std::string> preference_names(Session& session) {
    std::vector<std::string> names;
    for (const ListedPreference& preference : list_tune_preferences(session.platform()))
        names.push_back(preference.name);
    return names;
}

std::vector<std::string> member_names() {
    std::vector<std::string> names;
    for (const auto& member : automation::member_summaries()) names.push_back(member.class_name + "." + member.name);
    return names;
}

std::string did_you_mean(std::string_view word, const std::vector<std::string>& known) {
    // A third of the letters may be wrong, and one of a short word.
    std::size_t nearest = std::max<std::size_t>(1, word.size() / 3);
    std::vector<std::string> found;
    for (const std::string& candidate : known) {
        const std::size_t distance = word_distance(word, candidate);
        if (distance > nearest || candidate.size() <= distance) continue;
        if (distance < nearest) found.clear();
        nearest = distance;
        if (!std::ranges::count(found, candidate)) found.push_back(candidate);
    }
    return found.empty() ? "" : fmt::format("; did you mean {}?", fmt::join(found, " or "));
}

}  // namespace korvane::program
