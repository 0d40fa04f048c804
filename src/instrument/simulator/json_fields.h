// Objects of the simulator's JSON files, described by tables of their fields. Reading is strict: every fault is error
// -904 naming the item and the file; a key that is in no table, a key given twice and a value of the wrong type, size
// or range are faults.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvane::simulation {

/// Of a number, or of the numbers of a list; both inclusive.
struct Bounds {
    double low = -std::numeric_limits<double>::max(), high = std::numeric_limits<double>::max();
    std::size_t most_elements = 0;  ///< of a list
};

/// One value of a document, which it must not outlive.
class JsonItem {
public:
    JsonItem(const nlohmann::json& value, std::string name, const std::string& file)
        : value_(&value), name_(std::move(name)), file_(&file) {}

    double number(const Bounds& bounds) const;
    std::int64_t whole_number(const Bounds& bounds) const;
    bool flag() const;
    std::string text() const;
    std::vector<JsonItem> elements(std::size_t most) const;
    /// All members of an object, ascending by key.
    std::vector<std::pair<std::string, JsonItem>> members() const;
    std::optional<JsonItem> member(const std::string& key) const;
    /// Error where the key is missing.
    JsonItem required(const std::string& key) const;

    [[noreturn]] void refuse(const std::string& reason) const;

private:
    const nlohmann::json* value_;
    std::string name_;  // empty for the document as a whole
    const std::string* file_;
};

/// Parses a text of at most `most_bytes` and a nesting of 16. `file` is the name that errors state.
nlohmann::json parse_json(std::string_view text, std::size_t most_bytes, const std::string& file);

/// How a field gets in and out of an object.
template <class Object>
struct Access {
    void (*read)(const JsonItem&, Object&, const Bounds&);
    nlohmann::json (*write)(const Object&);
};

template <class Object>
struct Field {
    const char* name;
    Access<Object> access;
    Bounds bounds = {};
    const char* unit = "";
    const char* meaning = "";
    bool required = false;
};

/// The table of an object's fields, and the names of an enumeration's values.
template <class Object>
inline constexpr auto fields = std::array<Field<Object>, 0>{};
template <class Value>
using Choice = std::pair<const char*, Value>;
template <class Value>
inline constexpr auto choices = std::array<Choice<Value>, 0>{};
/// What the elements of a list are called.
template <class Element>
inline constexpr const char* plural = "elements";

// Values in and out. An object that is read keeps what it has where a key is missing.
template <class Value>
void read(const JsonItem& item, std::optional<Value>& value, const Bounds& bounds) {
    read(item, value.emplace(), bounds);
}

template <class Element>
void read(const JsonItem& item, std::vector<Element>& list, const Bounds& bounds) {
    list.clear();
    for (const JsonItem& element : item.elements(bounds.most_elements)) read(element, list.emplace_back(), bounds);
}

template <class Element, std::size_t count>
void read(const JsonItem& item, std::array<Element, count>& list, const Bounds& bounds) {
    const auto elements = item.elements(count);
    if (elements.size() != count) item.refuse("must have " + std::to_string(count) + " " + plural<Element>);
    for (std::size_t i = 0; i < count; ++i) read(elements[i], list[i] = {}, bounds);
}

/// A rule over the whole of an object that has been read; overloaded where there is one.
template <class Object>
void check(const JsonItem&, const Object&) {}

template <class Value>
void read(const JsonItem& item, Value& value, const Bounds& bounds) {
    if constexpr (std::is_same_v<Value, bool>) {
        value = item.flag();
    } else if constexpr (std::is_integral_v<Value>) {
        using Limits = std::numeric_limits<Value>;
        value = static_cast<Value>(item.whole_number(
            {std::max<double>(bounds.low, Limits::min()), std::min<double>(bounds.high, Limits::max())}));
    } else if constexpr (std::is_floating_point_v<Value>) {
        value = item.number(bounds);
    } else if constexpr (std::is_same_v<Value, std::string>) {
        value = item.text();
    } else if constexpr (std::is_enum_v<Value>) {
        const std::string text = item.text();
        std::string names;
        for (const auto& [name, named] : choices<Value>) {
            if (text == name) return void(value = named);
            names += names.empty() ? name : std::string(", ") + name;
        }
        item.refuse("value[" + text + "] is none of " + names);
    } else {
        for (const Field<Value>& field : fields<Value>) {
            if (const auto member = item.member(field.name)) field.access.read(*member, value, field.bounds);
            if (field.required) item.required(field.name);
        }
        for (const auto& given : item.members())
            if (std::ranges::none_of(fields<Value>, [&](const auto& field) { return given.first == field.name; }))
                given.second.refuse("unknown key");
        check(item, value);
    }
}

template <class Value>
nlohmann::json written(const Value& value) {
    if constexpr (std::is_enum_v<Value>) {
        return std::ranges::find(choices<Value>, value, &Choice<Value>::second)->first;
    } else if constexpr (fields<Value>.size() > 0) {
        nlohmann::json object = nlohmann::json::object();
        for (const Field<Value>& field : fields<Value>)
            if (auto member = field.access.write(value); !member.is_null()) object[field.name] = std::move(member);
        return object;
    } else if constexpr (requires { value.has_value(); }) {
        return value ? written(*value) : nlohmann::json();
    } else if constexpr (requires { value.data(); } && !std::is_same_v<Value, std::string>) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& element : value) list.push_back(written(element));
        return list;
    } else {
        return value;
    }
}

template <class Object, class Member>
Object class_of(Member Object::*);
/// The access of a member by its pointer.
template <auto pointer, class Object = decltype(class_of(pointer))>
inline constexpr Access<Object> member{
    [](const JsonItem& item, Object& object, const Bounds& bounds) { read(item, object.*pointer, bounds); },
    [](const Object& object) { return written(object.*pointer); }};

}  // namespace korvane::simulation
