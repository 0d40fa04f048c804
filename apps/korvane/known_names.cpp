#include "known_names.h"

#include <set>

#include "korvane/automation.h"
#include "korvane/listing.h"

namespace korvane::program {

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

}  // namespace korvane::program
