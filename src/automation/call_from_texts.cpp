#include <algorithm>

#include "automation/class_description.h"
#include "automation/json_values.h"
#include "automation/native_object.h"
#include "korvane/automation.h"

namespace korvane::automation {

namespace {

/// "CLASS.MEMBER" or "CLASS.PROPERTY=".
struct Target {
    Object object;
    std::string class_name;
    std::string member;
    Access access = Access::call;
};

Target find_target(const Platform& platform, std::string text) {
    Target target;
    if (text.ends_with('=')) {
        target.access = Access::put;
        text.pop_back();
    }
    const auto point = text.rfind('.');
    if (point == std::string::npos) raise_runtime_fault(error_number::invalid_call, text + " is no CLASS.MEMBER");
    target.class_name = text.substr(0, point);
    target.member = text.substr(point + 1);
    target.object = create_object(target.class_name, platform);
    return target;
}

class TextCall {
public:
    explicit TextCall(const Platform& platform) : platform_(platform) {}

    Value call(const Target& target, Arguments& arguments) {
        return target.object->invoke(target.member, arguments, target.access);
    }

    /// A text for a parameter that takes one stays as it is written, unless it is a JSON text or null.
    Value argument_of(const std::string& text, const Parameter* parameter) {
        const Json json = Json::parse(text, nullptr, false);
        const bool wants_text = parameter && parameter->type.kind == TypeKind::text;
        if (wants_text && !json.is_string() && !json.is_null()) return text;
        if (!json.is_discarded()) return value_of(json);
        const auto first = text.find_first_not_of(" \t\r\n");
        if (first != std::string::npos && (text[first] == '[' || text[first] == '{'))
            raise_runtime_fault(error_number::invalid_call, "[" + text + "] is malformed JSON");
        return text;
    }

private:
    Value value_of(const Json& json) {
        if (!json.is_object() || !json.contains("call") || !json["call"].is_string()) return value_of_json(json);
        const Target target = find_target(platform_, json["call"].get<std::string>());
        Arguments arguments;
        for (const Json& argument : json.value("arguments", Json::array()))
            arguments.positional.push_back(value_of(argument));
        return call(target, arguments);
    }

    const Platform& platform_;
};

const Member* member_of(const Target& target) {
    const ClassDescription* const description = find_class(target.class_name);
    return description->find(target.object->dispid_of(target.member), target.access);
}

/// Splits "name=text" where the name is a parameter's.
const Parameter* named_parameter(const Member* member, const std::string& text) {
    const auto sign = text.find('=');
    if (!member || sign == std::string::npos) return nullptr;
    const auto place = parameter_place(*member, std::string_view(text).substr(0, sign));
    return place < 0 ? nullptr : &member->parameter_slots[static_cast<std::size_t>(place)];
}

}  // namespace

std::string call_from_texts(const Platform& platform, const std::string& member,
                            const std::vector<std::string>& arguments) {
    const Target target = find_target(platform, member);
    const Member* const description = member_of(target);
    TextCall text_call(platform);
    Arguments values;
    for (const std::string& text : arguments) {
        if (const Parameter* const named = named_parameter(description, text)) {
            const std::string rest = text.substr(named->name.size() + 1);
            values.named.emplace_back(named->name, text_call.argument_of(rest, named));
            continue;
        }
        const std::size_t place = values.positional.size();
        const bool has_parameter = description && place < description->parameter_count;
        const Parameter* const parameter = has_parameter ? &description->parameter_slots[place] : nullptr;
        values.positional.push_back(text_call.argument_of(text, parameter));
    }
    const Arguments given = values;
    Json json{{"result", json_of(text_call.call(target, values))}};
    const auto report = [&](std::string_view name, const Value& before, const Value& after) {
        if (!(before == after)) json["by_reference"][std::string(name)] = json_of(after);
    };
    for (std::size_t place = 0; place < values.positional.size(); ++place)
        report(description->parameter_slots[place].name, given.positional[place], values.positional[place]);
    for (std::size_t place = 0; place < values.named.size(); ++place)
        report(values.named[place].first, given.named[place].second, values.named[place].second);
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace korvane::automation
