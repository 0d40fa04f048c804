// Structures as JSON objects. A template `fields(io, object)` in the structure's namespace names its members once, with
// what is known of them; reading and writing walk the same one. Every fault is error -904 naming the item.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvane::json {

using Json = nlohmann::ordered_json;

/// Of a number, or of the numbers of a list; both inclusive.
struct Bounds {
    double low = -std::numeric_limits<double>::max(), high = std::numeric_limits<double>::max();
    std::size_t most_elements = std::numeric_limits<std::size_t>::max();  ///< of a list
};

/// Where a document comes from. An error reads "<before><item><after>: <reason>".
struct Source {
    const char* routine;
    std::string before, after = {};
    /// Written by a program, perhaps a later one: keys that nobody knows are let pass, and null is a number or an
    /// object that is missing. Else both are faults.
    bool is_tolerant = false;

    [[noreturn]] void refuse(const std::string& item, const std::string& reason) const;
};

/// One value of a document; both the document and the source must outlive it.
class JsonItem {
public:
    JsonItem(const Json& value, std::string name, const Source& source)
        : value_(&value), name_(std::move(name)), source_(&source) {}

    /// NaN for the null of a tolerant source.
    double number(const Bounds& bounds) const;
    std::int64_t whole_number(const Bounds& bounds) const;
    bool flag() const;
    std::string text() const;
    std::vector<JsonItem> elements(std::size_t most) const;
    /// All members of an object.
    std::vector<std::pair<std::string, JsonItem>> members() const;
    std::optional<JsonItem> member(const std::string& key) const;
    /// Error where the key is missing.
    JsonItem required(const std::string& key) const;
    /// A null that a tolerant source may have.
    bool is_missing() const { return source_->is_tolerant && value_->is_null(); }
    /// Error where a strict source has a key that is none of these.
    void require_keys(const std::vector<std::string_view>& known) const;

    [[noreturn]] void refuse(const std::string& reason) const { source_->refuse(name_, reason); }

private:
    std::string name_of_member(const std::string& key) const { return name_.empty() ? key : name_ + "." + key; }

    const Json* value_;
    std::string name_;  // empty for the document as a whole
    const Source* source_;
};

/// Parses a text of at most `most_bytes` and a nesting of 16; a key given twice is a fault.
Json parse_json(std::string_view text, std::size_t most_bytes, const Source& source);

/// A name of an enumeration's value: `choices(value)` in the enumeration's namespace gives all of them.
template <class Value>
using Choice = std::pair<const char*, Value>;

/// A rule over the whole of an object that has been read; overloaded where there is one.
template <class Object>
void check(const JsonItem&, const Object&) {}

/// Hands every member that the object has to `read`.
class FieldReader {
public:
    explicit FieldReader(const JsonItem& item) : item_(item) {}

    template <class Value>
    FieldReader& operator()(const char* name, Value&& value, const Bounds& bounds = {}, bool is_required = false) {
        known_.push_back(name);
        if (const auto member = is_required ? item_.required(name) : item_.member(name)) read(*member, value, bounds);
        return *this;
    }
    void end() const { item_.require_keys(known_); }

private:
    const JsonItem& item_;
    std::vector<std::string_view> known_;
};

// Values in. An object that is read keeps what it has where a key is missing. Other types have overloads in their own
// namespace.
template <class Value>
void read(const JsonItem& item, std::optional<Value>& value, const Bounds& bounds) {
    value.reset();
    if (!item.is_missing()) read(item, value.emplace(), bounds);
}

template <class Element>
void read(const JsonItem& item, std::vector<Element>& list, const Bounds& bounds) {
    list.clear();
    for (const JsonItem& element : item.elements(bounds.most_elements)) read(element, list.emplace_back(), bounds);
}

template <class Element, std::size_t count>
void read(const JsonItem& item, std::array<Element, count>& list, const Bounds& bounds) {
    const auto elements = item.elements(count);
    if (elements.size() != count) item.refuse("must have " + std::to_string(count) + " elements");
    for (std::size_t i = 0; i < count; ++i) read(elements[i], list[i] = {}, bounds);
}

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
        for (const auto& [name, named] : choices(value)) {
            if (text == name) return void(value = named);
            names += names.empty() ? name : std::string(", ") + name;
        }
        item.refuse("value[" + text + "] is none of " + names);
    } else {
        FieldReader reader(item);
        fields(reader, value);
        reader.end();
        check(item, value);
    }
}

template <class Value>
Json written(Value& value);

/// Collects the members of an object. What is missing or not finite becomes null.
struct FieldWriter {
    Json object = Json::object();

    template <class Value>
    FieldWriter& operator()(const char* name, Value&& value, const Bounds& = {}, bool = false) {
        object[name] = written(value);
        return *this;
    }
};

// Values out; overloads as for `read`.
template <class Value>
Json written(Value& value) {
    if constexpr (std::is_enum_v<Value>) {
        const auto all = choices(value);
        return std::ranges::find(all, value, &Choice<Value>::second)->first;
    } else if constexpr (std::is_arithmetic_v<Value> || std::is_same_v<Value, std::string>) {
        return value;
    } else if constexpr (requires { value.has_value(); }) {
        return value ? written(*value) : Json();
    } else if constexpr (requires { value.begin(); }) {
        Json list = Json::array();
        for (auto& element : value) list.push_back(written(element));
        return list;
    } else {
        FieldWriter writer;
        fields(writer, value);
        return std::move(writer.object);
    }
}

}  // namespace korvane::json
