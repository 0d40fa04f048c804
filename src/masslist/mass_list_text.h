// The text form of a calibrant mass list: one line a mass, joined by line feeds; use flag, tab, m/z.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/xml_document.h"

namespace korvane {

/// The lines; none for an empty text.
std::vector<std::string> split_lines(std::string_view text);

/// Text of the `mass` elements.
std::string mass_list_text(const std::vector<XmlElement>& masses);

/// The `MassList` element for a text. Error 6 above 32767 lines, -1 naming `list` and the first line that is not a use
/// flag, a tab and a number.
XmlNewElement mass_list_element(const std::string& text, const std::string& list);

}  // namespace korvane
