// Encodings of XML files. Documents are handled in UTF-8; decoding and encoding give every byte back.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace korvane {

enum class XmlCharset { utf8, utf16_little_endian, utf16_big_endian, ascii, latin1, windows_1252 };

struct XmlEncoding {
    XmlCharset charset = XmlCharset::utf8;
    bool byte_order_mark = false;
};

/// By the byte order mark, else by the form of the first characters and the encoding that the XML declaration names.
/// Nothing where the declaration names one that is not supported or contradicts the bytes; `name` is then that name.
std::optional<XmlEncoding> detect_xml_encoding(std::string_view bytes, std::string& name);

/// Turns the bytes of a file into UTF-8 without a byte order mark. False where they are not text in that encoding, or
/// hold a null character; `text` is then unspecified.
bool decode_xml(const XmlEncoding& encoding, std::string& text);

/// The reverse. `text` must hold nothing that the encoding cannot represent; error 5 where it is not UTF-8.
std::string encode_xml(const XmlEncoding& encoding, std::string_view text);

bool can_represent(XmlCharset charset, char32_t character);

/// Takes the first character off a UTF-8 text; nothing where it is malformed (surrogates and overlong forms included).
std::optional<char32_t> take_utf8(std::string_view& text);
void append_utf8(std::string& text, char32_t character);

/// Whether XML 1.0 allows the character at all.
bool is_xml_character(char32_t character);

}  // namespace korvane
