#include "platform/xml_encoding.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include "korvane/error.h"

namespace korvane {

namespace {

constexpr std::string_view utf8_mark = "\xEF\xBB\xBF";
constexpr std::string_view utf16_little_endian_mark = "\xFF\xFE";
constexpr std::string_view utf16_big_endian_mark = "\xFE\xFF";

/// Windows-1252 bytes 0x80 to 0x9F; unassigned ones stand for the control character of the same number.
constexpr std::array<char16_t, 32> windows_1252_characters{
    0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

bool is_blank(char character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& character : result)
        if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
    return result;
}

/// The encoding name of the XML declaration, lower-case; empty where there is none.
std::string declared_encoding(std::string_view text) {
    if (!text.starts_with("<?xml") || text.size() < 6 || !is_blank(text[5])) return {};
    const std::string_view declaration = text.substr(0, text.find("?>"));
    std::size_t at = declaration.find("encoding");
    if (at == std::string_view::npos) return {};
    at += 8;
    while (at < declaration.size() && (is_blank(declaration[at]) || declaration[at] == '=')) ++at;
    if (at >= declaration.size() || (declaration[at] != '"' && declaration[at] != '\'')) return {};
    const std::size_t end = declaration.find(declaration[at], at + 1);
    if (end == std::string_view::npos) return {};
    return lower(declaration.substr(at + 1, end - at - 1));
}

std::optional<XmlCharset> charset_by_name(const std::string& name) {
    constexpr std::array<std::pair<std::string_view, XmlCharset>, 12> charsets{
        {{"", XmlCharset::utf8},
         {"utf-8", XmlCharset::utf8},
         {"utf8", XmlCharset::utf8},
         {"us-ascii", XmlCharset::ascii},
         {"ascii", XmlCharset::ascii},
         {"iso-8859-1", XmlCharset::latin1},
         {"iso8859-1", XmlCharset::latin1},
         {"iso_8859-1", XmlCharset::latin1},
         {"latin1", XmlCharset::latin1},
         {"latin-1", XmlCharset::latin1},
         {"windows-1252", XmlCharset::windows_1252},
         {"cp1252", XmlCharset::windows_1252}}};
    for (const auto& [charset_name, charset] : charsets)
        if (charset_name == name) return charset;
    return std::nullopt;
}

bool is_utf16(XmlCharset charset) {
    return charset == XmlCharset::utf16_little_endian || charset == XmlCharset::utf16_big_endian;
}

char32_t single_byte_character(XmlCharset charset, unsigned char byte) {
    if (charset == XmlCharset::windows_1252 && byte >= 0x80 && byte < 0xA0) return windows_1252_characters[byte - 0x80];
    return byte;
}

std::string_view mark_of(XmlCharset charset) {
    if (charset == XmlCharset::utf16_little_endian) return utf16_little_endian_mark;
    if (charset == XmlCharset::utf16_big_endian) return utf16_big_endian_mark;
    return utf8_mark;
}

bool is_ascii(std::string_view text) {
    constexpr std::size_t block = 256;  // a fixed count, so that the compiler makes one vector loop of it
    for (; text.size() >= block; text.remove_prefix(block)) {
        char all = 0;
        for (std::size_t i = 0; i < block; ++i) all |= text[i];
        if (all & 0x80) return false;
    }
    return std::none_of(text.begin(), text.end(), [](char byte) { return (byte & 0x80) != 0; });
}

bool is_utf8(std::string_view text) {
    if (is_ascii(text)) return true;
    while (!text.empty())
        if (!take_utf8(text)) return false;
    return true;
}

bool decode_single_bytes(XmlCharset charset, std::string& text) {
    const char32_t limit = charset == XmlCharset::ascii ? 0x80 : 0x100;
    std::string decoded;
    decoded.reserve(text.size() + text.size() / 8);
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        const char32_t character = single_byte_character(charset, value);
        if (value >= limit) return false;
        append_utf8(decoded, character);
    }
    text.swap(decoded);
    return true;
}

class Utf16Units {
public:
    Utf16Units(std::string_view bytes, bool little_endian) : bytes_(bytes), little_endian_(little_endian) {}
    bool at_end() const { return position_ >= bytes_.size(); }
    char32_t next() {
        const auto first = static_cast<unsigned char>(bytes_[position_]);
        const auto second = static_cast<unsigned char>(bytes_[position_ + 1]);
        position_ += 2;
        return little_endian_ ? static_cast<char32_t>(first | second << 8) : static_cast<char32_t>(first << 8 | second);
    }

private:
    std::string_view bytes_;
    bool little_endian_;
    std::size_t position_ = 0;
};

bool decode_utf16(bool little_endian, std::string& text) {
    if (text.size() % 2 != 0) return false;
    std::string decoded;
    decoded.reserve(text.size() / 2 + text.size() / 16);
    Utf16Units units(text, little_endian);
    while (!units.at_end()) {
        char32_t character = units.next();
        if (character >= 0xD800 && character < 0xE000) {
            if (character >= 0xDC00) return false;
            const char32_t low = units.at_end() ? 0 : units.next();
            if (low < 0xDC00 || low > 0xDFFF) return false;
            character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00);
        }
        append_utf8(decoded, character);
    }
    text.swap(decoded);
    return true;
}

