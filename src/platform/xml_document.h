// An XML document that is read with XPath and edited in place: a save changes what was edited and no other byte.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "korvane/system.h"

namespace pugi {
struct xml_attribute_struct;
struct xml_node_struct;
}  // namespace pugi

namespace korvane {

/// Outcome of a load. Code 0 is success. 100: larger than 256 MiB; 102: bytes that are no characters; 105: elements
/// nested deeper than 8192 levels; 106: a reference to an entity of the document's own; from 200 on: Expat's code for
/// what is not well-formed; 3: no memory for the tree. File faults are the system's code, negative.
struct XmlParseError {
    std::int32_t code = 0;
    std::string reason;
    explicit operator bool() const noexcept { return code != 0; }
};

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
    XmlElement(const XmlDocument* document, pugi::xml_node_struct* node, pugi::xml_attribute_struct* attribute = {})
        : document_(document), node_(node), attribute_(attribute) {}
    const XmlDocument* document_;
    pugi::xml_node_struct* node_;            ///< null for an attribute
    pugi::xml_attribute_struct* attribute_;  ///< null for all else
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
    XmlDocument();
    ~XmlDocument();
    XmlDocument(XmlDocument&&) noexcept;
    XmlDocument& operator=(XmlDocument&&) noexcept;

    /// Reads and parses a file; on failure the document is empty. While the bytes read are those last parsed, the tree
    /// stays. Nothing outside the file is touched: a DTD is passed over, and references to entities are refused.
    /// Encodings: UTF-8, UTF-16, US-ASCII, ISO-8859-1, windows-1252.
    XmlParseError load(Files& files, const std::string& path);
    /// The same from bytes.
    XmlParseError parse(std::string bytes);

    /// First node of an XPath 1.0 node set, if any. Names match as they are written, prefix included; a default
    /// namespace makes no difference. Error -2147467259 naming the query where it is not a query for nodes, nests too
    /// deep (64 brackets) or is too long (65,536 bytes).
    std::optional<XmlElement> select(const std::string& xpath) const;
    std::vector<XmlElement> select_all(const std::string& xpath) const;

    // Edits. They invalidate all elements and raise error 5 for what is no element of this document and where the
    // result would not be well-formed (characters that XML does not allow, too deep); the document is then unchanged.
    /// Children are replaced too. A text that the element has already changes nothing.
    void set_text(const XmlElement& element, const std::string& text);
    /// Puts `replacement` after the last child of `parent` and takes `old`, a child of it, away. New elements are laid
    /// out like their siblings.
    void replace_child(const XmlElement& parent, const XmlElement& old, const XmlNewElement& replacement);
    void append_child(const XmlElement& parent, const XmlNewElement& addition);

    /// The document in the encoding it was read in, byte order mark included; nothing where it is empty.
    const std::string& bytes() const;
    /// Saves the bytes safely. Raises `FileError`.
    void save(Files& files, const std::string& path) const;

private:
    friend class XmlElement;
    struct State;
    std::size_t begin_of(const XmlElement& element) const;
    void replace_source(std::string_view edited);
    std::unique_ptr<State> state_;
    std::string read_;  ///< the bytes of the last load; its memory is kept
};

}  // namespace korvane
