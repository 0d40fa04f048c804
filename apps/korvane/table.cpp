#include "table.h"

#include <fmt/format.h>

#include <algorithm>
#include <regex>
#include <sstream>

namespace korvane::program {

namespace {

/// Number of characters of a UTF-8 text.
std::size_t character_count(const std::string& text) {
    return static_cast<std::size_t>(std::ranges::count_if(text, [](char byte) { return (byte & 0xC0) != 0x80; }));
}

}  // namespace

Table::Table(std::initializer_list<std::string_view> columns) {
    for (const std::string_view column : columns) {
        Column& made = columns_.emplace_back();
        std::istringstream parts{std::string(column)};
        for (std::string* part : {&made.title, &made.name, &made.format}) std::getline(parts, *part, '|');
        made.format = "{:" + made.format + "}";
    }
}

std::string Table::cell(const Json& value, const Column& column, const char* missing) {
    if (value.is_null()) return missing;
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (value.is_number_float()) return fmt::format(fmt::runtime(column.format), value.get<double>());
    return value.is_string() ? value.get<std::string>() : value.dump();
}

Json Table::json(std::size_t first) const {
    Json objects = Json::array();
    for (std::size_t row = first; row < rows_.size(); ++row) {
        objects.push_back(Json::object());
        for (std::size_t i = 0; i < columns_.size(); ++i)
            if (!columns_[i].name.empty()) objects.back()[columns_[i].name] = rows_[row][i];
    }
    return objects;
}

/// The titles, and the rows; of the columns that have a title.
std::vector<std::vector<std::string>> Table::cells(const char* missing) const {
    std::vector<std::vector<std::string>> lines(rows_.size() + 1);
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const Column& column = columns_[i];
        if (column.title.empty()) continue;
        lines[0].push_back(column.title.substr(column.title.starts_with('<')));
        for (std::size_t row = 0; row < rows_.size(); ++row)
            lines[row + 1].push_back(cell(rows_[row][i], column, missing));
    }
    return lines;
}

std::string Table::text() const {
    std::vector<std::vector<std::string>> lines = cells("-");
    std::size_t place = 0;
    for (const Column& column : columns_) {
        if (column.title.empty()) continue;
        std::size_t width = 0;
        for (const auto& line : lines) width = std::max(width, character_count(line[place]));
        for (auto& line : lines) {
            const std::string blanks(width - character_count(line[place]), ' ');
            line[place].insert(column.title.starts_with('<') ? line[place].size() : 0, blanks);
        }
        ++place;
    }
    std::string text;
    for (const auto& line : lines) {
        text += fmt::format("{}", fmt::join(line, "  "));
        text.erase(text.find_last_not_of(' ') + 1);
        if (!text.empty()) text += '\n';
    }
    return text;
}

std::string Table::csv() const {
    static const std::regex quote("\"");
    std::string text;
    for (auto& line : cells("")) {
        for (std::string& cell : line)
            if (cell.find_first_of(",\"\r\n") != std::string::npos)
                cell = '"' + std::regex_replace(cell, quote, "\"\"") + '"';
        text += fmt::format("{}\n", fmt::join(line, ","));
    }
    return text;
}

}  // namespace korvane::program
