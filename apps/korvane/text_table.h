// A table for people: columns as wide as their widest cell, two blanks apart.
#pragma once

#include <fmt/format.h>

#include <string>
#include <vector>

namespace korvane::program {

class TextTable {
public:
    using Cells = std::vector<std::string>;

    /// Columns are right-aligned, but for those whose title begins with '<', which is not part of the title.
    explicit TextTable(Cells titles) : rows_{std::move(titles)} {}
    /// One cell a column.
    void add(Cells cells) { rows_.push_back(std::move(cells)); }
    /// The same of texts and numbers, these in their shortest text.
    template <class... Values>
    void add_row(const Values&... values) {
        add({fmt::format("{}", values)...});
    }
    /// Title line and rows, each ended by a line feed, no trailing blanks.
    std::string text() const;
    /// The same for a spreadsheet: commas between the cells, quotes where a cell holds one; empty for "-".
    std::string csv() const;

private:
    std::vector<Cells> rows_;  // the first are the titles
};

}  // namespace korvane::program
