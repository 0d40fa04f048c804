// What an XML document consists of; private to it.
#pragma once

#include <pugixml.hpp>

#include "platform/xml_document.h"
#include "platform/xml_source.h"

namespace korvane {

/// All parts say the same, or the document is empty and has no bytes.
struct XmlDocument::State {
    std::string bytes;  ///< as the file has them
    XmlSource source;
    pugi::xml_document tree;

    /// The rest from the bytes; empty where they are refused.
    XmlParseError build();
    void clear();
};

}  // namespace korvane
