#include "platform/xml_source.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <new>
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

constexpr std::pair<std::string_view, XmlCharset> charset_names[] = {
    {"utf-8", utf8},         {"utf8", utf8},
    {"us-ascii", ascii},     {"ascii", ascii},
    {"iso-8859-1", latin1},  {"iso8859-1", latin1},
    {"iso_8859-1", latin1},  {"latin1", latin1},
    {"latin-1", latin1},     {"windows-1252", windows_1252},
    {"cp1252", windows_1252}};

/// The charset that a declaration names; nothing for one that is not supported.
std::optional<XmlCharset> charset_by_name(std::string_view name) {
    for (const auto& [known, charset] : charset_names)
        if (equal_but_for_case(known, name)) return charset;
    return std::nullopt;
}

/// The character of a byte in a charset that has one byte a character; nothing where it stands for none.
std::optional<char32_t> single_byte_character(XmlCharset charset, unsigned char byte) {
    if (charset == ascii && byte >= 0x80) return std::nullopt;
    if (charset == windows_1252 && byte >= 0x80 && byte < 0xA0) return windows_1252_characters[byte - 0x80U];
    return byte;
}

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

constexpr std::size_t largest_document = std::size_t{256} << 20;
constexpr int deepest_element = 8192;
constexpr std::size_t longest_shown_name = 100;

// Codes beside the tree builder's own, which are below 100.
constexpr std::int32_t document_too_large = 100;
constexpr std::int32_t characters_malformed = 102;
constexpr std::int32_t nested_too_deep = 105;
constexpr std::int32_t entity_of_document = 106;
constexpr std::int32_t not_well_formed = 200;  // plus Expat's code

/// One pass of Expat over a document, whose pieces it hands on in UTF-8 and in their order.
class Reading {
public:
    Reading(XmlSource& source, const char* encoding)
        : source_(source), parser_(XML_ParserCreate(encoding), XML_ParserFree) {
        if (!parser_) throw std::bad_alloc();
        XML_SetUserData(parser_.get(), this);
        // A handler without "Expand": entities stay references.
        XML_SetDefaultHandler(parser_.get(), call<&Reading::text, const char*, int>);
        XML_SetXmlDeclHandler(parser_.get(), call<&Reading::declaration, const char*, const char*, int>);
        XML_SetElementHandler(parser_.get(), call<&Reading::start_tag, const char*, const char**>,
                              call<&Reading::end_tag, const char*>);
        XML_SetSkippedEntityHandler(parser_.get(), call<&Reading::entity, const char*, int>);
        XML_SetExternalEntityRefHandler(parser_.get(), [](auto...) -> int { return XML_STATUS_ERROR; });
        XML_SetUnknownEncodingHandler(parser_.get(), fill_encoding, nullptr);
    }

    XmlParseError run(std::string_view bytes) {
        const auto status = XML_Parse(parser_.get(), bytes.data(), static_cast<int>(bytes.size()), XML_TRUE);
        if (thrown_) std::rethrow_exception(thrown_);
        if (status == XML_STATUS_OK) return {};
        const XML_Error code = XML_GetErrorCode(parser_.get());
        if (!fault_) fault_ = {not_well_formed + code, XML_ErrorString(code)};
        append_text(fault_.reason, " (line ", XML_GetCurrentLineNumber(parser_.get()), ")");
        return fault_;
    }

private:
    /// A member as a handler; an exception must not pass through Expat.
    template <auto member, class... Arguments>
    static void call(void* reading, Arguments... arguments) {
        auto& self = *static_cast<Reading*>(reading);
        try {
            (self.*member)(arguments...);
        } catch (...) {
            self.thrown_ = std::current_exception();
            XML_StopParser(self.parser_.get(), XML_FALSE);
        }
    }

    void text(const char* piece, int length) { source_.text.append(piece, static_cast<std::size_t>(length)); }

    void declaration(const char*, const char* encoding, int) {
        XML_DefaultCurrent(parser_.get());
        if (!encoding || source_.encoding.certain) return;
        const auto named = charset_by_name(encoding);
        source_.encoding.charset = named.value_or(XmlCharset::utf8);
        source_.encoding.certain = named == XmlCharset::utf8;
    }

