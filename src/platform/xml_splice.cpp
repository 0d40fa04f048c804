#include "platform/xml_splice.h"

#include <algorithm>

#include "korvane/error.h"

namespace korvane {

namespace {

std::size_t behind(std::string_view source, std::string_view ending, std::size_t from) {
    const std::size_t at = source.find(ending, from);
    return at == std::string_view::npos ? source.size() : at + ending.size();
}

/// Behind the ">" of the start tag at `from`; a ">" within a quoted value is none.
std::size_t behind_start_tag(std::string_view source, std::size_t from) {
    for (;;) {
        const std::size_t at = source.find_first_of("\"'>", from);
        if (at == std::string_view::npos) return source.size();
        if (source[at] == '>') return at + 1;
        from = behind(source, source.substr(at, 1), at + 1);
    }
}

struct Token {
    enum class Kind { start_tag, empty_tag, end_tag, characters, other } kind = Kind::other;
    XmlRange range;
};

Token token_at(std::string_view source, std::size_t at) {
    if (source[at] != '<') return {Token::Kind::characters, {at, std::min(source.find('<', at), source.size())}};
    const std::string_view rest = source.substr(at);
    if (rest.starts_with("<!--")) return {Token::Kind::other, {at, behind(source, "-->", at + 4)}};
    if (rest.starts_with("<![CDATA[")) return {Token::Kind::characters, {at, behind(source, "]]>", at + 9)}};
    if (rest.starts_with("<?")) return {Token::Kind::other, {at, behind(source, "?>", at + 2)}};
    if (rest.starts_with("</")) return {Token::Kind::end_tag, {at, behind(source, ">", at)}};
    const std::size_t end = behind_start_tag(source, at + 1);
    const bool empty = end >= 2 && source[end - 2] == '/';
    return {empty ? Token::Kind::empty_tag : Token::Kind::start_tag, {at, end}};
}

/// The content that starts at `from` with the start tag before it closed: up to the matching end tag.
XmlRange content_from(std::string_view source, std::size_t from, std::size_t& behind_end_tag) {
    std::size_t depth = 1;
    for (std::size_t at = from; at < source.size();) {
        const Token token = token_at(source, at);
        if (token.kind == Token::Kind::start_tag) ++depth;
        if (token.kind == Token::Kind::end_tag && --depth == 0) {
            behind_end_tag = token.range.end;
            return {from, token.range.begin};
        }
        at = token.range.end;
    }
    behind_end_tag = source.size();
    return {from, source.size()};
}

bool is_name(std::string_view name) {
    constexpr std::string_view never = " \t\r\n<>/=\"'&;!?#%()*+,@[]^`{|}~$\\";
    if (name.empty() || name.find_first_of(never) != std::string_view::npos) return false;
    const char first = name.front();
    return first != '-' && first != '.' && !(first >= '0' && first <= '9');
}

std::string checked_name(const std::string& name, XmlCharset charset) {
    const bool usable = is_name(name) && escape_xml(name, charset, false) == name;
    if (!usable) raise_runtime_fault(error_number::invalid_call, "[" + name + "] is not an XML name");
    return name;
}

void append_reference(std::string& out, char32_t character) {
    out += "&#";
    out += std::to_string(static_cast<unsigned>(character));
    out += ';';
}

void append_escaped(std::string& out, char32_t character, XmlCharset charset, bool in_attribute) {
    // A reader turns a bare one into a line feed or, in an attribute, into a blank.
    const bool normalised = character == U'\r' || (in_attribute && (character == U'\n' || character == U'\t'));
    if (character == U'&')
        out += "&amp;";
    else if (character == U'<')
        out += "&lt;";
    else if (character == U'>')
        out += "&gt;";
    else if (character == U'"' && in_attribute)
        out += "&quot;";
    else if (normalised || !can_represent(charset, character))
        append_reference(out, character);
    else
        append_utf8(out, character);
}

}  // namespace

XmlElementRange locate_element(std::string_view source, std::size_t name_position) {
    XmlElementRange element;
    element.name = {name_position, std::min(source.find_first_of(" \t\r\n/>", name_position), source.size())};
    const Token tag = token_at(source, name_position - 1);
    element.self_closing = tag.kind == Token::Kind::empty_tag;
    element.whole = tag.range;
    element.content = {tag.range.end, tag.range.end};
    if (!element.self_closing) element.content = content_from(source, tag.range.end, element.whole.end);
    return element;
}

std::vector<XmlContentItem> content_items(std::string_view source, const XmlRange& content) {
    using Kind = XmlContentItem::Kind;
    std::vector<XmlContentItem> items;
    for (std::size_t at = content.begin; at < content.end;) {
        const Token token = token_at(source, at);
        XmlContentItem item{Kind::other, token.range};
        if (token.kind == Token::Kind::characters) item.kind = Kind::characters;
        if (token.kind == Token::Kind::empty_tag) item.kind = Kind::element;
        if (token.kind == Token::Kind::start_tag) {
            item.kind = Kind::element;
            content_from(source, token.range.end, item.range.end);
        }
        items.push_back(item);
        at = item.range.end;
    }
    return items;
}

std::string escape_xml(std::string_view text, XmlCharset charset, bool in_attribute) {
    const std::string_view whole = text;
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::optional<char32_t> character = take_utf8(text);
        if (!character || !is_xml_character(*character))
            raise_runtime_fault(error_number::invalid_call,
                                std::string("[").append(whole).append("] holds a character that XML does not allow"));
        append_escaped(result, *character, charset, in_attribute);
    }
    return result;
}

std::string new_element_text(const XmlNewElement& element, XmlCharset charset, const XmlLayout& layout) {
    const std::string name = checked_name(element.name, charset);
    std::string text(1, '<');
    text += name;
    for (const auto& [attribute, value] : element.attributes) {
        text.append(1, ' ').append(checked_name(attribute, charset)).append("=\"");
        text.append(escape_xml(value, charset, true)).append(1, '"');
    }
    if (element.children.empty() && element.text.empty()) return text + "/>";
    text.append(1, '>').append(escape_xml(element.text, charset, false));
    XmlLayout inner = layout;
    inner.indent += layout.unit;
    for (const XmlNewElement& child : element.children)
        text += inner.line_break + inner.indent + new_element_text(child, charset, inner);
    if (!element.children.empty()) text += layout.line_break + layout.indent;
    return text + "</" + name + ">";
}

}  // namespace korvane
