#include "text_table.h"

#include <algorithm>

namespace korvane::program {

std::size_t character_count(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string TextTable::text() const {
    std::vector<std::vector<std::string>> lines(1);
    for (const Column& column : columns_) lines.front().push_back(column.title);
    lines.insert(lines.end(), rows_.begin(), rows_.end());

    std::vector<std::size_t> widths(columns_.size());
    for (const auto& line : lines)
        for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], character_count(line[i]));

    std::string text;
    for (const auto& line : lines) {
        std::string row;
        for (std::size_t i = 0; i < widths.size(); ++i) {
            const std::string blanks(widths[i] - character_count(line[i]), ' ');
            if (i) row += "  ";
            row += columns_[i].align == Align::left ? line[i] + blanks : blanks + line[i];
        }
        row.erase(row.find_last_not_of(' ') + 1);
        text += row + '\n';
    }
    return text;
}

}  // namespace korvane::program
