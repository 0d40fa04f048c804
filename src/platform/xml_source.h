// The source text of an XML document: encodings, characters in UTF-8, and what Expat makes of the bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane {

/// Outcome of a load. Code 0 is success. 100: larger than 256 MiB; 102: bytes that are no characters; 105: elements
/// nested deeper than 8192 levels; 106: a reference to an entity of the document's own; from 200 on: Expat's code for
/// what is not well-formed; 3: no memory for the tree. File faults are the system's code, negative.
struct XmlParseError {
    std::int32_t code = 0;
    std::string reason;
    explicit operator bool() const noexcept { return code != 0; }
};

enum class XmlCharset { utf8, utf16_little_endian, utf16_big_endian, ascii, latin1, windows_1252 };

struct XmlEncoding {
    XmlCharset charset = XmlCharset::utf8;
    bool byte_order_mark = false;
    /// Whether the first bytes say so; what the XML declaration names does not matter then.
    bool certain = false;
};

/// UTF-8 to the bytes of a file; what the encoding does not have becomes a reference by number. Error 5 where the text
/// is not UTF-8.
std::string encode_xml(const XmlEncoding& encoding, std::string_view text);

/// Takes the first character off a UTF-8 text; nothing where it is malformed (surrogates and overlong forms included).
std::optional<char32_t> take_utf8(std::string_view& text);

/// Whether XML 1.0 allows the character at all.
bool is_xml_character(char32_t character);

struct XmlSource {
    std::string text;  ///< UTF-8, whole, without a byte order mark
    XmlEncoding encoding;
};

/// Expat's judgement of a file's bytes, and their text. Refused besides what is not well-formed: references to entities
/// that the document declares, elements nested deeper than 8192 levels, bytes that the text would not give back.
XmlParseError read_xml(std::string_view bytes, XmlSource& source);

}  // namespace korvane
