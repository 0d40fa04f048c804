// The source text of an XML document.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/xml_document.h"
#include "platform/xml_encoding.h"

namespace korvane {

struct XmlSource {
    std::string text;  ///< UTF-8, whole, without a byte order mark
    XmlEncoding encoding;
};

/// Expat's judgement of a file's bytes, and their text. Refused besides what is not well-formed: references to entities
/// that the document declares, elements nested deeper than 8192 levels, bytes that the text would not give back.
XmlParseError read_xml(std::string_view bytes, XmlSource& source);

}  // namespace korvane
