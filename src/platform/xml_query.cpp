// Reading: elements and XPath queries.
#include <algorithm>

#include "korvane/error.h"
#include "platform/text.h"
#include "platform/xml_state.h"

namespace korvane {

namespace {

constexpr std::int32_t query_failed = -2147467259;
constexpr std::size_t deepest_query = 64;
constexpr std::size_t longest_query = 65536;

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

}  // namespace

std::string XmlElement::name() const {
    return pugi::xml_node(node_).name();
}

std::string XmlElement::text() const {
    if (attribute_) return pugi::xml_attribute(attribute_).value();
    static const pugi::xpath_query all_character_data("string()");
    return all_character_data.evaluate_string(pugi::xml_node(node_));
}

std::string XmlElement::attribute(std::string_view name) const {
    return pugi::xml_node(node_).attribute(std::string(name).c_str()).value();
}

std::optional<XmlElement> XmlElement::child(std::string_view name) const {
    const pugi::xml_node found = pugi::xml_node(node_).child(std::string(name).c_str());
    if (!found) return std::nullopt;
    return XmlElement(document_, found.internal_object());
}

std::optional<XmlElement> XmlElement::select(const std::string& xpath) const {
    return queried(xpath, [&](const pugi::xpath_query& query) -> std::optional<XmlElement> {
        const pugi::xpath_node found = pugi::xml_node(node_).select_node(query);
        if (!found) return std::nullopt;
        return XmlElement(document_, found.node().internal_object(), found.attribute().internal_object());
    });
}

std::vector<XmlElement> XmlElement::select_all(const std::string& xpath) const {
    return queried(xpath, [&](const pugi::xpath_query& query) {
        pugi::xpath_node_set found = pugi::xml_node(node_).select_nodes(query);
        found.sort();
        std::vector<XmlElement> elements;
        for (const pugi::xpath_node& node : found)
            elements.push_back({document_, node.node().internal_object(), node.attribute().internal_object()});
        return elements;
    });
}

std::optional<XmlElement> XmlDocument::select(const std::string& xpath) const {
    return XmlElement(this, state_->tree.internal_object()).select(xpath);
}

std::vector<XmlElement> XmlDocument::select_all(const std::string& xpath) const {
    return XmlElement(this, state_->tree.internal_object()).select_all(xpath);
}

}  // namespace korvane
