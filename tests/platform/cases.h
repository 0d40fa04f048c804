// Tables of texts, written one behind the other.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace korvane {

/// The parts of a text between bars.
inline std::vector<std::string> cases_in(std::string_view table) {
    std::vector<std::string> cases;
    for (std::size_t bar = table.find('|'); bar != std::string_view::npos; bar = table.find('|')) {
        cases.emplace_back(table.substr(0, bar));
        table.remove_prefix(bar + 1);
    }
    cases.emplace_back(table);
    return cases;
}

}  // namespace korvane
