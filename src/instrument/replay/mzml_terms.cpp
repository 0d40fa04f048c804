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

ParameterGroups::ParameterGroups(const pugi::xml_node& list) {
    for (const auto& element : list.children("referenceableParamGroup")) {
        const auto [entry, is_new] = groups_.try_emplace(element.attribute("id").value());
        if (!is_new) continue;
        for (const auto& parameter : element.children("cvParam"))
            entry->second.emplace(parameter.attribute("accession").value(), parameter);
        for (const auto& parameter : element.children("userParam"))
            entry->second.emplace(parameter.attribute("name").value(), parameter);
    }
}

const ParameterGroups::Group* ParameterGroups::find(std::string_view id) const {
    const auto found = groups_.find(id);
    return found == groups_.end() ? nullptr : &found->second;
}

Parameters::Parameters(const pugi::xml_node& element, const ParameterGroups& groups, const RecordingPlace& place)
    : element_(element), place_(place) {
    for (const auto& reference : element.children("referenceableParamGroupRef")) {
        const std::string id = reference.attribute("ref").value();
        const auto* group = groups.find(id);
        if (!group) place_.fail("there is no referenceableParamGroup [", id, "]");
        if (std::ranges::find(groups_, group) == groups_.end()) groups_.push_back(group);
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

std::optional<double> Parameters::number(const Term& sought) const {
    const auto parameter = find(sought);
    if (!parameter) return std::nullopt;
    return parse_number(parameter.attribute("value").value(), sought.name, place_);
}

std::optional<std::string> Parameters::user_text(const char* name) const {
    const auto parameter = this->parameter("userParam", "name", name);
    if (!parameter) return std::nullopt;
    return parameter.attribute("value").value();
}

std::optional<double> Parameters::user_number(const char* name) const {
    const auto text = user_text(name);
    if (!text) return std::nullopt;
    return parse_number(*text, name, place_);
}

}  // namespace korvane::replay
