#include "masslist/mass_list_document.h"

#include <fmt/format.h>

#include <limits>

#include "korvane/error.h"
#include "platform/text.h"
#include "platform/xml_source.h"

namespace korvane {

namespace {

constexpr const char* list_element = "MassList";

std::string not_found(const MassListName& name) {
    return text_of("Mass list for source ", name.source, " and ", name.polarity, " polarity not found");
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
    if (tab == std::string::npos || !fits_into_xml(line))
        raise_mass_list_error(
            text_of("Mass list for [", list, "]: line[", line, "] is not a use flag, a tab and a mass"));
    return {"mass", {{"Used", line.substr(0, tab)}}, line.substr(tab + 1, line.find('\t', tab + 1) - tab - 1), {}};
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

void MassListDocument::rewrite(const MassListName& name, const XmlNewElement& list) {
    const auto configuration = document_.select(name.xpath());
    if (!configuration) raise_mass_list_error(text_of(not_found(name), " in ", file_name_));
    if (const auto old = configuration->child(list_element))
        document_.replace_child(*configuration, *old, list);
    else
        document_.append_child(*configuration, list);
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

std::string joined_lines(const std::vector<std::string>& lines) {
    return fmt::format("{}", fmt::join(lines, "\n"));
}

std::vector<std::string> mass_list_lines(const std::vector<XmlElement>& masses) {
    std::vector<std::string> lines;
    for (const XmlElement& mass : masses) lines.push_back(mass.attribute("Used") + '\t' + mass.text());
    return lines;
}

XmlNewElement mass_list_element(const std::vector<std::string>& lines, const std::string& list) {
    // The rule's line counter has 16 bits.
    if (lines.size() > static_cast<std::size_t>(std::numeric_limits<std::int16_t>::max()))
        raise_runtime_fault(error_number::overflow, text_of("[", lines.size(), "] lines of mass list[", list, "]"));
    XmlNewElement element{list_element, {}, "", {}};
    for (const std::string& line : lines) element.children.push_back(mass_element(line, list));
    return element;
}

}  // namespace korvane
