#include "automation/class_description.h"
#include "automation/enumerations.h"
#include "automation/json_values.h"
#include "automation/layer_objects.h"
#include "automation/records.h"
#include "korvane/automation.h"
#include "korvane/instrument_contract.h"

namespace korvane::automation {

namespace {

/// In the order of `TypeKind`.
constexpr std::string_view sorts[]{"none", "variant",     "boolean", "long",   "single",  "double",
                                   "text", "enumeration", "record",  "object", "doubles", "texts"};

Json type_json(const DeclaredType& type) {
    return {{"sort", sorts[static_cast<std::size_t>(type.kind)]}, {"name", type.signature_text()}};
}

Json parameter_json(const Parameter& parameter) {
    static constexpr std::string_view directions[]{"value", "reference", "result"};
    return {{"name", parameter.name},
            {"type", type_json(parameter.type)},
            {"direction", directions[static_cast<std::size_t>(parameter.direction)]},
            {"changes", parameter.changes},
            {"optional", parameter.optional},
            {"default", json_of(default_value_of(parameter))}};
}

Json member_json(const Member& member) {
    static constexpr std::string_view kinds[]{"method", "get", "put"};
    Json parameters = Json::array();
    for (const Parameter& parameter : member.parameters()) parameters.push_back(parameter_json(parameter));
    return {{"name", member.name},
            {"number", member.dispid},
            {"kind", kinds[static_cast<std::size_t>(member.kind)]},
            {"help", member.help},
            {"parameters", std::move(parameters)},
            {"result", type_json(member.result)}};
}

Json classes_json(std::span<const ClassDescription> descriptions) {
    Json classes = Json::array();
    for (const ClassDescription& description : descriptions) {
        Json members = Json::array();
        for (const Member& member : description.members) members.push_back(member_json(member));
        classes.push_back({{"name", description.name},
                           {"help", description.help},
                           {"creatable", description.create != nullptr},
                           {"members", std::move(members)}});
    }
    return classes;
}

}  // namespace

std::string tables_text() {
    Json tables{{"classes", classes_json(class_descriptions())}, {"layer", classes_json(layer_class_descriptions())}};
    for (const RecordDescription& record : record_descriptions()) {
        Json& fields = tables["records"][record.name] = Json::array();
        for (const Field& field : record.fields)
            fields.push_back({{"name", field.name}, {"type", type_json({field.kind})}});
    }
    for (const EnumerationDescription& enumeration : enumeration_descriptions())
        for (const Enumerator& member : enumeration.members)
            tables["enumerations"][enumeration.name][member.name] = member.value;
    for (const contract::Number& entry : contract::entries<contract::Number>(contract::setpoint))
        tables["setpoint_units"][std::to_string(entry.key)] = entry.unit;
    return tables.dump();
}

}  // namespace korvane::automation
