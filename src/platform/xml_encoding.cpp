#include "platform/xml_encoding.h"

#include <algorithm>
#include <array>
#include <utility>

#include "korvane/error.h"
#include "platform/text.h"

namespace korvane {

namespace {

using enum XmlCharset;
using namespace std::string_view_literals;

/// Windows-1252 bytes 0x80 to 0x9F; unassigned ones stand for the control character of the same number.
constexpr std::array<char16_t, 32> windows_1252_characters{
    0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

/// How files begin; the first that fits counts.
constexpr std::array<std::pair<std::string_view, XmlEncoding>, 5> beginnings{
    {{"\xEF\xBB\xBF", {utf8, true, true}},
     {"\xFF\xFE", {utf16_little_endian, true, true}},
     {"\xFE\xFF", {utf16_big_endian, true, true}},
     {"<\0"sv, {utf16_little_endian, false, true}},
     {"\0<"sv, {utf16_big_endian, false, true}}}};

constexpr std::array<std::pair<std::string_view, XmlCharset>, 11> charset_names{{{"utf-8", utf8},
                                                                                 {"utf8", utf8},
                                                                                 {"us-ascii", ascii},
                                                                                 {"ascii", ascii},
                                                                                 {"iso-8859-1", latin1},
                                                                                 {"iso8859-1", latin1},
                                                                                 {"iso_8859-1", latin1},
                                                                                 {"latin1", latin1},
                                                                                 {"latin-1", latin1},
                                                                                 {"windows-1252", windows_1252},
                                                                                 {"cp1252", windows_1252}}};

void append_utf16(std::string& bytes, char32_t character, bool little_endian) {
    if (character >= 0x10000) {
        append_utf16(bytes, 0xD800 + ((character - 0x10000) >> 10), little_endian);
        character = 0xDC00 + ((character - 0x10000) & 0x3FF);
    }
    const char low = static_cast<char>(character & 0xFF), high = static_cast<char>(character >> 8);
    bytes += little_endian ? low : high;
    bytes += little_endian ? high : low;
}

/// The byte of a character in a charset that has one byte a character; nothing where it has none.
std::optional<char> single_byte(XmlCharset charset, char32_t character) {
    // Almost all bytes are their character's number.
    if (character < 0x100 && single_byte_character(charset, static_cast<unsigned char>(character)) == character)
        return static_cast<char>(character);
    for (unsigned byte = 0x80; byte < 0xA0; ++byte)
        if (single_byte_character(charset, static_cast<unsigned char>(byte)) == character)
            return static_cast<char>(byte);
    return std::nullopt;
}

bool is_utf(XmlCharset charset) {
    return charset == utf8 || charset == utf16_little_endian || charset == utf16_big_endian;
}

}  // namespace

XmlEncoding encoding_of_first_bytes(std::string_view bytes) {
    for (const auto& [beginning, encoding] : beginnings)
        if (bytes.starts_with(beginning)) return encoding;
    return {};
}

std::optional<XmlCharset> charset_by_name(std::string_view name) {
    for (const auto& [known, charset] : charset_names)
        if (equal_but_for_case(known, name)) return charset;
    return std::nullopt;
}

std::optional<char32_t> single_byte_character(XmlCharset charset, unsigned char byte) {
    if (charset == ascii && byte >= 0x80) return std::nullopt;
    if (charset == windows_1252 && byte >= 0x80 && byte < 0xA0) return windows_1252_characters[byte - 0x80U];
    return byte;
}

bool can_represent(XmlCharset charset, char32_t character) {
    return is_utf(charset) || single_byte(charset, character).has_value();
}

std::string encode_xml(const XmlEncoding& encoding, std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size() * (encoding.charset == utf8 ? 1 : 2) + 3);
    if (encoding.byte_order_mark)
        bytes += std::ranges::find(beginnings, encoding.charset, [](const auto& known) {
                     return known.second.charset;
                 })->first;
    if (encoding.charset == utf8) return bytes += text;
    while (!text.empty()) {
        const std::optional<char32_t> character = take_utf8(text);
        if (!character) raise_runtime_fault(error_number::invalid_call, "text that is not UTF-8");
        if (is_utf(encoding.charset))
            append_utf16(bytes, *character, encoding.charset == utf16_little_endian);
        else
            bytes += single_byte(encoding.charset, *character).value();
    }
    return bytes;
}

std::optional<char32_t> take_utf8(std::string_view& text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0x80 ? 2 : 1;
    if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4 || text.size() < length) return std::nullopt;
    char32_t character = length == 1 ? lead : lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) return std::nullopt;
        character = character << 6 | (next & 0x3FU);
    }
    constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (character < smallest[length] || character > 0x10FFFF || is_surrogate) return std::nullopt;
    text.remove_prefix(length);
    return character;
}

bool is_xml_character(char32_t character) {
    if (character < 0x20) return character == '\t' || character == '\n' || character == '\r';
    return character < 0xD800 || (character >= 0xE000 && character <= 0xFFFD) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}

}  // namespace korvane
