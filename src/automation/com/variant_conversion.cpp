#ifdef _WIN32

#include "automation/com/variant_conversion.h"

#include <cstring>

#include "automation/com/com_object.h"
#include "automation/com/dispatch_object.h"
#include "automation/com/record_info.h"
#include "automation/com/safe_arrays.h"

namespace korvane::automation {

namespace {

constexpr std::int32_t array_locked = 10;

[[noreturn]] void refuse_kind(VARTYPE kind) {
    raise_runtime_fault(error_number::type_mismatch, "a value of kind " + std::to_string(kind));
}

/// The content itself: of the variable behind a reference, or of the VARIANT.
template <class T>
const T& content(const VARIANT& variant, const T& inside) {
    return variant.vt & VT_BYREF ? *static_cast<const T*>(variant.byref) : inside;
}

Value value_of_unknown(IUnknown* unknown) {
    if (!unknown) return Object();
    ComPointer<IDispatch> dispatch;
    if (FAILED(unknown->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(dispatch.put()))))
        raise_runtime_fault(error_number::type_mismatch, "an object without late binding");
    return object_of_dispatch(dispatch.get());
}

/// A number of a kind that automation values do not have.
Value value_of_other(const VARIANT& variant) {
    Variant number;
    if (FAILED(VariantChangeTypeEx(number.get(), const_cast<VARIANT*>(&variant), LOCALE_USER_DEFAULT, 0, VT_R8)))
        refuse_kind(variant.vt);
    return number->dblVal;
}

Value value_of_error(SCODE code) {
    if (code == DISP_E_PARAMNOTFOUND) return Missing{};
    raise_runtime_fault(error_number::type_mismatch, "an error value");
}

SAFEARRAY* array_in(const VARIANT& variant) {
    return variant.vt & VT_BYREF ? *variant.pparray : variant.parray;
}

VARTYPE element_kind(const VARIANT& variant) {
    return static_cast<VARTYPE>(variant.vt & VT_TYPEMASK);
}

void store_array(const Array& array, VARIANT& argument) {
    const VARTYPE kind = element_kind(argument);
    SAFEARRAY*& variable = *argument.pparray;
    ComPointer<IRecordInfo> info;
    if (kind == VT_RECORD && variable)
        require(SafeArrayGetRecordInfo(variable, info.put()), "Asking an array for its records");
    SAFEARRAY* const made = safe_array_of(array, kind, info.get());
    const bool fixed = variable && (variable->fFeatures & (FADF_FIXEDSIZE | FADF_STATIC | FADF_AUTO));
    if (fixed) {
        const HRESULT copied = made ? SafeArrayCopyData(made, variable) : E_INVALIDARG;
        if (made) SafeArrayDestroy(made);
        if (FAILED(copied)) throw Error(array_locked, "Korvane", "This array is fixed or temporarily locked");
        return;
    }
    if (variable) require(SafeArrayDestroy(variable), "Replacing an array");
    variable = made;
}

void store_record(const Value& value, VARIANT& argument) {
    const auto* const record = value.get_if<Record>();
    if (!record || !argument.pvRecord || !argument.pRecInfo) refuse_kind(VT_RECORD);
    const RecordDescription& description = description_of(*argument.pRecInfo);
    if (&description != &description_of(*record)) refuse_kind(VT_RECORD);
    std::memcpy(argument.pvRecord, data_of(*record), description.size);
}

/// A variable that may hold anything.
void store_variant(const Value& value, VARIANT& variable) {
    if (variable.vt & VT_BYREF) return store_into_variable(value, variable);
    const auto* const array = value.get_if<Array>();
    if (array && variable.vt == (VT_ARRAY | VT_VARIANT)) {
        VARIANT reference;
        VariantInit(&reference);
        reference.vt = VT_BYREF | VT_ARRAY | VT_VARIANT;
        reference.pparray = &variable.parray;
        return store_array(*array, reference);
    }
    Variant fresh;
    fill_variant(value, *fresh);
    require(VariantClear(&variable), "Replacing a value");
    variable = fresh.release();
}

/// A variable of a simple type. The old content is released first.
void store_simple(const Value& value, VARIANT& argument, VARTYPE kind) {
    switch (kind) {
        case VT_I2:
            *argument.piVal = value.as_int16();
            return;
        case VT_I4:
        case VT_INT:
            *argument.plVal = value.as_int32();
            return;
        case VT_R4:
            *argument.pfltVal = value.as_single();
            return;
        case VT_R8:
        case VT_DATE:
            *argument.pdblVal = value.as_double();
            return;
        case VT_BOOL:
            *argument.pboolVal = value.as_boolean() ? VARIANT_TRUE : VARIANT_FALSE;
            return;
        case VT_BSTR: {
            BSTR const fresh = new_bstr(value.as_text());
            SysFreeString(std::exchange(*argument.pbstrVal, fresh));
            return;
        }
        case VT_DISPATCH:
        case VT_UNKNOWN: {
            IDispatch* const fresh = dispatch_of_object(value.as_object());
            if (IDispatch* const old = std::exchange(*argument.ppdispVal, fresh)) old->Release();
            return;
        }
        default:
            refuse_kind(kind);
    }
}

struct FillVariant {
    VARIANT& target;

