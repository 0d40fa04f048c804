// An XML document: reading with XPath, and edits, each a splice of the source text, which Expat has found well-formed.
#include "platform/xml_document.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "korvane/error.h"
#include "platform/safe_save.h"
#include "platform/text.h"

namespace korvane {

namespace {

constexpr std::int32_t query_failed = -2147467259;
constexpr std::size_t deepest_query = 64;
constexpr std::size_t longest_query = 65536;
constexpr std::size_t longest_plain_path = 1024;  // within the number of steps that the XPath engine takes

[[noreturn]] void fail_query(const std::string& query, std::string_view reason) {
    constexpr std::size_t shown = 200;
    throw Error(query_failed, "XPath",
                text_of("Query[", query.substr(0, shown), query.size() > shown ? "..." : "", "]: ", reason),
                ErrorKind::configuration);
}

/// The parser goes several levels down the stack for every bracket. Its own limit, which also bounds signs and steps,
/// counts the levels of the result only.
void check_size(const std::string& query) {
    if (query.size() > longest_query) fail_query(query, text_of("longer than ", longest_query, " bytes"));
    std::size_t depth = 0;
    char quote = 0;
    for (const char character : query) {
        if (quote != 0) {
            if (character == quote) quote = 0;
        } else if (character == '"' || character == '\'') {
            quote = character;
        } else if (character == '(' || character == '[') {
            if (++depth > deepest_query) fail_query(query, text_of("nested deeper than ", deepest_query, " levels"));
        } else if (character == ')' || character == ']') {
            depth -= depth > 0 ? 1 : 0;
        }
    }
}

/// Whether the query is a path of names alone, which leads to the same element without the XPath engine, ten times as
/// fast.
bool is_plain_path(std::string_view query) {
    if (query.size() > longest_plain_path) return false;
    char before = '/';
    for (const char character : query.substr(query.starts_with('/') ? 1 : 0)) {
        const bool is_letter = (lower_case(character) >= 'a' && lower_case(character) <= 'z') || character == '_';
        const bool goes_on = character == '/' || (character >= '0' && character <= '9');
        if (!is_letter && (before == '/' || !goes_on)) return false;
        before = character;
    }
    return before != '/';
}

/// What the query gives, as `run` asks for it.
template <class Run>
auto queried(const std::string& query, Run run) {
    check_size(query);
    try {
        return run(pugi::xpath_query(query.c_str()));
    } catch (const pugi::xpath_exception& fault) {
        fail_query(query, fault.what());
    }
}

/// Positions in the source.
struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// The tree knows where a text, or else the name or content behind the "<", begins.
std::size_t begin_in_source(std::string_view source, const pugi::xml_node& node) {
    const auto known = static_cast<std::size_t>(node.offset_debug());
    return node.type() == pugi::node_pcdata ? known : source.rfind('<', known - 1);
}

/// A node ends where the next one begins, or else its parent's end tag.
Range range_in_source(std::string_view source, const pugi::xml_node& node) {
    std::size_t end_tags = 0;  // between the node and what begins next
    pugi::xml_node last = node;
    for (; !last.next_sibling() && last.parent().type() == pugi::node_element; last = last.parent()) ++end_tags;
    std::size_t end = last.next_sibling() ? begin_in_source(source, last.next_sibling()) : source.rfind('>') + 1;
    for (; end_tags > 0; --end_tags) end = source.rfind('<', end - 1);
    return {begin_in_source(source, node), end};
}

bool is_line_break_and_indent(std::string_view source, const pugi::xml_node& node) {
    const Range range = range_in_source(source, node);
    const std::string_view text = source.substr(range.begin, range.end - range.begin);
    return text.find('\n') != std::string_view::npos && text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

/// How a pretty-printed document is laid out around an element; all empty where it is not.
struct Layout {
    std::string line_break;  ///< "\n", "\r\n", or nothing
    std::string indent;      ///< of the element's line
    std::string unit;        ///< what one level more adds
};

/// Line break and indent before the markup at `position`; nothing where other text precedes it on its line.
Layout line_before(std::string_view source, std::size_t position) {
    const std::size_t line_feed = source.substr(0, position).rfind('\n');
    if (line_feed == std::string_view::npos) return {};
    const std::string_view indent = source.substr(line_feed + 1, position - line_feed - 1);
    if (indent.find_first_not_of(" \t") != std::string_view::npos) return {};
    const bool after_return = line_feed > 0 && source[line_feed - 1] == '\r';
    return {after_return ? "\r\n" : "\n", std::string(indent), ""};
}

std::string indent_unit(const std::string& outer, const std::string& inner) {
    if (inner.size() > outer.size() && inner.starts_with(outer)) return inner.substr(outer.size());
    return inner.find('\t') != std::string::npos ? "\t" : "  ";
}

/// Text or attribute value in a form that reads back as the same. A reader turns bare carriage returns into line feeds
/// and, in attributes, line feeds and tabs into blanks.
std::string escaped(std::string_view text, XmlCharset charset, bool in_attribute) {
    constexpr std::array<std::pair<char32_t, std::string_view>, 4> named{
        {{U'&', "amp"}, {U'<', "lt"}, {U'>', "gt"}, {U'"', "quot"}}};
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::string_view before = text;
        const std::optional<char32_t> character = take_utf8(text);
        if (!character) raise_runtime_fault(error_number::invalid_call, "text that is not UTF-8");
        const auto* const name = std::ranges::find(named, *character, &decltype(named)::value_type::first);
        const bool normalised = *character == U'\r' || (in_attribute && (*character == U'\n' || *character == U'\t'));
        if (name != named.end() && (in_attribute || *character != U'"'))
            append_text(result, '&', name->second, ';');
        else if (normalised || !can_represent(charset, *character))
            append_text(result, "&#", static_cast<std::uint32_t>(*character), ';');
        else
            result += before.substr(0, before.size() - text.size());
    }
    return result;
}

/// The new element, indented to `layout`; the first line without its break and indent.
std::string element_text(const XmlNewElement& element, XmlCharset charset, const Layout& layout) {
    std::string text = "<" + element.name;
    for (const auto& [attribute, value] : element.attributes)
        append_text(text, ' ', attribute, "=\"", escaped(value, charset, true), '"');
    if (element.children.empty() && element.text.empty()) return text + "/>";
    append_text(text, '>', escaped(element.text, charset, false));
    Layout inner = layout;
    inner.indent += layout.unit;
    for (const XmlNewElement& child : element.children)
        append_text(text, inner.line_break, inner.indent, element_text(child, charset, inner));
    if (!element.children.empty()) append_text(text, layout.line_break, layout.indent);
    return text + "</" + element.name + ">";
}

/// An element in the source, and changes to its content in the order of the source.
class SourceElement {
public:
    SourceElement(const std::string& source, const pugi::xml_node& element)
        : source_(source), element_(element), whole_(range_in_source(source, element)) {
        self_closing_ = source[whole_.end - 2] == '/';
        content_.end = self_closing_ ? whole_.end : source.rfind('<', whole_.end - 1);
        content_.begin = element.first_child() ? begin_in_source(source, element.first_child()) : content_.end;
    }

