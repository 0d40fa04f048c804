// Reading: elements and XPath queries.
#include <algorithm>

#include "korvane/error.h"
#include "platform/xml_state.h"

namespace korvane {

namespace {

constexpr std::int32_t query_failed = -2147467259;
constexpr std::size_t deepest_query = 64;
constexpr std::size_t longest_query = 65536;

pugi::xml_node node_of(void* handle) {
    return pugi::xml_node(static_cast<pugi::xml_node_struct*>(handle));
}

[[noreturn]] void fail(const std::string& query, const std::string& reason) {
    constexpr std::size_t shown = 200;
    const std::string name = query.size() <= shown ? query : query.substr(0, shown) + "...";
    throw Error(query_failed, "XPath", "Query[" + name + "]: " + reason, ErrorKind::configuration);
}

/// The parser goes several levels down the stack for every bracket. Its own limit, which also bounds signs and steps,
/// counts the levels of the result only.
void check_nesting(const std::string& query) {
    std::size_t depth = 0;
    std::size_t deepest = 0;
    char quote = 0;
    for (const char character : query) {
        if (quote != 0) {
            if (character == quote) quote = 0;
        } else if (character == '"' || character == '\'') {
            quote = character;
        } else if (character == '(' || character == '[') {
            deepest = std::max(deepest, ++depth);
        } else if (character == ')' || character == ']') {
            depth -= depth > 0 ? 1 : 0;
        }
    }
    if (deepest > deepest_query) fail(query, "nested deeper than " + std::to_string(deepest_query) + " levels");
}

template <class Run>
auto guarded(const std::string& query, Run run) {
    if (query.size() > longest_query) fail(query, "longer than " + std::to_string(longest_query) + " bytes");
    check_nesting(query);
    try {
        return run();
    } catch (const pugi::xpath_exception& fault) {
        fail(query, fault.what());
    }
}

void* element_of(const std::string& query, const pugi::xpath_node& found) {
    if (found.node().type() != pugi::node_element) fail(query, "it does not select elements");
    return found.node().internal_object();
}

void* first_element(const pugi::xml_node& context, const std::string& query) {
    return guarded(query, [&]() -> void* {
        const pugi::xpath_node found = context.select_node(query.c_str());
        return found ? element_of(query, found) : nullptr;
    });
}

std::vector<void*> all_elements(const pugi::xml_node& context, const std::string& query) {
    return guarded(query, [&] {
        pugi::xpath_node_set found = context.select_nodes(query.c_str());
        found.sort();
        std::vector<void*> elements;
        elements.reserve(found.size());
        for (const pugi::xpath_node& node : found) elements.push_back(element_of(query, node));
        return elements;
    });
}

bool is_text(pugi::xml_node node) {
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

/// The node after `node` in document order within `root`; none after the last.
pugi::xml_node next_within(pugi::xml_node node, pugi::xml_node root) {
    if (const pugi::xml_node child = node.first_child()) return child;
    while (node != root) {
        if (const pugi::xml_node sibling = node.next_sibling()) return sibling;
        node = node.parent();
    }
    return {};
}

}  // namespace

std::string XmlElement::name() const {
    return node_of(node_).name();
}

std::string XmlElement::text() const {
    const pugi::xml_node element = node_of(node_);
    std::string text;
    for (pugi::xml_node node = element.first_child() ? element : pugi::xml_node(); node;
         node = next_within(node, element))
        if (is_text(node)) text += node.value();
    return text;
}

std::string XmlElement::attribute(std::string_view name) const {
    return node_of(node_).attribute(std::string(name).c_str()).value();
}

std::optional<XmlElement> XmlElement::child(std::string_view name) const {
    const pugi::xml_node found = node_of(node_).child(std::string(name).c_str());
    if (!found) return std::nullopt;
    return XmlElement(document_, found.internal_object());
}

std::optional<XmlElement> XmlElement::select(const std::string& xpath) const {
    void* const found = first_element(node_of(node_), xpath);
    if (found == nullptr) return std::nullopt;
    return XmlElement(document_, found);
}

std::vector<XmlElement> XmlElement::select_all(const std::string& xpath) const {
    std::vector<XmlElement> elements;
    for (void* const found : all_elements(node_of(node_), xpath)) elements.push_back(XmlElement(document_, found));
    return elements;
}

std::optional<XmlElement> XmlDocument::select(const std::string& xpath) const {
    void* const found = first_element(state_->tree, xpath);
    if (found == nullptr) return std::nullopt;
    return XmlElement(this, found);
}

std::vector<XmlElement> XmlDocument::select_all(const std::string& xpath) const {
    std::vector<XmlElement> elements;
    for (void* const found : all_elements(state_->tree, xpath)) elements.push_back(XmlElement(this, found));
    return elements;
}

}  // namespace korvane
