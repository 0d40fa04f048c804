// Editing: every edit is a splice of the source text.
#include "korvane/error.h"
#include "platform/xml_splice.h"
#include "platform/xml_state.h"

namespace korvane {

namespace {

using Kind = XmlContentItem::Kind;

bool is_line_break_and_indent(std::string_view source, const XmlContentItem& item) {
    if (item.kind != Kind::characters) return false;
    const std::string_view text = source.substr(item.range.begin, item.range.end - item.range.begin);
    return text.find('\n') != std::string_view::npos && text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

/// Line break and indent before the markup at `position`; nothing where other text precedes it on its line.
XmlLayout line_before(std::string_view source, std::size_t position) {
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

/// Changes to one element's content, in the order of the source.
class ContentEdit {
public:
    ContentEdit(const std::string& source, std::size_t name_position)
        : source_(source),
          parent_(locate_element(source, name_position)),
          items_(content_items(source, parent_.content)) {}

    /// Layout of the children; without line breaks where the element has text of its own or stands on one line.
    XmlLayout child_layout() const {
        XmlLayout own = line_before(source_, parent_.whole.begin);
        for (const XmlContentItem& item : items_) {
            if (item.kind == Kind::characters && !is_line_break_and_indent(source_, item)) return {};
            if (item.kind != Kind::element) continue;
            XmlLayout layout = line_before(source_, item.range.begin);
            if (layout.line_break.empty()) return {};
            layout.unit = indent_unit(own.indent, layout.indent);
            return layout;
        }
        return layout_of_first_child(own);
    }

    /// Takes the child away together with the line break and indent before it.
    void remove(std::size_t name_position) {
        for (std::size_t i = 0; i < items_.size(); ++i) {
            if (items_[i].range.begin + 1 != name_position) continue;
            removed_ = items_[i].range;
            const bool with_line = i > 0 && is_line_break_and_indent(source_, items_[i - 1]);
            if (with_line) removed_.begin = items_[i - 1].range.begin;
            return;
        }
        raise_runtime_fault(error_number::invalid_call, "the element to replace is not a child of the other");
    }

    std::string with_appended(const XmlNewElement& addition, XmlCharset charset) const {
        const XmlLayout layout = child_layout();
        const std::string text = layout.line_break + layout.indent + new_element_text(addition, charset, layout);
        if (parent_.self_closing) return opened(text + closing_line(layout));
        const bool has_closing_line = !items_.empty() && is_line_break_and_indent(source_, items_.back());
        const std::size_t at =
            has_closing_line && !layout.line_break.empty() ? items_.back().range.begin : parent_.content.end;
        return source_.substr(0, removed_.begin) + source_.substr(removed_.end, at - removed_.end) + text +
               (items_.empty() ? closing_line(layout) : "") + source_.substr(at);
    }

    std::string with_text(const std::string& text) const {
        if (parent_.self_closing) return opened(text);
        return source_.substr(0, parent_.content.begin) + text + source_.substr(parent_.content.end);
    }

private:
    XmlLayout layout_of_first_child(const XmlLayout& own) const {
        if (own.line_break.empty()) return {};
        XmlLayout layout = own;
        layout.unit = indent_unit(own.indent, own.indent);
        layout.indent += layout.unit;
        return layout;
    }

    std::string closing_line(const XmlLayout& layout) const {
        if (layout.line_break.empty()) return {};
        return layout.line_break + line_before(source_, parent_.whole.begin).indent;
    }

    /// The source with a self-closing parent turned into one with content.
    std::string opened(const std::string& content) const {
        std::size_t end_of_tag = parent_.whole.end - 2;
        while (std::string_view(" \t\r\n").find(source_[end_of_tag - 1]) != std::string_view::npos) --end_of_tag;
        const std::string name = source_.substr(parent_.name.begin, parent_.name.end - parent_.name.begin);
        return source_.substr(0, end_of_tag) + ">" + content + "</" + name + ">" + source_.substr(parent_.whole.end);
    }

    const std::string& source_;
    XmlElementRange parent_;
    std::vector<XmlContentItem> items_;
    XmlRange removed_;
};

std::size_t name_position(void* node) {
    const std::ptrdiff_t offset = pugi::xml_node(static_cast<pugi::xml_node_struct*>(node)).offset_debug();
    if (offset < 1) raise_runtime_fault(error_number::invalid_call, "the element is not of this document");
    return static_cast<std::size_t>(offset);
}

}  // namespace

void XmlDocument::set_text(const XmlElement& element, const std::string& text) {
    require_editable(element);
    if (element.text() == text) return;
    const ContentEdit edit(state_->source, name_position(element.node_));
    state_->replace_source(edit.with_text(escape_xml(text, state_->encoding.charset, false)));
}

void XmlDocument::replace_child(const XmlElement& parent, const XmlElement& old, const XmlNewElement& replacement) {
    require_editable(parent);
    require_editable(old);
    ContentEdit edit(state_->source, name_position(parent.node_));
    edit.remove(name_position(old.node_));
    state_->replace_source(edit.with_appended(replacement, state_->encoding.charset));
}

void XmlDocument::append_child(const XmlElement& parent, const XmlNewElement& addition) {
    require_editable(parent);
    const ContentEdit edit(state_->source, name_position(parent.node_));
    state_->replace_source(edit.with_appended(addition, state_->encoding.charset));
}

void XmlDocument::require_editable(const XmlElement& element) const {
    if (!state_->editable) raise_runtime_fault(error_number::invalid_call, "the document was not loaded for editing");
    if (element.document_ != this)
        raise_runtime_fault(error_number::invalid_call, "the element is of another document");
}

}  // namespace korvane
