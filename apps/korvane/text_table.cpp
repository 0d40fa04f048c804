#include "text_table.h"

#include <algorithm>

namespace korvane::program {

namespace {

/// Number of characters of a UTF-8 text.
std::size_t old_character_count(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

}  // namespace

std::string TextTable::text() const {
    std::vector<Cells> rows = rows_;
    std::vector<std::size_t> widths(rows.front().size());
    std::vector<bool> left;
    for (std::string& title : rows.front()) {
        left.push_back(title.starts_with('<'));
        if (left.back()) title.erase(0, 1);
    }
    for (const Cells& row : rows)
        for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], old_character_count(row[i]));

    std::string text;
    for (const Cells& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < widths.size(); ++i) {
            const std::string blanks(widths[i] - old_character_count(row[i]), ' ');
            line += (i ? "  " : "") + (left[i] ? row[i] + blanks : blanks + row[i]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    }
    return text;
}

std::string TextTable::csv() const {
    std::string text;
    for (std::size_t row = 0; row < rows_.size(); ++row)
        for (std::size_t i = 0; i < rows_[row].size(); ++i) {
            std::string cell = rows_[row][i];
            if (row == 0 && cell.starts_with('<')) cell.erase(0, 1);
            if (cell == "-") cell.clear();
            if (cell.find_first_of(",\"\r\n") != std::string::npos) {
                for (std::size_t at = cell.find('"'); at != std::string::npos; at = cell.find('"', at + 2))
                    cell.insert(at, 1, '"');
                cell = '"' + cell + '"';
            }
            text += cell + (i + 1 < rows_[row].size() ? ',' : '\n');
        }
    return text;
}

}  // namespace korvane::program
