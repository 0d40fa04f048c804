#include "instrument/replay/mzml_terms.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace korvane::replay {

std::size_t parse_count(const pugi::xml_attribute& attribute, const std::string& what, const RecordingPlace& place) {
    const std::string text = attribute.value();
    const bool digits = !text.empty() && text.size() <= 18 && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits) place.fail(what, " [", text, "] is not a count");
    return static_cast<std::size_t>(std::stoull(text));
}

double parse_number(std::string_view text, const std::string& what, const RecordingPlace& place) {
    double number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
        place.fail(what, " [", text, "] is not a number");
    return number;
}

ParameterGroups parameter_groups(const pugi::xml_node& list) {
    ParameterGroups groups;
    for (const auto& element : list.children("referenceableParamGroup")) {
        const auto [group, is_new] = groups.try_emplace(element.attribute("id").value());
        if (!is_new) continue;
        for (const auto& parameter : element.children("cvParam"))
            group->second.emplace(parameter.attribute("accession").value(), parameter);
        for (const auto& parameter : element.children("userParam"))
            group->second.emplace(parameter.attribute("name").value(), parameter);
    }
    return groups;
}

Parameters::Parameters(const pugi::xml_node& element, const ParameterGroups& groups, const RecordingPlace& place)
    : element_(element), place_(place) {
    for (const auto& reference : element.children("referenceableParamGroupRef")) {
        const std::string id = reference.attribute("ref").value();
        const auto group = groups.find(id);
        if (group == groups.end()) place_.fail("there is no referenceableParamGroup [", id, "]");
        if (std::ranges::find(groups_, &group->second) == groups_.end()) groups_.push_back(&group->second);
        if (groups_.size() > 100) place_.fail("more than 100 groups of parameters in one element");
    }
}

pugi::xml_node Parameters::parameter(const char* element, const char* key, std::string_view value) const {
    for (const auto& own : element_.children(element))
        if (value == own.attribute(key).value()) return own;
    for (const auto* group : groups_)
        if (const auto found = group->find(value); found != group->end()) return found->second;
    return {};
}

std::optional<std::string> Parameters::text(const pugi::xml_node& parameter) {
    return parameter ? std::optional<std::string>(parameter.attribute("value").value()) : std::nullopt;
}

std::optional<double> Parameters::number(const pugi::xml_node& parameter, const char* name) const {
    const auto value = text(parameter);
    return value ? std::optional(parse_number(*value, name, place_)) : std::nullopt;
}

}  // namespace korvane::replay
