// Values as JSON, and late-bound calls from texts.
#include <algorithm>
#include <cmath>
#include <iterator>

#include "automation/class_description.h"
#include "automation/json_values.h"
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
        const auto is_given = [&](std::string_view field) { return json.contains(field); };
        if (json.empty() || std::ranges::count_if(description.fields, is_given) != std::ssize(json)) continue;
        std::vector<Value> fields;
        for (const std::string_view field : description.fields)
            fields.push_back(is_given(field) ? value_of_json(json[field]) : 0);
        return record_from_array(description, Array(std::move(fields)));
    }
    raise_runtime_fault(error_number::invalid_call, json.dump() + " is no record");
}

struct CalledMember {
    Value call(Arguments& arguments) const { return object->invoke(member.dispid, arguments, member.access); }

    Object object;
    const Member& member;
};

/// By "CLASS.MEMBER" or "CLASS.PROPERTY=".
CalledMember called_member(TextCalls& calls, std::string text) {
    const Access access = text.ends_with('=') ? Access::put : Access::call;
    if (access == Access::put) text.pop_back();
    const auto point = text.rfind('.');
    if (point == std::string::npos) raise_runtime_fault(error_number::invalid_call, text + " is no CLASS.MEMBER");
    const Object object = calls.object_of(text.substr(0, point));
    const std::int32_t dispid = object->dispid_of(text.substr(point + 1));
    return {object, static_cast<const NativeObject&>(*object).member(dispid, access)};
}

Value value_of(TextCalls& calls, const Json& json) {
    if (!json.is_object() || !json.contains("call") || !json["call"].is_string()) return value_of_json(json);
    Arguments arguments;
    for (const Json& argument : json.value("arguments", Json::array()))
        arguments.positional.push_back(value_of(calls, argument));
    return called_member(calls, json["call"].get<std::string>()).call(arguments);
}

/// A text for a parameter that takes one stays as it is written, unless it is a JSON text or null.
Value argument_of(TextCalls& calls, const std::string& text, const Parameter& parameter) {
    const Json json = Json::parse(text, nullptr, false);
    if (parameter.type.kind == TypeKind::text && !json.is_string() && !json.is_null()) return text;
    if (!json.is_discarded()) return value_of(calls, json);
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && (text[first] == '[' || text[first] == '{'))
        raise_runtime_fault(error_number::invalid_call, "[" + text + "] is malformed JSON");
    return text;
}

/// Splits "name=text" where the name is a parameter's.
const Parameter* named_parameter(const Member& member, const std::string& text) {
    const auto sign = text.find('=');
    const auto place = sign == std::string::npos ? -1 : parameter_place(member, text.substr(0, sign));
    return place < 0 ? nullptr : &member.parameter_slots[static_cast<std::size_t>(place)];
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
    if (json.is_null()) return Null{};
    if (json.is_boolean()) return json.get<bool>();
    if (json.is_string()) return json.get<std::string>();
    if (json.is_array()) return value_of_array(json);
    if (json.is_object()) return value_of_object(json);
    const double number = json.get<double>();
    if (json.is_number_integer() && number >= INT32_MIN && number <= INT32_MAX) return json.get<std::int32_t>();
    return number;
}

Object TextCalls::object_of(const std::string& class_name) {
    const ClassDescription* const known = find_class(class_name);
    Object& object = objects_[known ? std::string(known->name) : class_name];
    if (!object) object = create_object(class_name, platform_);
    return object;
}

std::string TextCalls::call(const std::vector<std::string>& words, int indent) {
    if (words.empty()) raise_runtime_fault(error_number::invalid_call, "CLASS.MEMBER is missing");
    const CalledMember target = called_member(*this, words.front());
    const auto& parameters = target.member.parameter_slots;
    Arguments values;
    for (std::size_t word = 1; word < words.size(); ++word) {
        const std::string& text = words[word];
        if (const Parameter* const named = named_parameter(target.member, text)) {
            const std::string rest = text.substr(named->name.size() + 1);
            values.named.emplace_back(named->name, argument_of(*this, rest, *named));
            continue;
        }
        const std::size_t place = values.positional.size();
        const Parameter parameter = place < parameters.size() ? parameters[place] : Parameter();
        values.positional.push_back(argument_of(*this, text, parameter));
    }
    const Arguments given = values;
    Json json{{"result", json_of(target.call(values))}};
    const auto report = [&](std::string_view name, const Value& before, const Value& after) {
        if (!(before == after)) json["by_reference"][std::string(name)] = json_of(after);
    };
    for (std::size_t place = 0; place < values.positional.size(); ++place)
        report(parameters[place].name, given.positional[place], values.positional[place]);
    for (std::size_t place = 0; place < values.named.size(); ++place)
        report(values.named[place].first, given.named[place].second, values.named[place].second);
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::vector<std::string> words_of_line(std::string_view line) {
    std::vector<std::string> words;
    char quote = 0;
    bool in_word = false;
    for (std::size_t place = 0; place < line.size(); ++place) {
        const char character = line[place];
        if (!quote && (character == ' ' || character == '\t' || character == '\r' || character == '\n')) {
            in_word = false;
            continue;
        }
        if (!in_word && character == '#') break;
        if (!in_word) words.emplace_back();
        in_word = true;
        const bool escapes = character == '\\' && quote != '\'' && place + 1 < line.size() &&
                             (!quote || line[place + 1] == '"' || line[place + 1] == '\\');
        if (quote ? character == quote : character == '"' || character == '\'')
            quote = quote ? 0 : character;
        else
            words.back() += escapes ? line[++place] : character;
    }
    if (quote) raise_runtime_fault(error_number::invalid_call, "[" + std::string(line) + "] has a quote without end");
    return words;
}

}  // namespace korvane::automation
