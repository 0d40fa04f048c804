#include "automation/class_description.h"
#include "automation/json_values.h"
#include "automation/native_object.h"
#include "korvane/automation.h"

namespace korvane::automation {

namespace {

struct CalledMember {
    Value call(Arguments& arguments) const { return object->invoke(dispid, arguments, access); }

    Object object;
    std::int32_t dispid;
    Access access;
    const Member* description;  ///< null for a use that the member does not have
};

/// By "CLASS.MEMBER" or "CLASS.PROPERTY=".
CalledMember called_member(TextCalls& calls, std::string text) {
    const Access access = text.ends_with('=') ? Access::put : Access::call;
    if (access == Access::put) text.pop_back();
    const auto point = text.rfind('.');
    if (point == std::string::npos) raise_runtime_fault(error_number::invalid_call, text + " is no CLASS.MEMBER");
    const Object object = calls.object_of(text.substr(0, point));
    const std::int32_t dispid = object->dispid_of(text.substr(point + 1));
    return {object, dispid, access, static_cast<const NativeObject&>(*object).description().find(dispid, access)};
}

Value value_of(TextCalls& calls, const Json& json) {
    if (!json.is_object() || !json.contains("call") || !json["call"].is_string()) return value_of_json(json);
    Arguments arguments;
    for (const Json& argument : json.value("arguments", Json::array()))
        arguments.positional.push_back(value_of(calls, argument));
    return called_member(calls, json["call"].get<std::string>()).call(arguments);
}

/// A text for a parameter that takes one stays as it is written, unless it is a JSON text or null.
Value argument_of(TextCalls& calls, const std::string& text, const Parameter* parameter) {
    const Json json = Json::parse(text, nullptr, false);
    const bool wants_text = parameter && parameter->type.kind == TypeKind::text;
    if (wants_text && !json.is_string() && !json.is_null()) return text;
    if (!json.is_discarded()) return value_of(calls, json);
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && (text[first] == '[' || text[first] == '{'))
        raise_runtime_fault(error_number::invalid_call, "[" + text + "] is malformed JSON");
    return text;
}

/// Splits "name=text" where the name is a parameter's.
const Parameter* named_parameter(const Member* member, const std::string& text) {
    const auto sign = text.find('=');
    if (!member || sign == std::string::npos) return nullptr;
    const auto place = parameter_place(*member, std::string_view(text).substr(0, sign));
    return place < 0 ? nullptr : &member->parameter_slots[static_cast<std::size_t>(place)];
}

}  // namespace

Object TextCalls::object_of(const std::string& class_name) {
    const ClassDescription* const known = find_class(class_name);
    Object& object = objects_[known ? std::string(known->name) : class_name];
    if (!object) object = create_object(class_name, platform_);
    return object;
}

std::string TextCalls::call(const std::vector<std::string>& words, int indent) {
    if (words.empty()) raise_runtime_fault(error_number::invalid_call, "CLASS.MEMBER is missing");
    const CalledMember target = called_member(*this, words.front());
    const Member* const description = target.description;
    Arguments values;
    for (std::size_t word = 1; word < words.size(); ++word) {
        const std::string& text = words[word];
        if (const Parameter* const named = named_parameter(description, text)) {
            const std::string rest = text.substr(named->name.size() + 1);
            values.named.emplace_back(named->name, argument_of(*this, rest, named));
            continue;
        }
        const std::size_t place = values.positional.size();
        const bool has_parameter = description && place < description->parameter_count;
        const Parameter* const parameter = has_parameter ? &description->parameter_slots[place] : nullptr;
        values.positional.push_back(argument_of(*this, text, parameter));
    }
    const Arguments given = values;
    Json json{{"result", json_of(target.call(values))}};
    const auto report = [&](std::string_view name, const Value& before, const Value& after) {
        if (!(before == after)) json["by_reference"][std::string(name)] = json_of(after);
    };
    for (std::size_t place = 0; place < values.positional.size(); ++place)
        report(description->parameter_slots[place].name, given.positional[place], values.positional[place]);
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
