#include "platform/xml_source.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <new>

#include "platform/text.h"

namespace korvane {

namespace {

constexpr std::size_t largest_document = std::size_t{256} << 20;
constexpr int deepest_element = 8192;
constexpr std::size_t longest_shown_name = 100;

// Codes beside the tree builder's own, which are below 100.
constexpr std::int32_t document_too_large = 100;
constexpr std::int32_t characters_malformed = 102;
constexpr std::int32_t nested_too_deep = 105;
constexpr std::int32_t entity_of_document = 106;
constexpr std::int32_t not_well_formed = 200;  // plus Expat's code

/// What a pass of Expat makes of the text: its own, in UTF-8 and the order of the document, or nothing, because the
/// bytes are the text.
enum class TextOf { markup, bytes };

/// One pass of Expat over a document.
class Reading {
public:
    Reading(XmlSource& source, const char* encoding, TextOf origin)
        : source_(source), origin_(origin), parser_(XML_ParserCreate(encoding), XML_ParserFree) {
        if (!parser_) throw std::bad_alloc();
        XML_SetUserData(parser_.get(), this);
        if (origin == TextOf::markup)  // handler without "Expand": entities stay references
            XML_SetDefaultHandler(parser_.get(), call<&Reading::text, const char*, int>);
        else
            XML_SetStartDoctypeDeclHandler(parser_.get(),
                                           call<&Reading::document_type, const char*, const char*, const char*, int>);
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

    /// Whether the pass came upon what makes the text another than the bytes, or may: entities, another encoding.
    bool gave_up() const { return gave_up_; }

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
        if (origin_ == TextOf::bytes && source_.encoding.charset != XmlCharset::utf8) give_up();
    }

    void document_type(const char*, const char*, const char*, int) { give_up(); }

    void give_up() {
        gave_up_ = true;
        XML_StopParser(parser_.get(), XML_FALSE);
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
    TextOf origin_;
    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser_;
    XmlParseError fault_;
    std::exception_ptr thrown_;
    int depth_ = 0;
    bool gave_up_ = false;
};

XmlParseError judged(std::string_view bytes, XmlSource& source) {
    const auto [charset, byte_order_mark, certain] = source.encoding;
    const char* const name = charset == XmlCharset::utf8                  ? "UTF-8"
                             : charset == XmlCharset::utf16_little_endian ? "UTF-16LE"
                                                                          : "UTF-16BE";
    const char* const encoding = certain ? name : nullptr;
    if (charset == XmlCharset::utf8) {
        Reading plain(source, encoding, TextOf::bytes);
        const XmlParseError error = plain.run(bytes);
        source.text = bytes.substr(byte_order_mark ? 3 : 0);
        if (!plain.gave_up()) return error;
    }
    source.text.clear();
    const XmlParseError error = Reading(source, encoding, TextOf::markup).run(bytes);
    if (!error && encode_xml(source.encoding, source.text) != bytes)
        return {characters_malformed, "The document holds bytes that are no characters in its encoding"};
    return error;
}

}  // namespace

XmlParseError read_xml(std::string_view bytes, XmlSource& source) {
    if (bytes.size() > largest_document)
        return {document_too_large, text_of("The document is larger than ", largest_document, " bytes")};
    source.encoding = encoding_of_first_bytes(bytes);
    XmlParseError error = judged(bytes, source);
    // By now it is certain where the declaration has a name for UTF-8 that is not Expat's.
    if (error.code == not_well_formed + XML_ERROR_UNKNOWN_ENCODING && source.encoding.certain)
        error = judged(bytes, source);
    return error;
}

}  // namespace korvane
