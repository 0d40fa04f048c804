// The type library inside the server against the committed interface definition.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "automation/com/com_object.h"
#include "automation/type_library.h"
#include "support/test_platform.h"

namespace korvane::automation {
namespace {

struct Documentation {
    std::string name, help;
};

Documentation documentation_of(ITypeInfo& info, MEMBERID member = MEMBERID_NIL) {
    BSTR name = nullptr, help = nullptr;
    require(info.GetDocumentation(member, &name, &help, nullptr, nullptr), "Asking for name and help");
    const Documentation texts{text_of(name), "helpstring(\"" + text_of(help) + "\")"};
    SysFreeString(name);
    SysFreeString(help);
    return texts;
}

ComPointer<ITypeInfo> referred(ITypeInfo& info, HREFTYPE reference) {
    ComPointer<ITypeInfo> type;
    require(info.GetRefTypeInfo(reference, type.GetAddressOf()), "Asking for a type");
    return type;
}

ComPointer<ITypeInfo> implemented(ITypeInfo& info, UINT place) {
    HREFTYPE reference = 0;
    require(info.GetRefTypeOfImplType(place, &reference), "Asking for an interface");
    return referred(info, reference);
}

std::string type_text(ITypeInfo& info, const TYPEDESC& type) {
    if (type.vt == VT_PTR) return type_text(info, *type.lptdesc) + "*";
    if (type.vt == VT_SAFEARRAY) return "SAFEARRAY(" + type_text(info, *type.lptdesc) + ")";
    if (type.vt == VT_USERDEFINED) return documentation_of(*referred(info, type.hreftype).Get()).name;
    const auto* const known = std::ranges::find(kind_descriptions, type.vt, &KindDescription::variant_type);
    return known == kind_descriptions.end() ? "VT " + std::to_string(type.vt) : std::string(known->idl);
}

std::string default_text(const VARIANT& variant) {
    const Value value = value_of_variant(variant);
    if (const auto* text = value.get_if<std::string>()) return "\"" + *text + "\"";
    return fmt::format("{}", value.as_double());
}

std::string function_text(ITypeInfo& info, const FUNCDESC& function) {
    std::vector<BSTR> names(static_cast<std::size_t>(function.cParams) + 1);
    UINT named = 0;
    info.GetNames(function.memid, names.data(), static_cast<UINT>(names.size()), &named);
    const bool put = function.invkind == INVOKE_PROPERTYPUT;
    const char* const kind = put ? ", propput" : function.invkind == INVOKE_PROPERTYGET ? ", propget" : "";
    std::string text = fmt::format("\n[id({}){}, {}]\nHRESULT {}(", function.memid, kind,
                                   documentation_of(info, function.memid).help, text_of(names[0]));
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
                            name < named && !put ? text_of(names[name]) : "value");
    }
    for (BSTR name : names) SysFreeString(name);
    return text + ");";
}

/// The functions by their places in the vtable.
std::string functions_text(ITypeInfo& info) {
    std::string text;
    FUNCDESC* function = nullptr;
    for (UINT index = 0; info.GetFuncDesc(index, &function) == S_OK; ++index) {
        EXPECT_EQ(function->oVft, static_cast<SHORT>((common_slot_count + index) * sizeof(void*)));
        text += function_text(info, *function);
        info.ReleaseFuncDesc(function);
    }
    return text;
}

/// Enumerators or fields.
std::string variables_text(ITypeInfo& info, UINT count) {
    std::string text;
    for (UINT index = 0; index < count; ++index) {
        VARDESC* variable = nullptr;
        require(info.GetVarDesc(index, &variable), "Asking for a variable");
        const std::string name = documentation_of(info, variable->memid).name;
        text += variable->varkind == VAR_CONST
                    ? fmt::format("\n{} = {}{}", name, variable->lpvarValue->lVal, index + 1 < count ? "," : "")
                    : fmt::format("\n{} {};", type_text(info, variable->elemdescVar.tdesc), name);
        info.ReleaseVarDesc(variable);
    }
    return text;
}

