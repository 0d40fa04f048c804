#include <fmt/format.h>

#include <iterator>

#include "automation/class_description.h"
#include "automation/enumerations.h"
#include "automation/instrument_members.h"
#include "automation/records.h"
#include "korvane/automation.h"
#include "platform/automation_arithmetic.h"

namespace korvane::automation {

namespace {

std::string type_text(const DeclaredType& type) {
    switch (type.kind) {
        case TypeKind::none:
            return {};
        case TypeKind::variant:
            return "Variant";
        case TypeKind::boolean:
            return "Boolean";
        case TypeKind::long_integer:
            return "Long";
        case TypeKind::single:
            return "Single";
        case TypeKind::real:
            return "Double";
        case TypeKind::text:
            return "String";
        case TypeKind::enumeration:
        case TypeKind::record:
        case TypeKind::object:
            return std::string(type.name);
        case TypeKind::real_array:
            return "Double()";
        case TypeKind::text_array:
            return "String()";
    }
    return {};
}

std::string default_text(const Parameter& parameter) {
    const Value value = default_value_of(parameter);
    if (value.holds<Missing>()) return {};
    if (const auto* text = value.get_if<std::string>()) return " = \"" + *text + "\"";
    if (const auto* number = value.get_if<double>()) return " = " + number_text(*number);
    return " = " + value.as_text();
}

std::string parameter_text(const Parameter& parameter) {
    return fmt::format("{}{}{} As {}{}", parameter.optional ? "Optional " : "",
                       parameter.is_by_reference() ? "" : "ByVal ", parameter.name, type_text(parameter.type),
                       default_text(parameter));
}

std::string signature_text(const Member& member) {
    std::string parameters;
    for (const Parameter& parameter : member.parameters())
        parameters += (parameters.empty() ? "" : ", ") + parameter_text(parameter);
    std::string kind = member.result.kind == TypeKind::none ? "Sub" : "Function";
    if (member.kind == MemberKind::property_get) kind = "Property Get";
    if (member.kind == MemberKind::property_put) kind = "Property Let";
    const std::string result = type_text(member.result);
    return fmt::format("{} {}({}){}", kind, member.name, parameters, result.empty() ? "" : " As " + result);
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
unknown member 438; an unknown class 429. Arguments passed by reference change only when the member succeeds.
)";

std::string creation_text(const ClassDescription& description) {
    if (description.create) return " Created as `" + description.prog_id() + "`.";
    return description.class_id.empty() ? "" : " Not creatable.";
}

void write_class(std::string& out, const ClassDescription& description) {
    fmt::format_to(std::back_inserter(out), "\n## {}\n\n{}{}\n\n| Number | Member | |\n|---|---|---|\n",
                   description.name, description.help, creation_text(description));
    for (const Member& member : description.members)
        fmt::format_to(std::back_inserter(out), "| {} | `{}` | {} |\n", member.dispid, signature_text(member),
                       member.help);
}

void write_records(std::string& out) {
    out += "\n## Records\n";
    for (const RecordDescription& record : record_descriptions()) {
        fmt::format_to(std::back_inserter(out), "\n`{}`: {} Fields:", record.name, record.help);
        std::string_view separator = " ";
        for (const Field& field : record.fields) {
            fmt::format_to(std::back_inserter(out), "{}`{}` ({})", separator, field.name, type_text({field.kind}));
            separator = ", ";
        }
        out += ".\n";
    }
}

void write_enumerations(std::string& out) {
    out += "\n## Enumerations\n";
    for (const EnumerationDescription& enumeration : enumeration_descriptions()) {
        fmt::format_to(std::back_inserter(out), "\n### {}\n\n| Name | Value |\n|---|---|\n", enumeration.name);
        for (const Enumerator& member : enumeration.members)
            fmt::format_to(std::back_inserter(out), "| `{}` | {} |\n", member.name, member.value);
    }
}

}  // namespace

std::vector<MemberSummary> member_summaries() {
    std::vector<MemberSummary> summaries;
    for (const ClassDescription& description : class_descriptions())
        for (const Member& member : description.members)
            summaries.push_back({std::string(description.name), std::string(member.name), member.dispid,
                                 signature_text(member), std::string(member.help)});
    return summaries;
}

std::string instrument_reference_text() {
    std::string out(
        "<!-- Made from the member tables of the instrument layer. -->\n"
        "# The objects of an instrument layer\n\n"
        "The members that a layer of automation objects has (docs/instrument-layer.md). Names count, whatever their "
        "case;\n"
        "numbers are those of the objects that this library itself offers, a layer may have others. A method may be a\n"
        "property and the reverse.\n");
    for (const ClassDescription& description : instrument_class_descriptions()) write_class(out, description);
    for (const char* const name : {"PeakList", "MassTimeCalibration"}) write_class(out, class_named(name));
    return out;
}

std::string reference_text() {
    std::string out(introduction);
    for (const ClassDescription& description : class_descriptions()) write_class(out, description);
    write_records(out);
    write_enumerations(out);
    return out;
}

}  // namespace korvane::automation
