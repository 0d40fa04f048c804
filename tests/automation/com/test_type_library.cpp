// The type library inside the server against the member tables.
#include <gtest/gtest.h>

#include "automation/class_description.h"
#include "automation/com/record_info.h"
#include "automation/com/vtable.h"
#include "automation/enumerations.h"
#include "automation/type_library.h"
#include "variant_text.h"

namespace korvane::automation {
namespace {

ComPointer<ITypeInfo> type_info_of(std::string_view guid) {
    ComPointer<ITypeInfo> info;
    require(type_library().GetTypeInfoOfGuid(guid_of(guid), info.put()), "Asking for a type");
    return info;
}

/// The view with vtable offsets of a dual interface.
ComPointer<ITypeInfo> vtable_view(ITypeInfo& dispatch_view) {
    HREFTYPE reference = 0;
    ComPointer<ITypeInfo> view;
    require(dispatch_view.GetRefTypeOfImplType(static_cast<UINT>(-1), &reference), "Asking for the dual interface");
    require(dispatch_view.GetRefTypeInfo(reference, view.put()), "Asking for the dual interface");
    return view;
}

std::string name_of(ITypeInfo& info, MEMBERID member = MEMBERID_NIL) {
    Bstr name;
    require(info.GetDocumentation(member, name.put(), nullptr, nullptr, nullptr), "Asking for a name");
    return text_of(name.get());
}

std::string type_text(ITypeInfo& info, const TYPEDESC& type) {
    switch (type.vt) {
        case VT_PTR:
            return type_text(info, *type.lptdesc) + "*";
        case VT_SAFEARRAY:
            return "SAFEARRAY(" + type_text(info, *type.lptdesc) + ")";
        case VT_USERDEFINED: {
            ComPointer<ITypeInfo> referred;
            require(info.GetRefTypeInfo(type.hreftype, referred.put()), "Asking for a type");
            return name_of(*referred.get());
        }
        case VT_VARIANT:
            return "VARIANT";
        case VT_BOOL:
            return "VARIANT_BOOL";
        case VT_I4:
            return "long";
        case VT_R4:
            return "float";
        case VT_R8:
            return "double";
        case VT_BSTR:
            return "BSTR";
        default:
            return "VT " + std::to_string(type.vt);
    }
}

std::string expected_type(const DeclaredType& type) {
    switch (type.kind) {
        case TypeKind::none:
            return "";
        case TypeKind::variant:
            return "VARIANT";
        case TypeKind::boolean:
            return "VARIANT_BOOL";
        case TypeKind::long_integer:
            return "long";
        case TypeKind::single:
            return "float";
        case TypeKind::real:
            return "double";
        case TypeKind::text:
            return "BSTR";
        case TypeKind::real_array:
            return "SAFEARRAY(double)";
        case TypeKind::text_array:
            return "SAFEARRAY(BSTR)";
        case TypeKind::object:
            return "_" + std::string(type.name) + "*";
        default:
            return std::string(type.name);
    }
}

std::string expected_default(const Parameter& parameter) {
    const Value value = default_value_of(parameter);
    char text[64] = "";
    if (const bool* truth = value.get_if<bool>()) return *truth ? "BOOL -1" : "BOOL 0";
    if (const auto* words = value.get_if<std::string>()) return "BSTR \"" + *words + "\"";
    if (value.holds<Missing>()) return "";
    if (parameter.type.kind == TypeKind::single)
        std::snprintf(text, sizeof text, "R4 %.17g", value.as_single());
    else if (parameter.type.kind == TypeKind::real)
        std::snprintf(text, sizeof text, "R8 %.17g", value.as_double());
    else
        std::snprintf(text, sizeof text, "I4 %ld", static_cast<long>(value.as_int32()));
    return text;
}

/// A type library keeps one spelling of words that differ in case alone.
std::string lower_case(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

struct Line {
    std::string name;
    std::string type;
    unsigned flags;
    std::string default_value;
    friend bool operator==(const Line&, const Line&) = default;
    friend void PrintTo(const Line& line, std::ostream* out) {
        *out << line.name << ": " << line.type << ", flags " << line.flags << ", default " << line.default_value;
    }
};

std::vector<Line> expected_lines(const Member& member) {
    std::vector<Line> lines;
    for (const Parameter& parameter : member.parameters()) {
        unsigned flags = PARAMFLAG_FIN;
        if (parameter.is_by_reference()) flags |= PARAMFLAG_FOUT;
        if (parameter.optional) flags |= PARAMFLAG_FOPT;
        const std::string standard = expected_default(parameter);
        if (!standard.empty()) flags |= PARAMFLAG_FHASDEFAULT;
        // Puts have no names for their last parameter in a type library.
        lines.push_back({member.kind == MemberKind::property_put ? "" : lower_case(std::string(parameter.name)),
                         expected_type(parameter.type) + (parameter.is_by_reference() ? "*" : ""), flags, standard});
    }
    if (member.result.kind != TypeKind::none)
        lines.push_back({"result", expected_type(member.result) + "*", PARAMFLAG_FOUT | PARAMFLAG_FRETVAL, ""});
    return lines;
}

std::vector<Line> lines_of(ITypeInfo& info, const FUNCDESC& function) {
    std::vector<BSTR> names(static_cast<std::size_t>(function.cParams) + 1);
    UINT named = 0;
    info.GetNames(function.memid, names.data(), static_cast<UINT>(names.size()), &named);
    std::vector<Line> lines;
    for (SHORT place = 0; place < function.cParams; ++place) {
        const ELEMDESC& element = function.lprgelemdescParam[place];
        const PARAMDESC& parameter = element.paramdesc;
        const bool put = function.invkind == INVOKE_PROPERTYPUT;
        const std::size_t name = static_cast<std::size_t>(place) + 1;
        lines.push_back({!put && name < named ? lower_case(text_of(names[name])) : "", type_text(info, element.tdesc),
                         parameter.wParamFlags,
                         parameter.wParamFlags & PARAMFLAG_FHASDEFAULT
                             ? text_of_variant(parameter.pparamdescex->varDefaultValue)
                             : ""});
    }
    for (BSTR name : names) SysFreeString(name);
    return lines;
}

class TypeLibraryOfClass : public testing::TestWithParam<std::string> {};

TEST_P(TypeLibraryOfClass, AgreesWithTheTable) {
    const ClassDescription& description = *find_class(GetParam());
    const auto dispatch_view = type_info_of(description.interface_id);
    EXPECT_EQ(name_of(*dispatch_view.get()), description.interface_name());
    const auto view = vtable_view(*dispatch_view.get());
    TYPEATTR* attributes = nullptr;
    require(view->GetTypeAttr(&attributes), "Asking for attributes");
    EXPECT_EQ(attributes->cFuncs, description.members.size());
    const WORD wanted = TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FNONEXTENSIBLE;
    EXPECT_EQ(attributes->wTypeFlags & wanted, wanted);
    view->ReleaseTypeAttr(attributes);

    for (std::size_t index = 0; index < description.members.size(); ++index) {
        const Member& member = description.members[index];
        FUNCDESC* function = nullptr;
        ASSERT_EQ(view->GetFuncDesc(static_cast<UINT>(index), &function), S_OK) << member.name;
        EXPECT_EQ(name_of(*view.get(), function->memid), member.name);
        EXPECT_EQ(function->memid, member.dispid) << member.name;
        static constexpr INVOKEKIND kinds[] = {INVOKE_FUNC, INVOKE_PROPERTYGET, INVOKE_PROPERTYPUT};
        EXPECT_EQ(function->invkind, kinds[static_cast<std::size_t>(member.kind)]) << member.name;
        EXPECT_EQ(function->oVft, static_cast<SHORT>((common_slot_count + index) * sizeof(void*))) << member.name;
        EXPECT_EQ(lines_of(*view.get(), *function), expected_lines(member)) << member.name;
        view->ReleaseFuncDesc(function);
    }
}

INSTANTIATE_TEST_SUITE_P(Classes, TypeLibraryOfClass,
                         testing::Values("TuneGlobals", "SpectrumParser", "CalMassList", "clsTuneParamsXML",
                                         "clsTunePrefsXML", "AbortHelper", "PeakList", "MassTimeCalibration"),
                         [](const auto& test) { return test.param; });

TEST(TypeLibrary, HasTheClassesWithTheirDefaultInterfaces) {
    TLIBATTR* library = nullptr;
    require(type_library().GetLibAttr(&library), "Asking for attributes");
    EXPECT_TRUE(IsEqualGUID(library->guid, guid_of(library_id)));
    EXPECT_EQ(library->wMajorVerNum, library_major_version);
    EXPECT_EQ(library->wMinorVerNum, library_minor_version);
    type_library().ReleaseTLibAttr(library);
    Bstr name;
    type_library().GetDocumentation(-1, name.put(), nullptr, nullptr, nullptr);
    EXPECT_EQ(text_of(name.get()), "Korvane");

    for (const ClassDescription& description : class_descriptions()) {
        const auto info = type_info_of(description.class_id);
        EXPECT_EQ(lower_case(name_of(*info.get())), lower_case(std::string(description.name)));
        TYPEATTR* attributes = nullptr;
        require(info->GetTypeAttr(&attributes), "Asking for attributes");
        EXPECT_EQ(attributes->typekind, TKIND_COCLASS);
        EXPECT_EQ((attributes->wTypeFlags & TYPEFLAG_FCANCREATE) != 0, description.create != nullptr);
        EXPECT_EQ(attributes->cImplTypes, 1);
        info->ReleaseTypeAttr(attributes);
        HREFTYPE reference = 0;
        ComPointer<ITypeInfo> standard;
        require(info->GetRefTypeOfImplType(0, &reference), "Asking for the default interface");
        require(info->GetRefTypeInfo(reference, standard.put()), "Asking for the default interface");
        EXPECT_EQ(name_of(*standard.get()), description.interface_name());
    }
}

/// The variables of an enumeration or a record.
template <class Visit>
void for_each_variable(ITypeInfo& info, Visit visit) {
    TYPEATTR* attributes = nullptr;
    require(info.GetTypeAttr(&attributes), "Asking for attributes");
    const UINT count = attributes->cVars;
    info.ReleaseTypeAttr(attributes);
    for (UINT index = 0; index < count; ++index) {
        VARDESC* variable = nullptr;
        require(info.GetVarDesc(index, &variable), "Asking for a variable");
        visit(index, name_of(info, variable->memid), *variable);
        info.ReleaseVarDesc(variable);
    }
}

TEST(TypeLibrary, HasTheRecordsLaidOutAsInMemory) {
    for (const RecordDescription& record : record_descriptions()) {
        const auto info = type_info_of(record.guid);
        EXPECT_EQ(name_of(*info.get()), record.name);
        std::size_t fields = 0;
        for_each_variable(*info.get(), [&](UINT index, const std::string& name, const VARDESC& variable) {
            ASSERT_LT(index, record.fields.size());
            EXPECT_EQ(name, record.fields[index].name);
            EXPECT_EQ(variable.oInst, record.fields[index].offset) << name;
            EXPECT_EQ(type_text(*info.get(), variable.elemdescVar.tdesc), expected_type({record.fields[index].kind}));
            ++fields;
        });
        EXPECT_EQ(fields, record.fields.size()) << record.name;
        ULONG size = 0;
        if (IRecordInfo* const known = record_info_of(record)) known->GetSize(&size);
        EXPECT_EQ(size, record.size) << record.name;
    }
}

TEST(TypeLibrary, HasTheEnumerations) {
    std::size_t found = 0;
    for (UINT index = 0; index < type_library().GetTypeInfoCount(); ++index) {
        ComPointer<ITypeInfo> info;
        require(type_library().GetTypeInfo(index, info.put()), "Asking for a type");
        for (const EnumerationDescription& enumeration : enumeration_descriptions()) {
            if (enumeration.name != name_of(*info.get())) continue;
            ++found;
            std::size_t members = 0;
            for_each_variable(*info.get(), [&](UINT place, const std::string& name, const VARDESC& variable) {
                ASSERT_LT(place, enumeration.members.size());
                EXPECT_EQ(name, enumeration.members[place].name);
                EXPECT_EQ(variable.lpvarValue->lVal, enumeration.members[place].value) << name;
                ++members;
            });
            EXPECT_EQ(members, enumeration.members.size()) << enumeration.name;
        }
    }
    EXPECT_EQ(found, enumeration_descriptions().size());
}

}  // namespace
}  // namespace korvane::automation
