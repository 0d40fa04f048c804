// A loaded mass-list file: its configurations, the rewriting of one, and lists as text: one line a mass, joined by line
// feeds; use flag, tab, m/z.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/xml_document.h"

namespace korvane {

/// An ion source and a polarity, as the file writes them.
struct MassListName {
    std::string source;
    std::string polarity;

    std::string key() const { return source + "|" + polarity; }
    std::string xpath() const {
        return "/QTOF_MassListConfiguration/Configuration[@IonSource='" + source + "' and @IonPolarity='" + polarity +
               "']";
    }
};

[[noreturn]] void raise_mass_list_error(const std::string& description);

class MassListDocument {
public:
    /// Error -1 for a file that cannot be read or is not a mass-list file.
    MassListDocument(Files& files, const std::string& file_name);

    std::vector<XmlElement> configurations() const;
    /// Error -1 where the configuration is missing or has no masses.
    std::vector<XmlElement> masses(const MassListName& name) const;

    /// Puts `list` in the place of the first `MassList` of the first configuration of that name, as its last child.
    /// Error -1 where there is no such configuration.
    void rewrite(const MassListName& name, const XmlNewElement& list);
    /// Error -1 naming the file when it cannot be written.
    void save(Files& files, const std::string& file_name) const;

private:
    std::string file_name_;
    XmlDocument document_;
};

/// The lines; none for an empty text.
std::vector<std::string> split_lines(std::string_view text);

std::string joined_lines(const std::vector<std::string>& lines);

/// One line for every `mass` element, whatever its text holds.
std::vector<std::string> mass_list_lines(const std::vector<XmlElement>& masses);

/// The `MassList` element for lines; what stands behind a second tab is left out. Error 6 above 32767 lines, -1 naming
/// `list` and the first line that is not a use flag, a tab and a text.
XmlNewElement mass_list_element(const std::vector<std::string>& lines, const std::string& list);

}  // namespace korvane
