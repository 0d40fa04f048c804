// Where elements lie in the source text of an XML document, and the text of new ones. The source must be well-formed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/xml_document.h"
#include "platform/xml_encoding.h"

namespace korvane {

/// Positions in the source.
struct XmlRange {
    std::size_t begin = 0;
    std::size_t end = 0;
};

struct XmlElementRange {
    XmlRange name;
    XmlRange whole;    ///< from "<" to behind the last ">"
    XmlRange content;  ///< between the tags; empty, at the end, for a self-closing element
    bool self_closing = false;
};

/// One piece of an element's content: a child element, a run of characters, or other markup.
struct XmlContentItem {
    enum class Kind { element, characters, other } kind = Kind::other;
    XmlRange range;
};

/// The element whose name stands at `name_position`.
XmlElementRange locate_element(std::string_view source, std::size_t name_position);

std::vector<XmlContentItem> content_items(std::string_view source, const XmlRange& content);

/// Text or attribute value in a form that reads back as the same: markup characters, carriage returns and what
/// `charset` cannot represent become references. Error 5 where XML does not allow a character.
std::string escape_xml(std::string_view text, XmlCharset charset, bool in_attribute);

/// How a pretty-printed document is laid out around an element; all empty where it is not.
struct XmlLayout {
    std::string line_break;  ///< "\n", "\r\n", or nothing
    std::string indent;      ///< of the element's line
    std::string unit;        ///< what one level more adds
};

/// The new element, indented to `layout`; the first line without its break and indent. Error 5 for a name that is none.
std::string new_element_text(const XmlNewElement& element, XmlCharset charset, const XmlLayout& layout);

}  // namespace korvane
