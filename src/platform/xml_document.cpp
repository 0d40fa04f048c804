#include "platform/xml_document.h"

#include <algorithm>
#include <cstdlib>

#include "platform/safe_save.h"
#include "platform/xml_state.h"

namespace korvane {

XmlParseError XmlDocument::State::build() {
    // White space is kept wherever it stands, since it may be part of a value.
    constexpr unsigned options = pugi::parse_default | pugi::parse_ws_pcdata;
    tree.reset();  // a failure on the way leaves no tree of other bytes
    XmlParseError error = read_xml(bytes, source);
    if (!error) {
        const auto result = tree.load_buffer(source.text.data(), source.text.size(), options, pugi::encoding_utf8);
        if (!result) error = {result.status, result.description()};
    }
    if (error) clear();
    return error;
}

void XmlDocument::State::clear() {
    bytes.clear();
    tree.reset();
}

XmlDocument::XmlDocument() : state_(std::make_unique<State>()) {}
XmlDocument::~XmlDocument() = default;
XmlDocument::XmlDocument(XmlDocument&&) noexcept = default;
XmlDocument& XmlDocument::operator=(XmlDocument&&) noexcept = default;

XmlParseError XmlDocument::load(Files& files, const std::string& path) {
    try {
        files.read(path, read_);
    } catch (const FileError& fault) {
        state_->clear();
        return {-std::max(std::abs(fault.system_code()), 1), fault.what()};
    }
    if (state_->tree.first_child() && read_ == state_->bytes) return {};
    read_.swap(state_->bytes);
    return state_->build();
}

XmlParseError XmlDocument::parse(std::string bytes) {
    state_->bytes = std::move(bytes);
    return state_->build();
}

const std::string& XmlDocument::bytes() const {
    return state_->bytes;
}

void XmlDocument::save(Files& files, const std::string& path) const {
    safe_save(files, path, state_->bytes);
}

}  // namespace korvane
