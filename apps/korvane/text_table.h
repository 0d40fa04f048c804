// A table for people: columns as wide as their widest cell, two blanks apart.
#pragma once

#include <string>
#include <vector>

namespace korvane::program {

enum class Align { left, right };

struct Column {
    std::string title;
    Align align = Align::right;
};

class TextTable {
public:
    explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}
    /// One cell a column.
    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    /// Title line and rows, each ended by a line feed, no trailing blanks.
    std::string text() const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

/// Number of characters of a UTF-8 text.
std::size_t character_count(const std::string& text);

}  // namespace korvane::program
