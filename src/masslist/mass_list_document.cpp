#include "masslist/mass_list_document.h"

#include <limits>

#include "korvane/error.h"
#include "platform/text.h"
#include "platform/xml_encoding.h"

namespace korvane {

namespace {

constexpr const char* list_element = "MassList";

std::string not_found(const MassListName& name) {
    return text_of("Mass list for source ", name.source, " and ", name.polarity, " polarity not found");
}

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
        raise_mass_list_error(
            text_of("Mass list for ", list, ": line[", line, "] is not a use flag, a tab and a number"));
    return {"mass", {{"Used", line.substr(0, tab)}}, line.substr(tab + 1), {}};
}

}  // namespace

void raise_mass_list_error(const std::string& description) {
    throw Error(error_number::routine_detected, "CalMassList", description, ErrorKind::configuration);
}

MassListDocument::MassListDocument(Files& files, const std::string& file_name) : file_name_(file_name) {
    const XmlParseError error = document_.load(files, file_name);
    if (error.code < 0) raise_mass_list_error("Failed to open mass list file: " + file_name);
    if (error) raise_mass_list_error(file_name + " is not a valid Mass List file.\r\n" + error.reason);
    if (!document_.select("/QTOF_MassListConfiguration"))
        raise_mass_list_error(file_name + " is not a valid Mass List file.");
}

std::vector<XmlElement> MassListDocument::configurations() const {
    return document_.select_all("/QTOF_MassListConfiguration/Configuration");
}

std::vector<XmlElement> MassListDocument::masses(const MassListName& name) const {
    auto masses = document_.select_all(name.xpath() + "/MassList/mass");
    if (masses.empty()) raise_mass_list_error(not_found(name));
    return masses;
}

void MassListDocument::require_rewritable(const MassListName& name) const {
    const auto found = document_.select_all(name.xpath());
    if (found.empty()) raise_mass_list_error(text_of(not_found(name), " in ", file_name_));
    const bool one_place = found.size() == 1 && found.front().select_all(list_element).size() <= 1;
    if (!one_place)
        raise_mass_list_error(text_of("Mass list for source ", name.source, " and ", name.polarity,
                                      " polarity is given more than once in ", file_name_));
}

void MassListDocument::rewrite(const MassListName& name, const XmlNewElement& list) {
    const XmlElement configuration = document_.select(name.xpath()).value();
    if (const auto old = configuration.child(list_element))
        document_.replace_child(configuration, *old, list);
    else
        document_.append_child(configuration, list);
}

void MassListDocument::save(Files& files, const std::string& file_name) const {
    const std::string failed = "Failed to save mass list file: " + file_name;
    try {
        // A save puts a new file in the place of the old one, which the attribute alone would not keep from it.
        if (files.status(file_name).read_only) raise_mass_list_error(failed + "\r\nThe file is read-only");
        document_.save(files, file_name);
    } catch (const FileError& error) {
        raise_mass_list_error(failed + "\r\n" + error.what());
    }
}

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
    XmlNewElement element{list_element, {}, "", {}};
    for (const std::string& line : lines) element.children.push_back(mass_element(line, list));
    return element;
}

}  // namespace korvane
