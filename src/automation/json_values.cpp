#include "automation/json_values.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>

#include "automation/class_description.h"
#include "automation/native_object.h"
#include "automation/records.h"

namespace korvane::automation {

namespace {

Json json_of_number(double number) {
    if (std::isfinite(number)) return number;
    return std::isnan(number) ? "nan" : number > 0 ? "inf" : "-inf";
}

Json json_of_record(const Record& record) {
    Json json = Json::object();
    const Array fields = array_of(record);
    for (std::size_t place = 0; place < fields.size(); ++place)
        json[description_of(record).fields[place]] = json_of(fields.element(place));
    return json;
}

Json json_of_object(const Object& object) {
    if (!object) return nullptr;
    Json json{{"class", object->class_name()}};
    if (const auto* native = dynamic_cast<const NativeObject*>(object.get()))
        for (const Member& member : native->description().members)
            if (member.access == Access::get) json[member.name] = json_of(object->get(member.name));
    return json;
}

Json json_of_dimension(const Array& array, std::size_t dimension, std::size_t& place) {
    if (dimension > 0 && dimension == array.rank()) return json_of(array.element(place++));
    Json json = Json::array();
    const std::size_t count = array.rank() == 0 ? 0 : array.bounds()[dimension].count;
    for (std::size_t index = 0; index < count; ++index) json.push_back(json_of_dimension(array, dimension + 1, place));
    return json;
}

Value value_of_number(const Json& json) {
    if (json.is_number_integer()) {
        const double number = json.get<double>();
        if (number >= INT32_MIN && number <= INT32_MAX) return json.get<std::int32_t>();
    }
    return json.get<double>();
}

bool is_matrix(const Json& json) {
    return !json.empty() && std::all_of(json.begin(), json.end(), [&](const Json& row) {
        return row.is_array() && row.size() == json.front().size();
    });
}

template <class T>
Array::Storage stored(std::vector<T> elements) {
    return std::make_shared<const std::vector<T>>(std::move(elements));
}

/// One storage for elements of one kind.
Value value_of_array(const Json& json) {
    std::vector<ArrayBound> bounds{{0, json.size()}};
    Json elements = json;
    if (is_matrix(json)) {
        bounds.push_back({0, json.front().size()});
        elements = Json::array();
        for (const Json& row : json) elements.insert(elements.end(), row.begin(), row.end());
    }
    const auto all = [&](auto is) { return std::all_of(elements.begin(), elements.end(), std::mem_fn(is)); };
    if (all(&Json::is_number)) return Array(bounds, stored(elements.get<std::vector<double>>()));
    if (all(&Json::is_string)) return Array(bounds, stored(elements.get<std::vector<std::string>>()));
    std::vector<Value> values;
    std::transform(elements.begin(), elements.end(), std::back_inserter(values), value_of_json);
    return Array(bounds, stored(std::move(values)));
}

Value value_of_object(const Json& json) {
    for (const RecordDescription& description : record_descriptions().first(std::variant_size_v<Record>)) {
        const auto& names = description.fields;
        std::vector<Value> fields(names.size(), 0);
        bool all_known = !json.empty();
        for (const auto& [name, field] : json.items()) {
            const auto known = std::ranges::find(names, name);
            all_known = all_known && known != names.end();
            if (all_known) fields[static_cast<std::size_t>(known - names.begin())] = value_of_json(field);
        }
        if (all_known) return record_from_array(description, Array(std::move(fields)));
    }
    raise_runtime_fault(error_number::invalid_call, json.dump() + " is no record");
}

}  // namespace

Json json_of(const Value& value) {
    return std::visit(
        [&](const auto& content) -> Json {
            using Kind = std::remove_cvref_t<decltype(content)>;
            std::size_t first = 0;
            if constexpr (std::is_same_v<Kind, Date>) return value.as_text();
            if constexpr (std::is_floating_point_v<Kind>) return json_of_number(static_cast<double>(content));
            if constexpr (std::is_integral_v<Kind> || std::is_same_v<Kind, std::string>) return content;
            if constexpr (std::is_same_v<Kind, Record>) return json_of_record(content);
            if constexpr (std::is_same_v<Kind, Object>) return json_of_object(content);
            if constexpr (std::is_same_v<Kind, Array>) return json_of_dimension(content, 0, first);
            return nullptr;  // Empty, Null, a missing argument
        },
        value.content());
}

Value value_of_json(const Json& json) {
    switch (json.type()) {
        case Json::value_t::null:
            return Null{};
        case Json::value_t::boolean:
            return json.get<bool>();
        case Json::value_t::string:
            return json.get<std::string>();
        case Json::value_t::array:
            return value_of_array(json);
        case Json::value_t::object:
            return value_of_object(json);
        default:
            return value_of_number(json);
    }
}

}  // namespace korvane::automation
