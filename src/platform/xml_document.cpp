#include "platform/xml_document.h"

#include <algorithm>
#include <cstdlib>

#include "korvane/error.h"
#include "platform/safe_save.h"
#include "platform/xml_nesting.h"
#include "platform/xml_state.h"

namespace korvane {

namespace {

// White space is kept where it is all that an element holds, since it may be its value; texts outside the root element
// are kept so that they can be refused.
constexpr unsigned parse_options = pugi::parse_default | pugi::parse_ws_pcdata_single | pugi::parse_fragment;

constexpr std::size_t largest_document = std::size_t{256} << 20;
constexpr std::size_t deepest_element = 8192;
constexpr std::size_t longest_shown_name = 100;

// Codes beside the parser's own.
constexpr std::int32_t document_too_large = 100;
constexpr std::int32_t encoding_unknown = 101;
constexpr std::int32_t characters_malformed = 102;
constexpr std::int32_t text_outside_root = 103;
constexpr std::int32_t several_roots = 104;
constexpr std::int32_t nested_too_deep = 105;

bool is_blank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

XmlParseError check_structure(const pugi::xml_document& tree) {
    pugi::xml_node root;
    for (const pugi::xml_node node : tree.children()) {
        if (node.type() == pugi::node_element) {
            if (root) return {several_roots, "There is more than one root element"};
            root = node;
        } else if (!is_blank(node.value())) {
            return {text_outside_root, "There is text outside the root element"};
        }
    }
    if (!root) return {pugi::status_no_document_element, "There is no root element"};
    return {};
}

}  // namespace

void XmlDocument::State::clear() {
    tree.reset();
    source.clear();
    encoding = {};
    editable = false;
}

XmlParseError XmlDocument::State::decode() {
    if (parsed.size() > largest_document) {
        parsed = {};
        return {document_too_large, "The document is larger than " + std::to_string(largest_document) + " bytes"};
    }
    std::string name;
    const std::optional<XmlEncoding> found = detect_xml_encoding(parsed, name);
    if (!found) return {encoding_unknown, "The encoding [" + name + "] is not supported or does not fit the document"};
    encoding = *found;
    if (!decode_xml(encoding, parsed))
        return {characters_malformed, "The document holds bytes that are no characters in its encoding"};
    return {};
}

XmlParseError XmlDocument::State::build_tree() {
    const bool may_be_deep = may_nest_deeper(parsed, deepest_element);
    const pugi::xml_parse_result result =
        tree.load_buffer_inplace(parsed.data(), parsed.size(), parse_options, pugi::encoding_utf8);
    if (!result)
        return {result.status, std::string(result.description()) + " (at byte " + std::to_string(result.offset) + ")"};
    if (may_be_deep) {
        if (const auto deeper = first_deeper(tree, deepest_element))
            return {nested_too_deep, "The element [" + std::string(deeper->name()).substr(0, longest_shown_name) +
                                         "] at byte " + std::to_string(deeper->offset_debug()) +
                                         " is nested deeper than " + std::to_string(deepest_element) + " levels"};
    }
    return check_structure(tree);
}

XmlParseError XmlDocument::State::build(bool for_editing) {
    XmlParseError error = decode();
    if (!error) {
        if (for_editing) source = parsed;
        error = build_tree();
    }
    if (error)
        clear();
    else
        editable = for_editing;
    return error;
}

void XmlDocument::State::replace_source(std::string edited) {
    parsed = edited;
    if (const XmlParseError error = build_tree()) {
        parsed = source;
        build_tree();
        raise_runtime_fault(error_number::invalid_call, "The edited document would not parse: " + error.reason);
    }
    source = std::move(edited);
}

XmlDocument::XmlDocument() : state_(std::make_unique<State>()) {}
XmlDocument::~XmlDocument() = default;
XmlDocument::XmlDocument(XmlDocument&&) noexcept = default;
XmlDocument& XmlDocument::operator=(XmlDocument&&) noexcept = default;

XmlParseError XmlDocument::load(Files& files, const std::string& path, bool for_editing) {
    state_->clear();
    try {
        files.read(path, state_->parsed);
    } catch (const FileError& fault) {
        return {-std::max(std::abs(fault.system_code()), 1), fault.what()};
    }
    return state_->build(for_editing);
}

XmlParseError XmlDocument::parse(std::string bytes, bool for_editing) {
    state_->clear();
    state_->parsed = std::move(bytes);
    return state_->build(for_editing);
}

std::string XmlDocument::bytes() const {
    if (!state_->editable) raise_runtime_fault(error_number::invalid_call, "the document was not loaded for editing");
    return encode_xml(state_->encoding, state_->source);
}

void XmlDocument::save(Files& files, const std::string& path) const {
    const std::string encoded = bytes();
    // The tree was parsed from the source after the last edit; what is left to check is the way to the bytes.
    std::string decoded = encoded;
    if (!decode_xml(state_->encoding, decoded) || decoded != state_->source)
        raise_runtime_fault(error_number::invalid_call, "[" + path + "]: the document would not read back");
    safe_save(files, path, encoded);
}

}  // namespace korvane
