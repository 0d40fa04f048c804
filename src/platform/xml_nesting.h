// How deep the elements of an XML document nest.
#pragma once

#include <cstddef>
#include <optional>
#include <pugixml.hpp>
#include <string_view>

namespace korvane {

/// Whether elements may nest deeper than `limit`, from the text alone: false is certain for well-formed text. Many
/// empty elements look like deep ones.
bool may_nest_deeper(std::string_view text, std::size_t limit);

/// The first element deeper than `limit`, if any. Slower than the parser, since it looks at every node.
std::optional<pugi::xml_node> first_deeper(const pugi::xml_document& tree, std::size_t limit);

}  // namespace korvane
