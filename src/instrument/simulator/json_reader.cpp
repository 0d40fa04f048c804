#include "instrument/simulator/json_reader.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "korvane/error.h"
#include "platform/automation_arithmetic.h"

namespace korvane::simulation {

using nlohmann::json;

namespace {

constexpr std::size_t deepest_nesting = 16;

[[noreturn]] void refuse_item(const std::string& item, const std::string& file, const std::string& reason) {
    throw Error(error_number::file_or_element, "Simulator",
                "item[" + (item.empty() ? "document" : item) + "] of file[" + file + "]: " + reason);
}

// Refuses what the parser itself would let pass: deep nesting and keys given twice.
class StructureCheck {
public:
    explicit StructureCheck(const std::string& file) : file_(file) {}

    bool operator()(json::parse_event_t event, json& value) {
        using Event = json::parse_event_t;
        if (event == Event::object_start || event == Event::array_start) {
            open_.emplace_back();
            if (open_.size() > deepest_nesting) refuse_item("", file_, "nested too deeply");
        } else if (event == Event::object_end || event == Event::array_end) {
            open_.pop_back();
        } else if (event == Event::key) {
            const auto key = value.get<std::string>();
            if (!open_.back().insert(key).second) refuse_item(key, file_, "given twice");
        }
        return true;
    }

private:
    const std::string& file_;
    std::vector<std::set<std::string>> open_;
};

}  // namespace

void JsonReader::refuse(const std::string& reason) const {
    refuse_item(item_, *file_, reason);
}

double JsonReader::as_number(double low, double high) const {
    if (!value_->is_number()) refuse("must be a number");
    const auto number = value_->get<double>();
    if (!(number >= low && number <= high))
        refuse("value[" + number_text(number) + "] is outside [" + number_text(low) + ", " + number_text(high) + "]");
    return number;
}

std::int64_t JsonReader::as_integer(std::int64_t low, std::int64_t high) const {
    const double number = as_number(static_cast<double>(low), static_cast<double>(high));
    if (number != std::floor(number)) refuse("must be a whole number");
    return value_->is_number_integer() ? value_->get<std::int64_t>() : static_cast<std::int64_t>(number);
}

bool JsonReader::as_flag() const {
    if (!value_->is_boolean()) refuse("must be true or false");
    return value_->get<bool>();
}

std::string JsonReader::as_text() const {
    if (!value_->is_string()) refuse("must be a text");
    return value_->get<std::string>();
}

std::vector<JsonReader> JsonReader::as_array(std::size_t most_elements) const {
    if (!value_->is_array()) refuse("must be an array");
    if (value_->size() > most_elements) refuse("has more than " + std::to_string(most_elements) + " elements");
    std::vector<JsonReader> elements;
    for (const json& element : *value_)
        elements.emplace_back(element, item_ + "[" + std::to_string(elements.size()) + "]", *file_);
    return elements;
}

void JsonReader::require_object() const {
    if (!value_->is_object()) refuse("must be an object");
}

JsonReader JsonReader::child(const std::string& key, const json& value) const {
    return {value, item_.empty() ? key : item_ + "." + key, *file_};
}

bool JsonReader::has(const char* key) const {
    require_object();
    return value_->contains(key);
}

std::optional<JsonReader> JsonReader::member(const char* key) {
    require_object();
    known_keys_.insert(key);
    const auto found = value_->find(key);
    if (found == value_->end()) return std::nullopt;
    return child(key, *found);
}

JsonReader JsonReader::required(const char* key) {
    auto found = member(key);
    if (!found) refuse(std::string("lacks key[") + key + "]");
    return *found;
}

std::vector<std::pair<std::string, JsonReader>> JsonReader::members() {
    require_object();
    std::vector<std::pair<std::string, JsonReader>> all;
    for (const auto& [key, value] : value_->items()) {
        known_keys_.insert(key);
        all.emplace_back(key, child(key, value));
    }
    return all;
}

void JsonReader::finish() const {
    require_object();
    for (const auto& [key, value] : value_->items())
        if (!known_keys_.contains(key)) child(key, value).refuse("unknown key");
}

void JsonReader::read(const char* key, double& target, double low, double high) {
    if (const auto found = member(key)) target = found->as_number(low, high);
}

void JsonReader::read(const char* key, std::int64_t& target, std::int64_t low, std::int64_t high) {
    if (const auto found = member(key)) target = found->as_integer(low, high);
}

void JsonReader::read(const char* key, std::int32_t& target, std::int64_t low, std::int64_t high) {
    if (const auto found = member(key)) target = static_cast<std::int32_t>(found->as_integer(low, high));
}

void JsonReader::read(const char* key, bool& target) {
    if (const auto found = member(key)) target = found->as_flag();
}

void JsonReader::read(const char* key, std::string& target) {
    if (const auto found = member(key)) target = found->as_text();
}

JsonDocument::JsonDocument(std::string_view text, std::size_t most_bytes, std::string file) : file_(std::move(file)) {
    if (text.size() > most_bytes) refuse_item("", file_, "longer than " + std::to_string(most_bytes) + " bytes");
    StructureCheck check(file_);
    const json::parser_callback_t callback = [&check](int, json::parse_event_t event, json& value) {
        return check(event, value);
    };
    try {
        value_ = std::make_unique<json>(json::parse(text, callback));
    } catch (const json::exception& fault) {
        refuse_item("", file_, std::string("not JSON: ") + fault.what());
    }
}

JsonDocument::~JsonDocument() = default;

JsonReader JsonDocument::root() const {
    return {*value_, "", file_};
}

}  // namespace korvane::simulation
