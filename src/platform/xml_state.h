// What an XML document consists of; private to it.
#pragma once

#include <pugixml.hpp>

#include "platform/xml_document.h"
#include "platform/xml_encoding.h"

namespace korvane {

struct XmlDocument::State {
    pugi::xml_document tree;
    std::string parsed;  ///< UTF-8; the parser cuts it up, and the tree points into it
    std::string source;  ///< UTF-8, whole; only for editing
    XmlEncoding encoding;
    bool editable = false;

    void clear();
    /// Builds the tree from a file's bytes in `parsed`.
    XmlParseError build(bool for_editing);
    /// Puts an edited source in the place of the present one. Error 5 where it does not parse; nothing has then
    /// changed.
    void replace_source(std::string edited);

private:
    XmlParseError decode();
    XmlParseError build_tree();
};

}  // namespace korvane
