#include "automation/json_values.h"

#include <algorithm>
#include <cmath>

#include "automation/class_description.h"
#include "automation/native_object.h"
#include "automation/records.h"

namespace korvane::automation {

namespace {

Json json_of_number(double number) {
    if (std::isfinite(number)) return number;
    if (std::isnan(number)) return "nan";
    return number > 0 ? "inf" : "-inf";
}

Json json_of_record(const Record& record) {
    Json json = Json::object();
    for (const Field& field : description_of(record).fields) json[field.name] = json_of(field_value(record, field));
    return json;
}

Json json_of_object(const Object& object) {
    if (!object) return nullptr;
    Json json{{"class", object->class_name()}};
    if (const auto* native = dynamic_cast<const NativeObject*>(object.get()))
        for (const Member& member : native->description().members)
            if (member.kind == MemberKind::property_get) json[member.name] = json_of(object->get(member.name));
    return json;
}

Json json_of_dimension(const Array& array, std::size_t dimension, std::size_t& place) {
    Json json = Json::array();
    if (dimension == array.rank()) return json;
    for (std::size_t index = 0; index < array.bounds()[dimension].count; ++index) {
        if (dimension + 1 == array.rank()) {
            json.push_back(json_of(array.element(place++)));
        } else {
            json.push_back(json_of_dimension(array, dimension + 1, place));
        }
    }
    return json;
}

struct ToJson {
    Json operator()(Empty) const { return nullptr; }
    Json operator()(Missing) const { return nullptr; }
    Json operator()(Null) const { return nullptr; }
    Json operator()(bool truth) const { return truth; }
    Json operator()(std::int16_t number) const { return number; }
    Json operator()(std::int32_t number) const { return number; }
    Json operator()(float number) const { return json_of_number(static_cast<double>(number)); }
    Json operator()(double number) const { return json_of_number(number); }
    Json operator()(const Date& date) const { return Value(date).as_text(); }
    Json operator()(const std::string& text) const { return text; }
    Json operator()(const Object& object) const { return json_of_object(object); }
    Json operator()(const Record& record) const { return json_of_record(record); }
    Json operator()(const Array& array) const {
        std::size_t place = 0;
        return json_of_dimension(array, 0, place);
    }
};

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

/// One storage for elements of one kind.
Array array_of(const std::vector<ArrayBound>& bounds, const std::vector<const Json*>& elements) {
    const auto all = [&](auto kind) { return std::all_of(elements.begin(), elements.end(), kind); };
    if (all([](const Json* element) { return element->is_number(); })) {
        auto numbers = std::make_shared<std::vector<double>>();
        for (const Json* element : elements) numbers->push_back(element->get<double>());
        return Array(bounds, Array::Elements<double>(std::move(numbers)));
    }
    if (all([](const Json* element) { return element->is_string(); })) {
        auto texts = std::make_shared<std::vector<std::string>>();
        for (const Json* element : elements) texts->push_back(element->get<std::string>());
        return Array(bounds, Array::Elements<std::string>(std::move(texts)));
    }
    auto values = std::make_shared<std::vector<Value>>();
    for (const Json* element : elements) values->push_back(value_of_json(*element));
    return Array(bounds, Array::Elements<Value>(std::move(values)));
}

Value value_of_array(const Json& json) {
    std::vector<const Json*> elements;
    if (!is_matrix(json)) {
        for (const Json& element : json) elements.push_back(&element);
        return array_of({{0, json.size()}}, elements);
    }
    for (const Json& row : json)
        for (const Json& element : row) elements.push_back(&element);
    return array_of({{0, json.size()}, {0, json.front().size()}}, elements);
}

const Field* find_field(const RecordDescription& record, const std::string& name) {
    const auto known = std::find_if(record.fields.begin(), record.fields.end(),
                                    [&](const Field& field) { return field.name == name; });
    return known == record.fields.end() ? nullptr : &*known;
}

Value value_of_object(const Json& json) {
    for (const RecordDescription& description : record_descriptions().first(std::variant_size_v<Record>)) {
        const auto is_field = [&](const auto& item) { return find_field(description, item.key()) != nullptr; };
        const auto items = json.items();
        if (json.empty() || !std::all_of(items.begin(), items.end(), is_field)) continue;
        Record record = make_record(description);
        for (const auto& [name, field] : items) set_field(record, *find_field(description, name), value_of_json(field));
        return record;
    }
    raise_runtime_fault(error_number::invalid_call, json.dump() + " is no record");
}

}  // namespace

Json json_of(const Value& value) {
    return std::visit(ToJson{}, value.content());
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
