#include "platform/json_fields.h"

#include <set>

#include "korvane/error.h"
#include "platform/automation_arithmetic.h"

namespace korvane::json {

void Source::refuse(const std::string& item, const std::string& reason) const {
    throw Error(error_number::file_or_element, routine,
                before + (item.empty() ? "document" : item) + after + ": " + reason);
}

double JsonItem::number(const Bounds& bounds) const {
    if (is_missing()) return std::numeric_limits<double>::quiet_NaN();
    if (!value_->is_number()) refuse("must be a number");
    const auto number = value_->get<double>();
    if (!(number >= bounds.low && number <= bounds.high))
        refuse("value[" + number_text(number) + "] is outside [" + number_text(bounds.low) + ", " +
               number_text(bounds.high) + "]");
    return number;
}

std::int64_t JsonItem::whole_number(const Bounds& bounds) const {
    const double value = number(bounds);
    if (value != std::floor(value) || (!value_->is_number_integer() && !(std::abs(value) < 0x1p63)))
        refuse("must be a whole number");
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
    for (const Json& element : *value_)
        all.emplace_back(element, name_ + "[" + std::to_string(all.size()) + "]", *source_);
    return all;
}

std::vector<std::pair<std::string, JsonItem>> JsonItem::members() const {
    if (!value_->is_object()) refuse("must be an object");
    std::vector<std::pair<std::string, JsonItem>> all;
    for (const auto& [key, value] : value_->items())
        all.emplace_back(key, JsonItem(value, name_of_member(key), *source_));
    return all;
}

std::optional<JsonItem> JsonItem::member(const std::string& key) const {
    if (!value_->is_object()) refuse("must be an object");
    const auto found = value_->find(key);
    if (found == value_->end()) return std::nullopt;
    return JsonItem(*found, name_of_member(key), *source_);
}

JsonItem JsonItem::required(const std::string& key) const {
    if (auto found = member(key)) return *std::move(found);
    refuse("lacks key[" + key + "]");
}

void JsonItem::require_keys(const std::vector<std::string_view>& known) const {
    if (source_->is_tolerant) return;
    for (const auto& [key, value] : members())
        if (!std::ranges::count(known, key)) value.refuse("unknown key");
}

Json parse_json(std::string_view text, std::size_t most_bytes, const Source& source) {
    if (text.size() > most_bytes) source.refuse("", "longer than " + std::to_string(most_bytes) + " bytes");
    constexpr std::size_t deepest_json = 16;
    // The parser itself would let pass deep nesting and keys given twice.
    std::vector<std::set<std::string>> open;
    const Json::parser_callback_t check = [&](int, Json::parse_event_t event, Json& value) {
        using Event = Json::parse_event_t;
        if (event == Event::object_start || event == Event::array_start) {
            open.emplace_back();
            if (open.size() > deepest_json) source.refuse("", "nested too deeply");
        } else if (event == Event::object_end || event == Event::array_end) {
            open.pop_back();
        } else if (event == Event::key && !open.back().insert(value.get<std::string>()).second) {
            source.refuse(value.get<std::string>(), "given twice");
        }
        return true;
    };
    try {
        return Json::parse(text, check);
    } catch (const Json::exception& fault) {
        source.refuse("", std::string("not JSON: ") + fault.what());
    }
}

}  // namespace korvane::json
