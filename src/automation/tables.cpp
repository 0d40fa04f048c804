// The member tables as texts: the interface definition, signatures, the reference page, and JSON for packages in other
// languages.
#include <fmt/format.h>

#include <utility>

#include "automation/class_description.h"
#include "automation/json_values.h"
#include "automation/records.h"
#include "automation/type_library.h"
#include "korvane/autotune_status.h"
#include "korvane/enumerations.h"
#include "korvane/instrument_contract.h"
#include "korvane/status_id.h"

namespace korvane::automation {

namespace {

/// The enumerators with values from `least` to `least` + `count` - 1. The compiler writes a value that has none as
/// "(korvane::statusID)70".
template <class E, std::int32_t least = 0, std::int32_t count = 100>
EnumerationDescription describe(const std::string& prefix = {}) {
    std::string_view text = []<std::int32_t... step>(std::integer_sequence<std::int32_t, step...>) {
        return detail::text_of_values<static_cast<E>(least + step)...>();
    }
    (std::make_integer_sequence<std::int32_t, count>());
    text.remove_prefix(text.find_first_of("{<", text.find('=')) + 1);
    EnumerationDescription description{type_name<E>, {}};
    for (std::int32_t value = least; value < least + count; ++value) {
        const std::string_view known = text.substr(0, text.find_first_of(",}>"));
        if (!known.starts_with('('))
            description.members.push_back({prefix + std::string(known.substr(known.rfind("::") + 2)), value});
        text.remove_prefix(known.size() + 2);
    }
    return description;
}

constexpr const char* imports = "import \"oaidl.idl\";\nimport \"ocidl.idl\";\n\n";

// Base interfaces with as many methods as the real ones, so that vtable offsets come out right.
constexpr const char* widl_prelude = R"(typedef long LONG;
typedef LONG HRESULT;
typedef [unique] wchar_t* BSTR;
typedef short VARIANT_BOOL;
typedef struct tagVARIANT { long x; } VARIANT;
[object, uuid(00000000-0000-0000-C000-000000000046)] interface IUnknown { HRESULT q(); LONG a(); LONG r(); }
[object, uuid(00020400-0000-0000-C000-000000000046)] interface IDispatch : IUnknown {
    HRESULT c(); HRESULT t(); HRESULT n(); HRESULT i();
}

)";

std::string default_text(const Parameter& parameter, IdlDialect dialect) {
    const TypeKind kind = parameter.type.kind;
    const bool is_whole = kind == TypeKind::boolean || kind == TypeKind::long_integer || kind == TypeKind::enumeration;
    if (dialect == IdlDialect::widl && !is_whole) return "0";
    const Value value = default_value_of(parameter);
    if (const auto* text = value.get_if<std::string>()) return "\"" + *text + "\"";
    return fmt::format("{}", value.as_double());
}

std::string parameter_text(const Parameter& parameter, IdlDialect dialect) {
    std::string attributes = parameter.is_by_reference() ? "in, out" : "in";
    if (parameter.optional) attributes += ", optional";
    if (parameter.has_default()) attributes += ", defaultvalue(" + default_text(parameter, dialect) + ")";
    return fmt::format("[{}] {}{} {}", attributes, parameter.type.idl_text(), parameter.is_by_reference() ? "*" : "",
                       parameter.name);
}

void write_member(std::string& out, const Member& member, IdlDialect dialect) {
    static constexpr std::string_view kinds[]{"", ", propget", ", propput"};
    std::vector<std::string> lines;
    for (const Parameter& parameter : member.parameters()) lines.push_back(parameter_text(parameter, dialect));
    if (member.result.kind != TypeKind::none) lines.push_back("[out, retval] " + member.result.idl_text() + "* result");
    out += fmt::format("        [id({}){}, helpstring(\"{}\")]\n        HRESULT {}({}{});\n", member.dispid,
                       kinds[static_cast<std::size_t>(member.access)], member.help, member.name,
                       lines.empty() ? "" : "\n            ", fmt::join(lines, ",\n            "));
}

void write_enumerations(std::string& out) {
    for (const EnumerationDescription& enumeration : enumeration_descriptions()) {
        std::vector<std::string> lines;
        for (const auto& [name, value] : enumeration.members) lines.push_back(fmt::format("{} = {}", name, value));
        out += fmt::format("    typedef enum {0} {{\n        {1}\n    }} {0};\n\n", enumeration.name,
                           fmt::join(lines, ",\n        "));
    }
}

void write_records(std::string& out) {
    for (const RecordDescription& record : record_descriptions()) {
        out += fmt::format("    typedef [uuid({}), helpstring(\"{}\")] struct {} {{\n", record.guid, record.help,
                           record.name);
        for (const std::string_view field : record.fields)
            out += fmt::format("        {} {};\n", DeclaredType{record.kind}.idl_text(), field);
        out += fmt::format("    }} {};\n\n", record.name);
    }
}

void write_class(std::string& out, const ClassDescription& description, IdlDialect dialect) {
    const std::string interface = description.interface_name();
    out += fmt::format("    [object, uuid({}), dual, oleautomation, nonextensible, helpstring(\"{}\")]\n",
                       description.interface_id, description.help);
    out += fmt::format("    interface {} : IDispatch {{\n", interface);
    for (const Member& member : description.members) write_member(out, member, dialect);
    out += fmt::format("    }}\n\n    [uuid({}), helpstring(\"{}\"){}]\n", description.class_id, description.help,
                       description.create ? "" : ", noncreatable");
    out += fmt::format("    coclass {} {{ [default] interface {}; }}\n\n", description.name, interface);
}

std::string default_as_written(const Parameter& parameter) {
    const Value value = default_value_of(parameter);
    if (value.holds<Missing>()) return {};
    if (const auto* truth = value.get_if<bool>()) return *truth ? " = True" : " = False";
    return " = " + default_text(parameter, IdlDialect::standard);
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
        for (const auto& [name, value] : enumeration.members) out += fmt::format("| `{}` | {} |\n", name, value);
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

std::span<const EnumerationDescription> enumeration_descriptions() {
    // Enumerators share one scope with everything else in a type library: short names get their enumeration's before.
    static const std::array descriptions{describe<enumPeakInfoUnits>(),
                                         describe<SetpointModificationReturnCodes>(),
                                         describe<MassRangeComboBoxSelection>(),
                                         describe<AUTOTUNE_STATUS, -1000, 1200>(),
                                         describe<enumQuadType>(),
                                         describe<statusID>(),
                                         describe<AutotunePolarity>(),
                                         describe<AUTOABORT>(),
                                         describe<SamplingRateId>(),
                                         describe<PeakCalcType>("PeakCalcType_"),
                                         describe<PolaritySetpoint>("PolaritySetpoint_")};
    return descriptions;
}

std::string idl_text() {
    return idl_text(IdlDialect::standard);
}

std::string idl_text(IdlDialect dialect) {
    std::string out = "// Made from the member tables of the automation classes.\n\n";
    out += dialect == IdlDialect::standard ? imports : widl_prelude;
    out += fmt::format("[uuid({}), version({}.{}), helpstring(\"Korvane\")]\n", library_id, library_major_version,
                       library_minor_version);
    out += "library Korvane {\n    importlib(\"stdole2.tlb\");\n\n";
    write_enumerations(out);
    write_records(out);
    for (const ClassDescription& description : class_descriptions())
        out += fmt::format("    interface {};\n", description.interface_name());
    out += '\n';
    for (const ClassDescription& description : class_descriptions()) write_class(out, description, dialect);
    out.pop_back();
    return out + "}\n";
}

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
        for (const auto& [name, value] : enumeration.members) tables["enumerations"][enumeration.name][name] = value;
    for (const contract::Number& entry : contract::entries<contract::Number>(contract::setpoint))
        tables["setpoint_units"][std::to_string(entry.key)] = entry.unit;
    return tables.dump();
}

}  // namespace korvane::automation
