#include "masslist/mass_list_text.h"

#include <limits>

#include "korvane/error.h"
#include "platform/text.h"
#include "platform/xml_encoding.h"

namespace korvane {

namespace {

bool is_number(std::string_view text) {
    try {
        parse_double(text);
        return true;
    } catch (const Error&) {
        return false;
    }
}

bool fits_into_xml(std::string_view text) {
    while (!text.empty()) {
        const auto character = take_utf8(text);
        if (!character || !is_xml_character(*character)) return false;
    }
    return true;
}

XmlNewElement mass_element(const std::string& line, const std::string& list) {
    const std::size_t tab = line.find('\t');
    const bool two_fields = tab != std::string::npos && line.find('\t', tab + 1) == std::string::npos;
    if (!two_fields || !is_number(std::string_view(line).substr(tab + 1)) || !fits_into_xml(line))
        throw Error(error_number::routine_detected, "CalMassList",
                    text_of("Mass list for ", list, ": line[", line, "] is not a use flag, a tab and a number"));
    XmlNewElement mass;
    mass.name = "mass";
    mass.attributes.emplace_back("Used", line.substr(0, tab));
    mass.text = line.substr(tab + 1);
    return mass;
}

}  // namespace

std::vector<std::string> split_lines(std::string_view text) {
    std::vector<std::string> lines;
    if (text.empty()) return lines;
    for (std::size_t begin = 0;;) {
        const std::size_t end = text.find('\n', begin);
        lines.emplace_back(text.substr(begin, end - begin));
        if (end == std::string_view::npos) return lines;
        begin = end + 1;
    }
}

std::string mass_list_text(const std::vector<XmlElement>& masses) {
    std::string text;
    for (const XmlElement& mass : masses) {
        if (&mass != &masses.front()) text += '\n';
        append_text(text, mass.attribute("Used"), '\t', mass.text());
    }
    return text;
}

XmlNewElement mass_list_element(const std::string& text, const std::string& list) {
    const std::vector<std::string> lines = split_lines(text);
    // The rule's line counter has 16 bits.
    if (lines.size() > static_cast<std::size_t>(std::numeric_limits<std::int16_t>::max()))
        raise_runtime_fault(error_number::overflow, text_of("mass list for ", list, ", ", lines.size(), " lines"));
    XmlNewElement element;
    element.name = "MassList";
    element.children.reserve(lines.size());
    for (const std::string& line : lines) element.children.push_back(mass_element(line, list));
    return element;
}

}  // namespace korvane
