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

enum class Markup { start_tag, empty_tag, end_tag, characters, other };

struct Token {
    Markup kind = Markup::other;
    Range range;
};

/// Behind the ">" of the start tag at `from`; a ">" within a quoted value is none.
std::size_t behind_start_tag(std::string_view source, std::size_t from) {
    for (;;) {
        const std::size_t at = source.find_first_of("\"'>", from);
        if (source[at] == '>') return at + 1;
        from = source.find(source[at], at + 1) + 1;
    }
}

Token token_at(std::string_view source, std::size_t at) {
    const std::string_view rest = source.substr(at);
    const auto up_to = [&](Markup kind, std::string_view ending, std::size_t skipped) {
        return Token{kind, {at, source.find(ending, at + skipped) + ending.size()}};
    };
    if (rest.front() != '<') return {Markup::characters, {at, source.find('<', at)}};
    if (rest.starts_with("<!--")) return up_to(Markup::other, "-->", 4);
    if (rest.starts_with("<![CDATA[")) return up_to(Markup::characters, "]]>", 9);
    if (rest.starts_with("<?")) return up_to(Markup::other, "?>", 2);
    if (rest.starts_with("</")) return up_to(Markup::end_tag, ">", 2);
    const std::size_t end = behind_start_tag(source, at);
    return {source[end - 2] == '/' ? Markup::empty_tag : Markup::start_tag, {at, end}};
}

bool is_line_break_and_indent(std::string_view source, const Token& piece) {
    const std::string_view text = source.substr(piece.range.begin, piece.range.end - piece.range.begin);
    return piece.kind == Markup::characters && text.find('\n') != std::string_view::npos &&
           text.find_first_not_of(" \t\r\n") == std::string_view::npos;
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
    SourceElement(const std::string& source, std::size_t begin)
        : source_(source), whole_(token_at(source, begin).range) {
        self_closing_ = source[whole_.end - 2] == '/';
        content_ = {whole_.end, whole_.end};
        for (int depth = self_closing_ ? -1 : 0; depth >= 0;) {
            const Token token = token_at(source, whole_.end);
            whole_.end = token.range.end;
            const bool of_child = depth > 0;
            depth += (token.kind == Markup::start_tag) - (token.kind == Markup::end_tag);
            if (depth < 0) break;
            content_.end = whole_.end;
            if (!of_child) pieces_.push_back(token);
            pieces_.back().range.end = whole_.end;
        }
    }

    /// Takes the child away together with the line break and indent before it.
    void remove(std::size_t begin) {
        for (std::size_t i = 0; i < pieces_.size(); ++i) {
            if (pieces_[i].range.begin != begin) continue;
            removed_ = pieces_[i].range;
            const bool with_line = i > 0 && is_line_break_and_indent(source_, pieces_[i - 1]);
            if (with_line) removed_.begin = pieces_[i - 1].range.begin;
            return;
        }
        raise_runtime_fault(error_number::invalid_call, "the element to replace is not a child of the other");
    }

    std::string with_appended(const XmlNewElement& addition, XmlCharset charset) const {
        const Layout layout = child_layout();
        const std::string text = layout.line_break + layout.indent + element_text(addition, charset, layout);
        const std::string closing =
            pieces_.empty()
                ? layout.line_break + (layout.line_break.empty() ? "" : line_before(source_, whole_.begin).indent)
                : "";
        if (self_closing_) return opened(text + closing);
        const bool has_closing_line =
            !pieces_.empty() && is_line_break_and_indent(source_, pieces_.back()) && !layout.line_break.empty();
        const std::size_t at = has_closing_line ? pieces_.back().range.begin : content_.end;
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
        for (const Token& piece : pieces_) {
            if (piece.kind == Markup::characters && !is_line_break_and_indent(source_, piece)) return {};
            if (piece.kind != Markup::start_tag && piece.kind != Markup::empty_tag) continue;
            Layout layout = line_before(source_, piece.range.begin);
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
    Range whole_;    ///< from "<" to behind the last ">"
    Range content_;  ///< between the tags; empty, at the end, for a self-closing element
    bool self_closing_ = false;
    std::vector<Token> pieces_;  ///< of the content; a child element is one, with the kind of its first tag
    Range removed_;
};

}  // namespace

XmlParseError XmlDocument::build() {
    // White space is kept wherever it stands, since it may be part of a value.
    constexpr unsigned options = pugi::parse_default | pugi::parse_ws_pcdata;
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
    const pugi::xpath_node found =
        is_plain_path(xpath) ? start.first_element_by_path(xpath.c_str())
                             : queried(xpath, [&](const pugi::xpath_query& query) { return start.select_node(query); });
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
    const std::size_t begin = begin_of(element);
    if (element.text() == text) return;
    replace_source(SourceElement(source_.text, begin).with_text(escaped(text, source_.encoding.charset, false)));
}

void XmlDocument::append_child(const XmlElement& parent, const XmlNewElement& addition,
                               const std::optional<XmlElement>& old) {
    SourceElement edit(source_.text, begin_of(parent));
    if (old) edit.remove(begin_of(*old));
    replace_source(edit.with_appended(addition, source_.encoding.charset));
}

std::size_t XmlDocument::begin_of(const XmlElement& element) const {
    if (element.document_ != this || element.found_.node().type() != pugi::node_element)
        raise_runtime_fault(error_number::invalid_call, "what to edit is no element of this document");
    return static_cast<std::size_t>(element.found_.node().offset_debug()) - 1;  // before its name
}

void XmlDocument::replace_source(std::string_view edited) {
    XmlDocument next;
    if (const XmlParseError error = next.parse(encode_xml(source_.encoding, edited)))
        raise_runtime_fault(error_number::invalid_call, "The edited document would not parse: ", error.reason);
    *this = std::move(next);
}

}  // namespace korvane
