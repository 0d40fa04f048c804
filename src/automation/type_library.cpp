#include "automation/type_library.h"

#include <fmt/format.h>

#include <utility>

#include "automation/class_description.h"
#include "automation/records.h"
#include "automation/type_names.h"
#include "korvane/automation.h"
#include "korvane/autotune_status.h"
#include "korvane/enumerations.h"
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

}  // namespace

std::span<const EnumerationDescription> enumeration_descriptions() {
    // Enumerators share one scope with everything else in a type library: short names get their enumeration's before.
    static const std::array descriptions{
        describe<enumPeakInfoUnits>(),
        describe<SetpointModificationReturnCodes>(),
        describe<MassRangeComboBoxSelection>(),
        describe<AUTOTUNE_STATUS, -1000, 1200>(),
        describe<enumQuadType>(),
        describe<statusID>(),
        describe<AutotunePolarity>(),
        describe<AUTOABORT>(),
        describe<SamplingRateId>(),
        describe<PeakCalcType>("PeakCalcType_"),
        describe<PolaritySetpoint>("PolaritySetpoint_"),
    };
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

}  // namespace korvane::automation
