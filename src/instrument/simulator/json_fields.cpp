#include "instrument/simulator/json_fields.h"

#include <cmath>
#include <set>

#include "korvane/error.h"
#include "platform/automation_arithmetic.h"

namespace korvane::simulation {

using nlohmann::json;

namespace {

constexpr std::size_t deepest_json = 16;

[[noreturn]] void refuse_item(const std::string& item, const std::string& file, const std::string& reason) {
    throw Error(error_number::file_or_element, "Simulator",
                "item[" + (item.empty() ? "document" : item) + "] of file[" + file + "]: " + reason);
}

}  // namespace

void JsonItem::refuse(const std::string& reason) const {
    refuse_item(name_, *file_, reason);
}

double JsonItem::number(const Bounds& bounds) const {
    if (!value_->is_number()) refuse("must be a number");
    const auto number = value_->get<double>();
    if (!(number >= bounds.low && number <= bounds.high))
        refuse("value[" + number_text(number) + "] is outside [" + number_text(bounds.low) + ", " +
               number_text(bounds.high) + "]");
    return number;
}

std::int64_t JsonItem::whole_number(const Bounds& bounds) const {
    const double value = number(bounds);
    if (value != std::floor(value)) refuse("must be a whole number");
    return value_->is_number_integer() ? value_->get<std::int64_t>() : static_cast<std::int64_t>(value);
}

bool JsonItem::flag() const {
    if (!value_->is_boolean()) refuse("must be true or false");
    return value_->get<bool>();
}

std::string JsonItem::text() const {
    if (!value_->is_string()) refuse("must be a text");
    return value_->get<std::string>();
}

std::vector<JsonItem> JsonItem::elements(std::size_t most) const {
    if (!value_->is_array()) refuse("must be an array");
    if (value_->size() > most) refuse("has more than " + std::to_string(most) + " elements");
    std::vector<JsonItem> all;
    for (const json& element : *value_)
        all.emplace_back(element, name_ + "[" + std::to_string(all.size()) + "]", *file_);
    return all;
}

std::vector<std::pair<std::string, JsonItem>> JsonItem::members() const {
    if (!value_->is_object()) refuse("must be an object");
    std::vector<std::pair<std::string, JsonItem>> all;
    for (const auto& entry : value_->items()) all.emplace_back(entry.key(), required(entry.key()));
    return all;
}

std::optional<JsonItem> JsonItem::member(const std::string& key) const {
    if (!value_->is_object()) refuse("must be an object");
    const auto found = value_->find(key);
    if (found == value_->end()) return std::nullopt;
    return JsonItem(*found, name_.empty() ? key : name_ + "." + key, *file_);
}

JsonItem JsonItem::required(const std::string& key) const {
    if (auto found = member(key)) return *std::move(found);
    refuse("lacks key[" + key + "]");
}

json parse_json(std::string_view text, std::size_t most_bytes, const std::string& file) {
    if (text.size() > most_bytes) refuse_item("", file, "longer than " + std::to_string(most_bytes) + " bytes");
    // The parser itself would let pass deep nesting and keys given twice.
    std::vector<std::set<std::string>> open;
    const json::parser_callback_t check = [&](int, json::parse_event_t event, json& value) {
        using Event = json::parse_event_t;
        if (event == Event::object_start || event == Event::array_start) {
            open.emplace_back();
            if (open.size() > deepest_json) refuse_item("", file, "nested too deeply");
        } else if (event == Event::object_end || event == Event::array_end) {
            open.pop_back();
        } else if (event == Event::key && !open.back().insert(value.get<std::string>()).second) {
            refuse_item(value.get<std::string>(), file, "given twice");
        }
        return true;
    };
    try {
        return json::parse(text, check);
    } catch (const json::exception& fault) {
        refuse_item("", file, std::string("not JSON: ") + fault.what());
    }
}

}  // namespace korvane::simulation