bool decode_characters(XmlCharset charset, std::string& text) {
    if (charset == XmlCharset::utf8) return is_utf8(text);
    if (is_utf16(charset)) return decode_utf16(charset == XmlCharset::utf16_little_endian, text);
    return decode_single_bytes(charset, text);
}

void append_utf16_unit(std::string& bytes, char32_t unit, bool little_endian) {
    const char low = static_cast<char>(unit & 0xFF);
    const char high = static_cast<char>(unit >> 8 & 0xFF);
    bytes += little_endian ? low : high;
    bytes += little_endian ? high : low;
}

void append_utf16(std::string& bytes, char32_t character, bool little_endian) {
    if (character < 0x10000) {
        append_utf16_unit(bytes, character, little_endian);
        return;
    }
    append_utf16_unit(bytes, 0xD800 + ((character - 0x10000) >> 10), little_endian);
    append_utf16_unit(bytes, 0xDC00 + ((character - 0x10000) & 0x3FF), little_endian);
}

char single_byte(XmlCharset charset, char32_t character) {
    if (charset == XmlCharset::windows_1252) {
        const auto* const found = std::find(windows_1252_characters.begin(), windows_1252_characters.end(), character);
        if (found != windows_1252_characters.end())
            return static_cast<char>(0x80 + (found - windows_1252_characters.begin()));
    }
    return static_cast<char>(character);
}

}  // namespace

std::optional<XmlEncoding> detect_xml_encoding(std::string_view bytes, std::string& name) {
    using namespace std::string_view_literals;
    if (bytes.starts_with(utf8_mark)) return XmlEncoding{XmlCharset::utf8, true};
    if (bytes.starts_with("\xFF\xFE\0\0"sv) || bytes.starts_with("\0\0\xFE\xFF"sv)) {
        name = "utf-32";
        return std::nullopt;
    }
    if (bytes.starts_with(utf16_little_endian_mark)) return XmlEncoding{XmlCharset::utf16_little_endian, true};
    if (bytes.starts_with(utf16_big_endian_mark)) return XmlEncoding{XmlCharset::utf16_big_endian, true};
    if (bytes.starts_with("<\0"sv)) return XmlEncoding{XmlCharset::utf16_little_endian, false};
    if (bytes.starts_with("\0<"sv)) return XmlEncoding{XmlCharset::utf16_big_endian, false};
    name = declared_encoding(bytes);
    const std::optional<XmlCharset> charset = charset_by_name(name);
    if (!charset) return std::nullopt;
    return XmlEncoding{*charset, false};
}

bool decode_xml(const XmlEncoding& encoding, std::string& text) {
    if (encoding.byte_order_mark) text.erase(0, mark_of(encoding.charset).size());
    if (!decode_characters(encoding.charset, text)) return false;
    // The parser would take a null character for the end.
    return std::memchr(text.data(), 0, text.size()) == nullptr;
}

std::string encode_xml(const XmlEncoding& encoding, std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size() * (is_utf16(encoding.charset) ? 2 : 1) + utf8_mark.size());
    if (encoding.byte_order_mark) bytes += mark_of(encoding.charset);
    if (encoding.charset == XmlCharset::utf8) return bytes += text;
    while (!text.empty()) {
        const std::optional<char32_t> character = take_utf8(text);
        if (!character) raise_runtime_fault(error_number::invalid_call, "text that is not UTF-8");
        if (is_utf16(encoding.charset))
            append_utf16(bytes, *character, encoding.charset == XmlCharset::utf16_little_endian);
        else
            bytes += single_byte(encoding.charset, *character);
    }
    return bytes;
}

bool can_represent(XmlCharset charset, char32_t character) {
    if (charset == XmlCharset::ascii) return character < 0x80;
    if (charset == XmlCharset::latin1) return character < 0x100;
    if (charset != XmlCharset::windows_1252) return true;
    const bool in_gap = character >= 0x80 && character < 0xA0;
    const bool in_table = std::find(windows_1252_characters.begin(), windows_1252_characters.end(), character) !=
                          windows_1252_characters.end();
    return in_table || (character < 0x100 && !in_gap);
}

std::optional<char32_t> take_utf8(std::string_view& text) {
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80) {
        text.remove_prefix(1);
        return lead;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return std::nullopt;
    char32_t character = lead & (0xFFU >> (length + 1));
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

void append_utf8(std::string& text, char32_t character) {
    const auto continuation = [&](int shift) { text += static_cast<char>(0x80 | (character >> shift & 0x3F)); };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0 | character >> 6);
        continuation(0);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0 | character >> 12);
        continuation(6);
        continuation(0);
    } else {
        text += static_cast<char>(0xF0 | character >> 18);
        continuation(12);
        continuation(6);
        continuation(0);
    }
}

bool is_xml_character(char32_t character) {
    if (character < 0x20) return character == '\t' || character == '\n' || character == '\r';
    return character < 0xD800 || (character >= 0xE000 && character <= 0xFFFD) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}

}  // namespace korvane
