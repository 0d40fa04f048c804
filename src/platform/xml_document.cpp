// An XML document: reading with XPath, and edits, each a splice of the source text, which Expat has found well-formed.
#include "platform/xml_document.h"

#include <algorithm>
#include <cstdlib>

#include "korvane/error.h"
#include "platform/files.h"
#include "platform/text.h"

namespace korvane {

namespace {

constexpr std::int32_t query_failed = -2147467259;
constexpr std::ptrdiff_t most_brackets = 64;
constexpr std::size_t longest_query = 65536;
constexpr std::size_t longest_plain_path = 1024;  // within the number of steps that the XPath engine takes

[[noreturn]] void fail_query(const std::string& query, std::string_view reason) {
    constexpr std::size_t shown = 200;
    throw Error(query_failed, "XPath",
                text_of("Query[", query.substr(0, shown), query.size() > shown ? "..." : "", "]: ", reason),
                ErrorKind::configuration);
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
    if (query.size() > longest_query) fail_query(query, text_of("longer than ", longest_query, " bytes"));
    // The parser goes several levels down the stack for every bracket; its own limit counts the levels of the result.
    if (std::ranges::count(query, '(') + std::ranges::count(query, '[') > most_brackets)
        fail_query(query, text_of("more than ", most_brackets, " brackets"));
    try {
        return run(pugi::xpath_query(query.c_str()));
    } catch (const pugi::xpath_exception& fault) {
        fail_query(query, fault.what());
    }
}

/// Positions in the source.
struct Range {
    std::size_t begin = 0, end = 0;
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

/// Line break and indent before the markup at `position`; nothing where other text precedes it on its line.
std::string line_before(std::string_view source, std::size_t position) {
    const std::size_t line_feed = source.substr(0, position).find_last_not_of(" \t");
    if (line_feed == std::string_view::npos || source[line_feed] != '\n') return {};
    const std::size_t begin = line_feed - (line_feed > 0 && source[line_feed - 1] == '\r' ? 1 : 0);
    return std::string(source.substr(begin, position - begin));
}

/// Text or attribute value in a form that reads back as the same. A reader turns bare carriage returns into line feeds
/// and, in attributes, line feeds and tabs into blanks.
std::string escaped(std::string_view text, bool in_attribute) {
    const std::string_view special = in_attribute ? "&<>\r\"\n\t" : "&<>\r";
    std::string result;
    for (const char character : text)
        if (special.find(character) == std::string_view::npos)
            result += character;
        else
            append_text(result, '&',
                        character == '&'   ? "amp"
                        : character == '<' ? "lt"
                        : character == '>' ? "gt"
                        : character == '"' ? "quot"
                                           : "#" + std::to_string(character),
                        ';');
    return result;
}

/// The new element on a line of its own, where `line` is one, and its children one unit further in.
std::string element_text(const XmlNewElement& element, const std::string& line, const std::string& unit) {
    std::string text = line + "<" + element.name;
    for (const auto& [attribute, value] : element.attributes)
        append_text(text, ' ', attribute, "=\"", escaped(value, true), '"');
    if (element.children.empty() && element.text.empty()) return text + "/>";
    append_text(text, '>', escaped(element.text, false));
    for (const XmlNewElement& child : element.children)
        text += element_text(child, line.empty() ? line : line + unit, unit);
    return text + (element.children.empty() ? "" : line) + "</" + element.name + ">";
}

/// An element in the source, and what its content becomes.
class SourceElement {
public:
    SourceElement(const std::string& source, const pugi::xml_node& element)
        : source_(source), element_(element), whole_(range_in_source(source, element)) {
        self_closing_ = source[whole_.end - 2] == '/';
        content_.end = self_closing_ ? whole_.end : source.rfind('<', whole_.end - 1);
        content_.begin = element.first_child() ? begin_in_source(source, element.first_child()) : content_.end;
    }

    std::string with_content(const std::string& content) const {
        if (!self_closing_) return source_.substr(0, content_.begin) + content + source_.substr(content_.end);
        const std::size_t name_end = source_.find_first_of(" \t\r\n/", whole_.begin);
        const std::size_t end_of_tag = source_.find_last_not_of(" \t\r\n", whole_.end - 3) + 1;
        return text_of(source_.substr(0, end_of_tag), '>', content, "</",
                       source_.substr(whole_.begin + 1, name_end - whole_.begin - 1), '>', source_.substr(whole_.end));
    }

    /// Takes `old`, a child or nothing, away together with its line, and puts the addition, laid out as its siblings
    /// or else one unit further in than this element, behind all other children.
    std::string with_child(const XmlNewElement& addition, const pugi::xml_node& old) const {
        std::string content = source_.substr(content_.begin, content_.end - content_.begin);
        if (old) {
            const Range range = range_in_source(source_, old);
            const std::size_t begin = range.begin - line_before(source_, range.begin).size();
            content.erase(begin - content_.begin, range.end - begin);
        }
        const std::string own = line_before(source_, whole_.begin);
        const pugi::xml_node sibling =
            element_.find_child([](const auto& child) { return child.type() == pugi::node_element; });
        std::string unit = own.find('\t') == std::string::npos ? "  " : "\t";
        const std::string line = sibling       ? line_before(source_, begin_in_source(source_, sibling))
                                 : own.empty() ? ""
                                               : own + unit;
        if (!own.empty() && line.size() > own.size()) unit = line.substr(own.size());
        std::size_t end = content.find_last_not_of(" \t\r\n") + 1;
        if (content.find('\n', end) == std::string::npos) end = content.size();
        const std::string closing = end < content.size() ? content.substr(end) : sibling ? "" : own;
        return with_content(content.substr(0, end) + element_text(addition, line, unit) + closing);
    }

private:
    const std::string& source_;
    const pugi::xml_node element_;
    Range whole_;    ///< from "<" to behind the last ">"
    Range content_;  ///< between the tags; empty, at the end, for a self-closing element
    bool self_closing_ = false;
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

void XmlDocument::set_text(const XmlElement& element, const std::string& text) {
    const pugi::xml_node node = node_of(element);
    if (element.text() != text) replace_source(SourceElement(source_.text, node).with_content(escaped(text, false)));
}

void XmlDocument::append_child(const XmlElement& parent, const XmlNewElement& addition,
                               const std::optional<XmlElement>& old) {
    const pugi::xml_node node = node_of(parent), removed = old ? node_of(*old) : pugi::xml_node();
    if (removed && removed.parent() != node)
        raise_runtime_fault(error_number::invalid_call, "the element to replace is not a child of the other");
    replace_source(SourceElement(source_.text, node).with_child(addition, removed));
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
