// An XML document that is read with XPath and edited in place: a save changes what was edited and no other byte.
#pragma once

#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "korvane/system.h"
#include "platform/xml_source.h"

namespace korvane {

class XmlDocument;

/// An element of a document, or what else a query found: the document itself, an attribute, a text. Valid until the
/// document is edited, loaded again or destroyed.
class XmlElement {
public:
    std::string name() const;
    /// All character data of an element, children and white space included, unchanged; an attribute's value.
    std::string text() const;
    /// The attribute's value; empty where there is none.
    std::string attribute(std::string_view name) const;
    /// First node of an XPath relative to this element. Raises as `XmlDocument::select` does.
    std::optional<XmlElement> select(const std::string& xpath) const;
    std::vector<XmlElement> select_all(const std::string& xpath) const;

private:
    friend class XmlDocument;
    XmlElement(const XmlDocument* document, const pugi::xpath_node& found) : document_(document), found_(found) {}
    const XmlDocument* document_;
    pugi::xpath_node found_;
};

/// A new element to put into a document: attributes and either text or children. Names must be names to XML.
struct XmlNewElement {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string text;
    std::vector<XmlNewElement> children;
};

class XmlDocument {
public:
    /// Reads and parses a file; on failure the document is empty. While the bytes read are those last parsed, the tree
    /// stays. Nothing outside the file is touched: a DTD is passed over, and references to entities are refused.
    /// Encodings: UTF-8, UTF-16, US-ASCII, ISO-8859-1, windows-1252.
    XmlParseError load(Files& files, const std::string& path);
    /// The same from bytes.
    XmlParseError parse(std::string bytes);

    /// First node of an XPath 1.0 node set, if any. Names match as they are written, prefix included; a default
    /// namespace makes no difference. Error -2147467259 naming the query where it is not a query for nodes, has
    /// more than 64 opening brackets or 65,536 bytes.
    std::optional<XmlElement> select(const std::string& xpath) const { return XmlElement(this, tree_).select(xpath); }
    std::vector<XmlElement> select_all(const std::string& xpath) const {
        return XmlElement(this, tree_).select_all(xpath);
    }

    // Edits. They invalidate all elements and raise error 5 for what is no element of this document and where the
    // result would not be well-formed (characters that XML does not allow, too deep); the document is then unchanged.
    /// Children are replaced too. A text that the element has already changes nothing.
    void set_text(const XmlElement& element, const std::string& text);
    /// Puts `addition` after the last child of `parent` and takes `old`, a child of it, away. New elements are laid out
    /// like their siblings.
    void append_child(const XmlElement& parent, const XmlNewElement& addition,
                      const std::optional<XmlElement>& old = {});

    /// The document in the encoding it was read in, byte order mark included; nothing where it is empty.
    const std::string& bytes() const { return bytes_; }
    /// Saves the bytes safely. Raises `FileError`.
    void save(Files& files, const std::string& path) const;

private:
    /// The rest from the bytes; the document is empty where they are refused.
    XmlParseError build();
    void clear();
    pugi::xml_node node_of(const XmlElement& element) const;
    void replace_source(std::string_view edited);

    // All three say the same, or the document is empty and has no bytes.
    std::string bytes_;  ///< as the file has them
    XmlSource source_;
    pugi::xml_document tree_;
    std::string read_;  ///< the bytes of the last load; its memory is kept
};

}  // namespace korvane
