// Tables of texts, written one behind the other.
#pragma once

#include <ranges>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

/// The parts of a text between bars.
inline std::vector<std::string> cases_in(std::string_view table, char separator = '|') {
    std::vector<std::string> cases;
    for (const auto part : std::views::split(table, separator)) cases.emplace_back(part.begin(), part.end());
    return cases;
}

}  // namespace korvane