    /// Takes the child away together with the line break and indent before it.
    void remove(const pugi::xml_node& child) {
        if (child.parent() != element_)
            raise_runtime_fault(error_number::invalid_call, "the element to replace is not a child of the other");
        removed_ = range_in_source(source_, child);
        const pugi::xml_node before = child.previous_sibling();
        if (before && is_line_break_and_indent(source_, before)) removed_.begin = begin_in_source(source_, before);
    }

    std::string with_appended(const XmlNewElement& addition, XmlCharset charset) const {
        const Layout layout = child_layout();
        const std::string text = layout.line_break + layout.indent + element_text(addition, charset, layout);
        const pugi::xml_node last = element_.last_child();
        const bool opens_line = !last && !layout.line_break.empty();
        const std::string closing = opens_line ? layout.line_break + line_before(source_, whole_.begin).indent : "";
        if (self_closing_) return opened(text + closing);
        const bool has_closing_line = last && is_line_break_and_indent(source_, last) && !layout.line_break.empty();
        const std::size_t at = has_closing_line ? begin_in_source(source_, last) : content_.end;
        return source_.substr(0, removed_.begin) + source_.substr(removed_.end, at - removed_.end) + text + closing +
               source_.substr(at);
    }

    std::string with_text(const std::string& text) const {
        if (self_closing_) return opened(text);
        return source_.substr(0, content_.begin) + text + source_.substr(content_.end);
    }

private:
    /// Of the children; without line breaks where the element has text of its own or stands on one line.
    Layout child_layout() const {
        const Layout own = line_before(source_, whole_.begin);
        for (const pugi::xml_node& piece : element_.children()) {
            const bool is_text = piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata;
            if (is_text && !is_line_break_and_indent(source_, piece)) return {};
            if (piece.type() != pugi::node_element) continue;
            Layout layout = line_before(source_, begin_in_source(source_, piece));
            layout.unit = indent_unit(own.indent, layout.indent);
            return layout.line_break.empty() ? Layout{} : layout;
        }
        if (own.line_break.empty()) return {};
        const std::string unit = indent_unit(own.indent, own.indent);
        return {own.line_break, own.indent + unit, unit};
    }