    void operator()(Empty) const {}
    void operator()(Missing) const {
        target.vt = VT_ERROR;
        target.scode = DISP_E_PARAMNOTFOUND;
    }
    void operator()(Null) const { target.vt = VT_NULL; }
    void operator()(bool truth) const {
        target.vt = VT_BOOL;
        target.boolVal = truth ? VARIANT_TRUE : VARIANT_FALSE;
    }
    void operator()(std::int16_t number) const {
        target.vt = VT_I2;
        target.iVal = number;
    }
    void operator()(std::int32_t number) const {
        target.vt = VT_I4;
        target.lVal = number;
    }
    void operator()(float number) const {
        target.vt = VT_R4;
        target.fltVal = number;
    }
    void operator()(double number) const {
        target.vt = VT_R8;
        target.dblVal = number;
    }
    void operator()(Date date) const {
        target.vt = VT_DATE;
        target.date = date.days;
    }
    void operator()(const std::string& text) const {
        target.bstrVal = new_bstr(text);
        target.vt = VT_BSTR;
    }
    void operator()(const Object& object) const {
        target.pdispVal = dispatch_of_object(object);
        target.vt = VT_DISPATCH;
    }
    void operator()(const Record& record) const {
        const RecordDescription& description = description_of(record);
        IRecordInfo* const info = record_info_of(description);
        if (!info) refuse_kind(VT_RECORD);
        void* const memory = info->RecordCreate();
        if (!memory) throw std::bad_alloc();
        std::memcpy(memory, data_of(record), description.size);
        info->AddRef();
        target.pvRecord = memory;
        target.pRecInfo = info;
        target.vt = VT_RECORD;
    }
    void operator()(const Array& array) const {
        VARTYPE kind = VT_VARIANT;
        target.parray = safe_array_of(array, kind);
        target.vt = static_cast<VARTYPE>(VT_ARRAY | kind);
    }
};

}  // namespace

Value value_of_variant(const VARIANT& variant) {
    if (variant.vt & VT_ARRAY) return array_of_safe_array(array_in(variant), element_kind(variant));
    switch (element_kind(variant)) {
        case VT_EMPTY:
            return Empty{};
        case VT_NULL:
            return Null{};
        case VT_I2:
            return content(variant, variant.iVal);
        case VT_I4:
        case VT_INT:
            return static_cast<std::int32_t>(content(variant, variant.lVal));
        case VT_UI1:
            return static_cast<std::int16_t>(content(variant, variant.bVal));
        case VT_R4:
            return content(variant, variant.fltVal);
        case VT_R8:
            return content(variant, variant.dblVal);
        case VT_BOOL:
            return content(variant, variant.boolVal) != VARIANT_FALSE;
        case VT_DATE:
            return Date{content(variant, variant.date)};
        case VT_BSTR:
            return text_of(content(variant, variant.bstrVal));
        case VT_DISPATCH:
            return object_of_dispatch(content(variant, variant.pdispVal));
        case VT_UNKNOWN:
            return value_of_unknown(content(variant, variant.punkVal));
        case VT_ERROR:
            return value_of_error(content(variant, variant.scode));
        case VT_VARIANT:
            return value_of_variant(*variant.pvarVal);
        case VT_RECORD:
            return record_of(variant.pvRecord, variant.pRecInfo);
        default:
            return value_of_other(variant);
    }
}

void fill_variant(const Value& value, VARIANT& empty) {
    std::visit(FillVariant{empty}, value.content());
}

void store_into_variable(const Value& value, VARIANT& argument) {
    const VARTYPE kind = element_kind(argument);
    if (kind == VT_RECORD && !(argument.vt & VT_ARRAY)) return store_record(value, argument);
    if (!(argument.vt & VT_BYREF)) return;
    if (argument.vt & VT_ARRAY) {
        // Empty clears the caller's array.
        if (value.holds<Empty>()) return store_array(Array({}, Array::Elements<Value>()), argument);
        return store_array(value.as_array(), argument);
    }
    if (kind == VT_VARIANT) return store_variant(value, *argument.pvarVal);
    store_simple(value, argument, kind);
}

}  // namespace korvane::automation

#endif
