#include "variant_text.h"

#include <map>
#include <vector>

namespace korvane::automation {

namespace {

std::string kind_text(VARTYPE kind) {
    static const std::map<VARTYPE, const char*> names{
        {VT_EMPTY, "EMPTY"}, {VT_NULL, "NULL"}, {VT_I2, "I2"},     {VT_I4, "I4"},           {VT_R4, "R4"},
        {VT_R8, "R8"},       {VT_BOOL, "BOOL"}, {VT_BSTR, "BSTR"}, {VT_DISPATCH, "object"}, {VT_ERROR, "ERROR"},
        {VT_DATE, "DATE"},   {VT_INT, "INT"},   {VT_UI1, "UI1"},   {VT_VARIANT, "VARIANT"}, {VT_RECORD, "RECORD"}};
    const auto name = names.find(kind);
    return name == names.end() ? "kind " + std::to_string(kind) : name->second;
}

std::string number_text(double number) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", number);
    return text;
}

std::string object_text(IDispatch* dispatch) {
    if (!dispatch) return "Nothing";
    ComPointer<ITypeInfo> type;
    if (FAILED(dispatch->GetTypeInfo(0, 0, type.put())) || !type) return "of an unknown class";
    Bstr name;
    type->GetDocumentation(MEMBERID_NIL, name.put(), nullptr, nullptr, nullptr);
    return text_of(name.get());
}

std::string record_text(void* memory, IRecordInfo* info) {
    Bstr name;
    info->GetName(name.put());
    ULONG count = 64;
    std::vector<BSTR> fields(count);
    info->GetFieldNames(&count, fields.data());
    fields.resize(count);
    std::string text = text_of(name.get()) + " {";
    for (BSTR field : fields) {
        Variant content;
        const HRESULT code = info->GetField(memory, field, content.get());
        text += (field == fields.front() ? "" : ", ") + text_of(field) + " = " +
                (FAILED(code) ? "?" : text_of_variant(*content));
        SysFreeString(field);
    }
    return text + "}";
}

std::string element_text(SAFEARRAY* array, VARTYPE kind, char* element) {
    if (kind == VT_RECORD) {
        ComPointer<IRecordInfo> info;
        SafeArrayGetRecordInfo(array, info.put());
        return record_text(element, info.get());
    }
    VARIANT view;
    VariantInit(&view);
    view.vt = static_cast<VARTYPE>(kind | VT_BYREF);
    view.byref = element;
    const std::string text = text_of_variant(view);
    // Within an array of one kind the kind needs no repetition.
    return kind == VT_VARIANT ? text : text.substr(text.find(' ') + 1);
}

std::string array_text(SAFEARRAY* array, VARTYPE kind) {
    std::string text = "ARRAY " + kind_text(kind) + " ";
    if (!array) return text + "never dimensioned";
    std::size_t count = 1;
    for (UINT dimension = 1; dimension <= SafeArrayGetDim(array); ++dimension) {
        LONG lower = 0, upper = -1;
        SafeArrayGetLBound(array, dimension, &lower);
        SafeArrayGetUBound(array, dimension, &upper);
        text += "[" + std::to_string(lower) + ".." + std::to_string(upper) + "]";
        count *= static_cast<std::size_t>(upper - lower + 1);
    }
    void* data = nullptr;
    if (FAILED(SafeArrayAccessData(array, &data))) return text + " unreadable";
    text += " {";
    for (std::size_t place = 0; place < count; ++place)
        text += (place == 0 ? "" : ", ") +
                element_text(array, kind, static_cast<char*>(data) + place * SafeArrayGetElemsize(array));
    SafeArrayUnaccessData(array);
    return text + "}";
}

}  // namespace

std::string text_of_variant(const VARIANT& variant) {
    const bool reference = variant.vt & VT_BYREF;
    const auto kind = static_cast<VARTYPE>(variant.vt & VT_TYPEMASK);
    if (variant.vt & VT_ARRAY) return array_text(reference ? *variant.pparray : variant.parray, kind);
    if (kind == VT_VARIANT) return text_of_variant(*variant.pvarVal);
    const void* const content = reference ? variant.byref : &variant.llVal;
    const std::string name = kind_text(kind) + " ";
    switch (kind) {
        case VT_I2:
            return name + std::to_string(*static_cast<const SHORT*>(content));
        case VT_BOOL:
            return name + std::to_string(*static_cast<const VARIANT_BOOL*>(content));
        case VT_I4:
        case VT_INT:
        case VT_ERROR:
            return name + std::to_string(*static_cast<const LONG*>(content));
        case VT_UI1:
            return name + std::to_string(*static_cast<const BYTE*>(content));
        case VT_R4:
            return name + number_text(*static_cast<const float*>(content));
        case VT_R8:
        case VT_DATE:
            return name + number_text(*static_cast<const double*>(content));
        case VT_BSTR:
            return name + "\"" + text_of(*static_cast<const BSTR*>(content)) + "\"";
        case VT_DISPATCH:
            return name + object_text(*static_cast<IDispatch* const*>(content));
        case VT_RECORD:
            return name + record_text(variant.pvRecord, variant.pRecInfo);
        default:
            return kind_text(kind);
    }
}

std::string text_of_outcome(HRESULT code, EXCEPINFO& details) {
    if (code == S_OK) return "Success";
    if (code != DISP_E_EXCEPTION) return "code " + std::to_string(code);
    const std::string text = "error " + std::to_string(details.scode) + " from " + text_of(details.bstrSource) + ": " +
                             text_of(details.bstrDescription);
    SysFreeString(details.bstrSource);
    SysFreeString(details.bstrDescription);
    details = {};
    return text;
}

std::string text_of_outcome(HRESULT code) {
    if (code == S_OK) return "Success";
    ComPointer<IErrorInfo> info;
    if (GetErrorInfo(0, info.put()) != S_OK) return "code " + std::to_string(code) + " without an error object";
    Bstr source, description;
    info->GetSource(source.put());
    info->GetDescription(description.put());
    return "error " + std::to_string(code) + " from " + text_of(source.get()) + ": " + text_of(description.get());
}

}  // namespace korvane::automation