/// A type as the interface definition has it.
std::string type_text(ITypeInfo& info) {
    TYPEATTR* attributes = nullptr;
    require(info.GetTypeAttr(&attributes), "Asking for attributes");
    const TYPEATTR type = *attributes;
    info.ReleaseTypeAttr(attributes);
    wchar_t guid[40];
    StringFromGUID2(type.guid, guid, 40);
    const auto [name, help] = documentation_of(info);
    const std::string id = fmt::format("uuid({})", utf8_from_utf16({guid + 1, 36}));
    switch (type.typekind) {
        case TKIND_ENUM:
            return fmt::format("typedef enum {0} {{{1}\n}} {0};", name, variables_text(info, type.cVars));
        case TKIND_RECORD:
            return fmt::format("typedef [{2}, {3}] struct {0} {{{1}\n}} {0};", name, variables_text(info, type.cVars),
                               id, help);
        case TKIND_COCLASS:
            return fmt::format("[{}, {}{}]\ncoclass {} {{ [default] interface {}; }}", id, help,
                               type.wTypeFlags & TYPEFLAG_FCANCREATE ? "" : ", noncreatable", name,
                               documentation_of(*implemented(info, 0).Get()).name);
        default: {
            const auto view = implemented(info, static_cast<UINT>(-1));  // with the places in the vtable
            require(view->GetTypeAttr(&attributes), "Asking for attributes");
            const bool checked = attributes->wTypeFlags & TYPEFLAG_FOLEAUTOMATION;
            view->ReleaseTypeAttr(attributes);
            return fmt::format("[object, {}{}{}{}, {}]\ninterface {} : IDispatch {{{}\n}}", id,
                               type.wTypeFlags & TYPEFLAG_FDUAL ? ", dual" : "", checked ? ", oleautomation" : "",
                               type.wTypeFlags & TYPEFLAG_FNONEXTENSIBLE ? ", nonextensible" : "", help, name,
                               functions_text(*view.Get()));
        }
    }
}

/// A type library keeps one spelling of words that differ in case alone.
std::string lower_case(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

/// The types of the committed definition, without indentation: its blocks with a brace, but the library's own.
std::set<std::string> committed_types() {
    std::set<std::string> types;
    std::string block;
    for (std::string line : read_lines(KORVANE_SOURCE_DIR "/src/automation/korvane.idl")) {
        line.erase(0, line.find_first_not_of(' '));
        if (!line.empty()) block += lower_case((block.empty() ? "" : "\n") + line);
        if (!line.empty()) continue;
        if (block.find('{') != std::string::npos && block.find("\nlibrary ") == std::string::npos) types.insert(block);
        block.clear();
    }
    block.resize(block.size() - 2);  // the brace that closes the library
    types.insert(block);
    return types;
}

TEST(TypeLibrary, HasTheTypesAsCommitted) {
    std::set<std::string> found;
    for (UINT index = 0; index < type_library().GetTypeInfoCount(); ++index) {
        ComPointer<ITypeInfo> info;
        require(type_library().GetTypeInfo(index, info.GetAddressOf()), "Asking for a type");
        found.insert(lower_case(type_text(*info.Get())));
    }
    EXPECT_EQ(found, committed_types());
    TLIBATTR* library = nullptr;
    require(type_library().GetLibAttr(&library), "Asking for attributes");
    EXPECT_TRUE(IsEqualGUID(library->guid, guid_of(library_id)));
    EXPECT_EQ(library->wMajorVerNum, library_major_version);
    EXPECT_EQ(library->wMinorVerNum, library_minor_version);
    type_library().ReleaseTLibAttr(library);
    for (const RecordDescription& record : record_descriptions()) {
        ULONG size = 0;
        if (IRecordInfo* const known = record_info_of(record)) known->GetSize(&size);
        EXPECT_EQ(size, record.size) << record.name;
    }
}

}  // namespace
}  // namespace korvane::automation
