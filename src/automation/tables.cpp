// The member tables as texts: signatures, the reference page, and JSON for packages in other languages.
#include <fmt/format.h>

#include "automation/class_description.h"
#include "automation/instrument_layer.h"
#include "automation/json_values.h"
#include "automation/records.h"
#include "automation/type_library.h"
#include "korvane/automation.h"
#include "korvane/instrument_contract.h"
#include "platform/automation_arithmetic.h"

namespace korvane::automation {

namespace {

std::string default_as_written(const Parameter& parameter) {
    const Value value = default_value_of(parameter);
    if (value.holds<Missing>()) return {};
    if (const auto* text = value.get_if<std::string>()) return " = \"" + *text + "\"";
    if (const auto* number = value.get_if<double>()) return " = " + number_text(*number);
    return " = " + value.as_text();
}

std::string parameter_as_written(const Parameter& parameter) {
    return fmt::format("{}{}{} As {}{}", parameter.optional ? "Optional " : "",
                       parameter.is_by_reference() ? "" : "ByVal ", parameter.name, parameter.type.signature_text(),
                       default_as_written(parameter));
}

constexpr std::string_view introduction =
    R"(<!-- Made from the member tables of the automation classes: korvane automation reference. -->
# The automation interface

Six creatable classes, registered as `Korvane.` and the class name, and two classes of objects that their members return.
Every member can be called by name (late bound) and, on Windows, through the dual interface of the type library
`Korvane`, which is named after the class with a leading underscore. Signatures are written as a type library browser
shows them: a parameter without `ByVal` is passed by reference.

Errors are raised with number, source and description. An argument that does not convert raises 13 (type mismatch),
6 (overflow) or 94 (Null); a required one left out 449; too many arguments 450; an unknown name of an argument 448; an
unknown member 438; an unknown class 429. Arguments passed by reference hold what the member has put there, also after
an error.
)";

void describe_class(std::string& out, const ClassDescription& description) {
    out += fmt::format("\n## {}\n\n{}{}\n\n| Number | Member | |\n|---|---|---|\n", description.name, description.help,
                       description.create ? " Created as `" + description.prog_id() + "`." : " Not creatable.");
    for (const Member& member : description.members)
        out += fmt::format("| {} | `{}` | {} |\n", member.dispid, signature_text(member), member.help);
}

void describe_records(std::string& out) {
    out += "\n## Records\n";
    for (const RecordDescription& record : record_descriptions()) {
        const std::string after = fmt::format("` ({})", DeclaredType{record.kind}.signature_text());
        out += fmt::format("\n`{}`: {} Fields: `{}{}.\n", record.name, record.help,
                           fmt::join(record.fields, after + ", `"), after);
    }
}

void describe_enumerations(std::string& out) {
    out += "\n## Enumerations\n";
    for (const EnumerationDescription& enumeration : enumeration_descriptions()) {
        out += fmt::format("\n### {}\n\n| Name | Value |\n|---|---|\n", enumeration.name);
        for (const Enumerator& member : enumeration.members)
            out += fmt::format("| `{}` | {} |\n", member.name, member.value);
    }
}

Json type_json(const DeclaredType& type) {
    return {{"sort", type.description().sort}, {"name", type.signature_text()}};
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
            {"kind", kinds[static_cast<std::size_t>(member.access)]},
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

std::string signature_text(const Member& member) {
    std::vector<std::string> parameters;
    for (const Parameter& parameter : member.parameters()) parameters.push_back(parameter_as_written(parameter));
    std::string kind = member.result.kind == TypeKind::none ? "Sub" : "Function";
    if (member.access == Access::get) kind = "Property Get";
    if (member.access == Access::put) kind = "Property Let";
    const std::string result = member.result.signature_text();
    return fmt::format("{} {}({}){}", kind, member.name, fmt::join(parameters, ", "),
                       result.empty() ? "" : " As " + result);
}

std::vector<MemberSummary> member_summaries() {
    std::vector<MemberSummary> summaries;
    for (const ClassDescription& description : class_descriptions())
        for (const Member& member : description.members)
            summaries.push_back({std::string(description.name), std::string(member.name), member.dispid,
                                 signature_text(member), std::string(member.help)});
    return summaries;
}

std::string reference_text() {
    std::string out(introduction);
    for (const ClassDescription& description : class_descriptions()) describe_class(out, description);
    describe_records(out);
    describe_enumerations(out);
    return out;
}

std::string tables_text() {
    Json tables{{"classes", classes_json(class_descriptions())}, {"layer", classes_json(layer_class_descriptions())}};
    for (const RecordDescription& record : record_descriptions()) {
        Json& fields = tables["records"][record.name] = Json::array();
        for (const std::string_view field : record.fields)
            fields.push_back({{"name", field}, {"type", type_json({record.kind})}});
    }
    for (const EnumerationDescription& enumeration : enumeration_descriptions())
        for (const Enumerator& member : enumeration.members)
            tables["enumerations"][enumeration.name][member.name] = member.value;
    for (const contract::Number& entry : contract::entries<contract::Number>(contract::setpoint))
        tables["setpoint_units"][std::to_string(entry.key)] = entry.unit;
    return tables.dump();
}

}  // namespace korvane::automation