    void start_tag(const char* name, const char**) {
        const std::size_t begin = source_.text.size();
        XML_DefaultCurrent(parser_.get());
        if (++depth_ > deepest_element)
            refuse(nested_too_deep, text_of("The element [", std::string_view(name).substr(0, longest_shown_name),
                                            "] is nested deeper than ", deepest_element, " levels"));
        find_entities(std::string_view(source_.text).substr(begin));
    }

    void end_tag(const char*) {
        XML_DefaultCurrent(parser_.get());
        --depth_;
    }

    /// Expat replaces those in attribute values without a word.
    void find_entities(std::string_view tag) {
        constexpr std::array<std::string_view, 5> predefined{"amp", "lt", "gt", "quot", "apos"};
        for (std::size_t at = tag.find('&'); at != std::string_view::npos; at = tag.find('&', at + 1)) {
            const std::string_view name = tag.substr(at + 1, tag.find(';', at) - at - 1);
            if (!name.starts_with('#') && std::ranges::find(predefined, name) == predefined.end()) refuse_entity(name);
        }
    }

    void entity(const char* name, int is_parameter) {
        is_parameter ? XML_DefaultCurrent(parser_.get()) : refuse_entity(name);
    }

    void refuse_entity(std::string_view name) {
        refuse(entity_of_document,
               text_of("The entity [", name.substr(0, longest_shown_name), "] is none of XML's own"));
    }

    void refuse(std::int32_t code, std::string reason) {
        if (fault_) return;
        fault_ = {code, std::move(reason)};
        XML_StopParser(parser_.get(), XML_FALSE);
    }

    static int fill_encoding(void*, const char* name, XML_Encoding* known) {
        const auto charset = charset_by_name(name);
        if (!charset || charset == XmlCharset::utf8) return XML_STATUS_ERROR;
        for (unsigned byte = 0; byte < 256; ++byte) {
            const auto character = single_byte_character(*charset, static_cast<unsigned char>(byte));
            known->map[byte] = character ? static_cast<int>(*character) : -1;
        }
        known->data = nullptr;
        known->convert = nullptr;
        known->release = nullptr;
        return XML_STATUS_OK;
    }

    XmlSource& source_;
    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser_;
    XmlParseError fault_;
    std::exception_ptr thrown_;
    int depth_ = 0;
};

XmlParseError judged(std::string_view bytes, XmlSource& source) {
    const auto [charset, byte_order_mark, certain] = source.encoding;
    const char* const name = charset == XmlCharset::utf8                  ? "UTF-8"
                             : charset == XmlCharset::utf16_little_endian ? "UTF-16LE"
                                                                          : "UTF-16BE";
    source.text.clear();
    const XmlParseError error = Reading(source, certain ? name : nullptr).run(bytes);
    if (!error && encode_xml(source.encoding, source.text) != bytes)
        return {characters_malformed, "The document holds bytes that are no characters in its encoding"};
    return error;
}

}  // namespace

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
        if (encoding.charset == utf16_little_endian || encoding.charset == utf16_big_endian)
            append_utf16(bytes, *character, encoding.charset == utf16_little_endian);
        else if (const auto byte = single_byte(encoding.charset, *character))
            bytes += *byte;
        else
            append_text(bytes, "&#", static_cast<std::uint32_t>(*character), ';');
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

XmlParseError read_xml(std::string_view bytes, XmlSource& source) {
    if (bytes.size() > largest_document)
        return {document_too_large, text_of("The document is larger than ", largest_document, " bytes")};
    source.encoding = {};  // UTF-8, and not certain, where the first bytes do not tell
    for (const auto& [beginning, encoding] : beginnings)
        if (bytes.starts_with(beginning)) source.encoding = encoding;
    XmlParseError error = judged(bytes, source);
    // By now it is certain where the declaration has a name for UTF-8 that is not Expat's.
    if (error.code == not_well_formed + XML_ERROR_UNKNOWN_ENCODING && source.encoding.certain)
        error = judged(bytes, source);
    return error;
}

}  // namespace korvane