    /// The source with the self-closing element turned into one with content.
    std::string opened(const std::string& content) const {
        const std::size_t name_end = source_.find_first_of(" \t\r\n/", whole_.begin);
        const std::size_t end_of_tag = source_.find_last_not_of(" \t\r\n", whole_.end - 3) + 1;
        return text_of(source_.substr(0, end_of_tag), '>', content, "</",
                       source_.substr(whole_.begin + 1, name_end - whole_.begin - 1), '>', source_.substr(whole_.end));
    }

    const std::string& source_;
    const pugi::xml_node element_;
    Range whole_;    ///< from "<" to behind the last ">"
    Range content_;  ///< between the tags; empty, at the end, for a self-closing element
    bool self_closing_ = false;
    Range removed_;
};

}  // namespace

XmlParseError XmlDocument::build() {
    // White space is kept wherever it stands, since it may be part of a value, and all else whose place an edit asks
    // for.
    constexpr unsigned options = pugi::parse_default | pugi::parse_ws_pcdata | pugi::parse_comments | pugi::parse_pi;
    tree_.reset();  // a failure on the way leaves no tree of other bytes
    XmlParseError error = read_xml(bytes_, source_);
    if (!error) {
        const auto result = tree_.load_buffer(source_.text.data(), source_.text.size(), options, pugi::encoding_utf8);
        if (!result) error = {result.status, result.description()};
    }
    if (error) clear();
    return error;
}

void XmlDocument::clear() {
    bytes_.clear();
    tree_.reset();
}

XmlParseError XmlDocument::load(Files& files, const std::string& path) {
    try {
        files.read(path, read_);
    } catch (const FileError& fault) {
        clear();
        return {-std::max(std::abs(fault.system_code()), 1), fault.what()};
    }
    if (tree_.first_child() && read_ == bytes_) return {};
    read_.swap(bytes_);
    return build();
}

XmlParseError XmlDocument::parse(std::string bytes) {
    bytes_ = std::move(bytes);
    return build();
}

void XmlDocument::save(Files& files, const std::string& path) const {
    safe_save(files, path, bytes_);
}

std::string XmlElement::name() const {
    return found_.node().name();
}

std::string XmlElement::text() const {
    if (found_.attribute()) return found_.attribute().value();
    static const pugi::xpath_query all_character_data("string()");
    return all_character_data.evaluate_string(found_);
}

std::string XmlElement::attribute(std::string_view name) const {
    return found_.node().attribute(std::string(name).c_str()).value();
}

std::optional<XmlElement> XmlElement::select(const std::string& xpath) const {
    const pugi::xml_node start = found_.node();
    pugi::xpath_node found;
    if (is_plain_path(xpath)) found = start.first_element_by_path(xpath.c_str());
    // A processing instruction may have the name, too, and stand before.
    if (!is_plain_path(xpath) || found.node().type() == pugi::node_pi)
        found = queried(xpath, [&](const pugi::xpath_query& query) { return start.select_node(query); });
    return found ? std::optional(XmlElement(document_, found)) : std::nullopt;
}

std::vector<XmlElement> XmlElement::select_all(const std::string& xpath) const {
    pugi::xpath_node_set found =
        queried(xpath, [&](const pugi::xpath_query& query) { return found_.node().select_nodes(query); });
    found.sort();
    std::vector<XmlElement> elements;
    for (const pugi::xpath_node& node : found) elements.push_back({document_, node});
    return elements;
}

std::optional<XmlElement> XmlDocument::select(const std::string& xpath) const {
    return XmlElement(this, tree_).select(xpath);
}

std::vector<XmlElement> XmlDocument::select_all(const std::string& xpath) const {
    return XmlElement(this, tree_).select_all(xpath);
}

void XmlDocument::set_text(const XmlElement& element, const std::string& text) {
    const pugi::xml_node node = node_of(element);
    if (element.text() == text) return;
    replace_source(SourceElement(source_.text, node).with_text(escaped(text, source_.encoding.charset, false)));
}

void XmlDocument::append_child(const XmlElement& parent, const XmlNewElement& addition,
                               const std::optional<XmlElement>& old) {
    SourceElement edit(source_.text, node_of(parent));
    if (old) edit.remove(node_of(*old));
    replace_source(edit.with_appended(addition, source_.encoding.charset));
}

pugi::xml_node XmlDocument::node_of(const XmlElement& element) const {
    if (element.document_ != this || element.found_.node().type() != pugi::node_element)
        raise_runtime_fault(error_number::invalid_call, "what to edit is no element of this document");
    return element.found_.node();
}

void XmlDocument::replace_source(std::string_view edited) {
    XmlDocument next;
    if (const XmlParseError error = next.parse(encode_xml(source_.encoding, edited)))
        raise_runtime_fault(error_number::invalid_call, "The edited document would not parse: ", error.reason);
    *this = std::move(next);
}

}  // namespace korvane
