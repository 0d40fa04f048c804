#include "instrument/replay/mzml_parameters.h"

#include <charconv>
#include <cmath>

namespace korvane::replay {

MzmlParameters::MzmlParameters(const pugi::xml_node& element, const pugi::xml_node& groups, const RecordingPlace& place)
    : place_(place) {
    for (const auto& reference : element.children("referenceableParamGroupRef")) {
        const char* id = reference.attribute("ref").value();
        const auto group = groups.find_child_by_attribute("referenceableParamGroup", "id", id);
        if (!group) place_.fail("there is no referenceableParamGroup [" + std::string(id) + "]");
        collect(group);
    }
    collect(element);
}

void MzmlParameters::collect(const pugi::xml_node& element) {
    for (const auto& parameter : element.children("cvParam")) controlled_.push_back(parameter);
    for (const auto& parameter : element.children("userParam")) user_.push_back(parameter);
}

pugi::xml_node MzmlParameters::find(const Term& sought) const {
    for (const auto& parameter : controlled_)
        if (sought == parameter.attribute("accession").value()) return parameter;
    return {};
}

std::optional<double> MzmlParameters::number(const Term& sought) const {
    const auto parameter = find(sought);
    if (!parameter) return std::nullopt;
    return parse_number(parameter.attribute("value").value(), sought.name);
}

std::optional<std::string> MzmlParameters::user_text(std::string_view name) const {
    for (const auto& parameter : user_)
        if (name == parameter.attribute("name").value()) return parameter.attribute("value").value();
    return std::nullopt;
}

std::optional<double> MzmlParameters::user_number(std::string_view name) const {
    const auto text = user_text(name);
    if (!text) return std::nullopt;
    return parse_number(*text, std::string(name));
}

std::map<std::string, double> MzmlParameters::user_numbers(std::string_view prefix) const {
    std::map<std::string, double> numbers;
    for (const auto& parameter : user_) {
        const std::string_view name = parameter.attribute("name").value();
        if (!name.starts_with(prefix)) continue;
        numbers.emplace(name.substr(prefix.size()),
                        parse_number(parameter.attribute("value").value(), std::string(name)));
    }
    return numbers;
}

double MzmlParameters::parse_number(std::string_view text, const std::string& what) const {
    double number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
        place_.fail(what + " [" + std::string(text) + "] is not a number");
    return number;
}

}  // namespace korvane::replay
