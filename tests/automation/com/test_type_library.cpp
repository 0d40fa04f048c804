// The type library inside the server against the member tables.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "automation/class_description.h"
#include "automation/com/record_info.h"
#include "automation/com/vtable.h"
#include "automation/enumerations.h"
#include "automation/type_library.h"

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

/// A type library keeps one spelling of words that differ in case alone.
std::string lower_case(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

std::string default_text(const VARIANT& value) {
    switch (value.vt) {
        case VT_BOOL:
        case VT_I4:
            return std::to_string(value.vt == VT_BOOL ? value.boolVal : value.lVal);
        case VT_R4:
            return fmt::format("{}", value.fltVal);
        case VT_R8:
            return fmt::format("{}", value.dblVal);
        case VT_BSTR:
            return "\"" + text_of(value.bstrVal) + "\"";
        default:
            return "VT " + std::to_string(value.vt);
    }
}

/// A function as the interface definition has it, a parameter a line.
std::string idl_of(ITypeInfo& info, const FUNCDESC& function) {
    std::vector<BSTR> names(static_cast<std::size_t>(function.cParams) + 1);
    UINT named = 0;
    info.GetNames(function.memid, names.data(), static_cast<UINT>(names.size()), &named);
    Bstr help;
    info.GetDocumentation(function.memid, nullptr, help.put(), nullptr, nullptr);
    static const std::map<INVOKEKIND, std::string> kinds{
        {INVOKE_FUNC, ""}, {INVOKE_PROPERTYGET, ", propget"}, {INVOKE_PROPERTYPUT, ", propput"}};
    std::string text = fmt::format("[id({}){}, helpstring(\"{}\")]\nhresult {}(", function.memid,
                                   kinds.at(function.invkind), text_of(help.get()), text_of(names[0]));
    for (SHORT place = 0; place < function.cParams; ++place) {
        const ELEMDESC& element = function.lprgelemdescParam[place];
        const USHORT flags = element.paramdesc.wParamFlags;
        std::string attributes = flags & PARAMFLAG_FIN ? "in" : "out, retval";
        if ((flags & PARAMFLAG_FIN) && (flags & PARAMFLAG_FOUT)) attributes += ", out";
        if (flags & PARAMFLAG_FOPT) attributes += ", optional";
        if (flags & PARAMFLAG_FHASDEFAULT)
            attributes += ", defaultvalue(" + default_text(element.paramdesc.pparamdescex->varDefaultValue) + ")";
        // Puts have no names in a type library: theirs are those of the get with the same number.
        const std::size_t name = static_cast<std::size_t>(place) + 1;
        text += fmt::format("{}\n[{}] {} {}", place == 0 ? "" : ",", attributes, type_text(info, element.tdesc),
                            name < named && function.invkind != INVOKE_PROPERTYPUT ? text_of(names[name]) : "value");
    }
    for (BSTR name : names) SysFreeString(name);
    return lower_case(text + ");\n");
}

/// The lines between "interface NAME : IDispatch {" and "}" in the committed definition, without indentation.
std::string committed_idl(const std::string& name) {
    std::ifstream in(KORVANE_SOURCE_DIR "/src/automation/korvane.idl");
    std::string text;
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        line.erase(0, line.find_first_not_of(' '));
        if (line == "}") inside = false;
        if (inside) text += line + "\n";
        if (line == "interface " + name + " : IDispatch {") inside = true;
    }
    return lower_case(text);
}

TEST(TypeLibrary, HasTheInterfacesAsCommitted) {
    for (const ClassDescription& description : class_descriptions()) {
        const auto dispatch_view = type_info_of(description.interface_id);
        EXPECT_EQ(name_of(*dispatch_view.get()), description.interface_name());
        const auto view = vtable_view(*dispatch_view.get());
        TYPEATTR* attributes = nullptr;
        require(view->GetTypeAttr(&attributes), "Asking for attributes");
        const UINT functions = attributes->cFuncs;
        const WORD wanted = TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FNONEXTENSIBLE;
        EXPECT_EQ(attributes->wTypeFlags & wanted, wanted);
        view->ReleaseTypeAttr(attributes);
        std::string text;
        for (UINT index = 0; index < functions; ++index) {
            FUNCDESC* function = nullptr;
            ASSERT_EQ(view->GetFuncDesc(index, &function), S_OK);
            EXPECT_EQ(function->oVft, static_cast<SHORT>((common_slot_count + index) * sizeof(void*)));
            text += idl_of(*view.get(), *function);
            view->ReleaseFuncDesc(function);
        }
        EXPECT_EQ(text, committed_idl(description.interface_name()));
    }
}

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
            EXPECT_EQ(type_text(*info.get(), variable.elemdescVar.tdesc),
                      DeclaredType{record.fields[index].kind}.idl_text());
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
