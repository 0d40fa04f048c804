#include "platform/xml_nesting.h"

#include <algorithm>

namespace korvane {

namespace {

constexpr std::size_t block = 240;  // a fixed count, so that the compiler makes one vector loop of it in bytes

struct TagCounts {
    std::size_t all = 0, ends = 0, others = 0;  // others: comments, CDATA, instructions, document types
};

TagCounts count_tags(const char* text) {
    unsigned char all = 0, ends = 0, others = 0;
    for (std::size_t i = 0; i < block; ++i) {
        const bool begins = text[i] == '<';
        const char next = text[i + 1];
        all += begins;
        ends += begins & (next == '/');
        others += begins & ((next == '!') | (next == '?'));
    }
    return {all, ends, others};
}

/// Every level has two tags, but the innermost, which may be empty. Most documents have not enough of them.
bool has_tags_for_deeper(std::string_view text, std::size_t limit) {
    std::size_t count = 0;
    for (; text.size() >= block; text.remove_prefix(block)) {
        unsigned char in_block = 0;
        for (std::size_t i = 0; i < block; ++i) in_block += text[i] == '<';
        count += in_block;
        if (count > 2 * limit) return true;
    }
    return count + text.size() > 2 * limit;
}

/// Behind the comment, CDATA section or instruction at `at`; behind the "<!" of a document type, whose tags count as
/// elements that nothing ends.
std::size_t behind_other(std::string_view text, std::size_t at) {
    const auto behind = [&](std::string_view ending) {
        const std::size_t found = text.find(ending, at + 2);
        return found == std::string_view::npos ? text.size() : found + ending.size();
    };
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("<!--")) return behind("-->");
    if (rest.starts_with("<![CDATA[")) return behind("]]>");
    if (rest.starts_with("<?")) return behind("?>");
    return at + 2;
}

}  // namespace

bool may_nest_deeper(std::string_view text, std::size_t limit) {
    if (!has_tags_for_deeper(text, limit)) return false;
    std::size_t depth = 0;
    for (std::size_t at = 0; at < text.size();) {
        const bool whole_block = at + block < text.size();
        const TagCounts counts = whole_block ? count_tags(text.data() + at) : TagCounts{};
        if (whole_block && counts.others == 0) {
            const std::size_t starts = counts.all - counts.ends;
            depth += starts;
            if (depth > limit) return true;
            depth -= std::min(depth, counts.ends);
            at += block;
            continue;
        }
        const std::size_t end = std::min(at + block, text.size());
        for (at = std::min(text.find('<', at), text.size()); at < end; at = std::min(text.find('<', at), text.size())) {
            const char next = at + 1 < text.size() ? text[at + 1] : '\0';
            if (next == '/')
                depth -= depth > 0 ? 1 : 0;
            else if (next != '!' && next != '?' && ++depth > limit)
                return true;
            at = next == '!' || next == '?' ? behind_other(text, at) : at + 1;
        }
    }
    return false;
}

std::optional<pugi::xml_node> first_deeper(const pugi::xml_document& tree, std::size_t limit) {
    std::size_t depth = 1;
    for (pugi::xml_node node = tree.first_child(); node;) {
        if (depth > limit && node.type() == pugi::node_element) return node;
        if (const pugi::xml_node child = node.first_child()) {
            node = child;
            ++depth;
            continue;
        }
        while (depth > 1 && !node.next_sibling()) {
            node = node.parent();
            --depth;
        }
        node = node.next_sibling();
    }
    return std::nullopt;
}

}  // namespace korvane
