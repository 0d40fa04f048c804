// Rows of values: a table for people, one with commas for a spreadsheet, and objects of JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What is missing is null.
template <class Value>
struct nlohmann::adl_serializer<std::optional<Value>> {
    static void to_json(nlohmann::ordered_json& json, const std::optional<Value>& value) {
        json = value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
    }
};

namespace korvane::program {

using Json = nlohmann::ordered_json;

/// A member of what may be missing.
template <class Whole, class Part>
Json part_of(const std::optional<Whole>& whole, Part Whole::*part) {
    return whole ? Json((*whole).*part) : Json();
}

class Table {
public:
    /// A text a column, such as "height|height_counts|.0f": its title, its name in JSON and the format of its numbers.
    /// The last may be left out; without a name only tables have the column, without a title JSON alone. Cells stand
    /// right, but where the title begins with '<', which is not part of it.
    explicit Table(std::initializer_list<std::string_view> columns);
    /// One value a column.
    template <class... Values>
    void add(const Values&... values) {
        rows_.push_back({Json(values)...});
    }
    std::size_t size() const { return rows_.size(); }
    /// An array of the rows from `first` on.
    Json json(std::size_t first = 0) const;
    /// Titles, where there are any, and rows, each ended by a line feed, no trailing blanks: columns as wide as their
    /// widest cell, two blanks apart, "-" for null.
    std::string text() const;
    /// The same with commas, and quotes where a cell holds one; nothing for null.
    std::string csv() const;

private:
    struct Column {
        std::string title, name, format;
    };
    static std::string cell(const Json& value, const Column& column, const char* missing);
    std::vector<std::vector<std::string>> cells(const char* missing) const;

    std::vector<Column> columns_;
    std::vector<std::vector<Json>> rows_;
};

}  // namespace korvane::program
