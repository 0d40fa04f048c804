#ifdef _WIN32

#include <algorithm>
#include <cstring>

#include "automation/com/com_object.h"

namespace korvane::automation {

namespace {

[[noreturn]] void refuse_kind(VARTYPE kind) {
    raise_runtime_fault(error_number::type_mismatch, "a value of kind " + std::to_string(kind));
}

template <class T>
T& at(void* memory) {
    return *static_cast<T*>(memory);
}

Value value_of_unknown(IUnknown* unknown) {
    if (!unknown) return Object();
    ComPointer<IDispatch> dispatch;
    if (FAILED(unknown->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(dispatch.GetAddressOf()))))
        raise_runtime_fault(error_number::type_mismatch, "an object without late binding");
    return object_of_dispatch(dispatch.Get());
}

void construct_object(const Value& value, void* memory) {
    at<IDispatch*>(memory) = dispatch_of_object(value.as_object());
}

/// A number of a kind that automation values do not have.
Value value_of_other(VARTYPE kind, void* memory) {
    VARIANT reference = reference_to(kind, memory);
    Variant number;
    if (FAILED(VariantChangeTypeEx(number.get(), &reference, LOCALE_USER_DEFAULT, 0, VT_R8))) refuse_kind(kind);
    return number->dblVal;
}

Value value_of_error(SCODE code) {
    if (code == DISP_E_PARAMNOTFOUND) return Missing{};
    raise_runtime_fault(error_number::type_mismatch, "an error value");
}

/// How a simple kind is read from memory, and put into memory that holds nothing.
struct SimpleKind {
    VARTYPE kind;
    Value (*load)(void* memory);
    void (*construct)(const Value& value, void* memory);
};

/// A number that lies in memory as a T, and in a value as what `convert` gives.
template <class T, auto convert>
constexpr SimpleKind number(VARTYPE kind) {
    return {
        kind,
        [](void* memory) -> Value { return static_cast<decltype((std::declval<Value>().*convert)())>(at<T>(memory)); },
        [](const Value& value, void* memory) { at<T>(memory) = (value.*convert)(); }};
}

constexpr SimpleKind simple_kinds[]{
    number<SHORT, &Value::as_int16>(VT_I2),
    number<LONG, &Value::as_int32>(VT_I4),
    number<LONG, &Value::as_int32>(VT_INT),
    number<float, &Value::as_single>(VT_R4),
    number<double, &Value::as_double>(VT_R8),
    {VT_UI1, [](void* memory) -> Value { return std::int16_t{at<BYTE>(memory)}; }, nullptr},
    {VT_BOOL, [](void* memory) -> Value { return at<VARIANT_BOOL>(memory) != VARIANT_FALSE; },
     [](const Value& value, void* memory) {
         at<VARIANT_BOOL>(memory) = value.as_boolean() ? VARIANT_TRUE : VARIANT_FALSE;
     }},
    {VT_DATE, [](void* memory) -> Value { return Date{at<DATE>(memory)}; },
     [](const Value& value, void* memory) { at<DATE>(memory) = value.as_double(); }},
    {VT_BSTR, [](void* memory) -> Value { return text_of(at<BSTR>(memory)); },
     [](const Value& value, void* memory) { at<BSTR>(memory) = new_bstr(value.as_text()); }},
    {VT_DISPATCH, [](void* memory) -> Value { return object_of_dispatch(at<IDispatch*>(memory)); }, &construct_object},
    {VT_UNKNOWN, [](void* memory) -> Value { return value_of_unknown(at<IUnknown*>(memory)); }, &construct_object},
    {VT_ERROR, [](void* memory) -> Value { return value_of_error(at<SCODE>(memory)); }, nullptr},
    {VT_VARIANT, [](void* memory) -> Value { return value_of_variant(at<VARIANT>(memory)); },
     [](const Value& value, void* memory) {
         VariantInit(&at<VARIANT>(memory));
         fill_variant(value, at<VARIANT>(memory));
     }},
};

VARTYPE element_kind(const VARIANT& variant) {
    return static_cast<VARTYPE>(variant.vt & VT_TYPEMASK);
}

/// Where a VARIANT's content lies: behind its reference, or in itself.
void* content_of(const VARIANT& variant) {
    if (variant.vt & VT_BYREF) return variant.byref;
    const void* const inside =
        element_kind(variant) == VT_DECIMAL ? static_cast<const void*>(&variant) : &variant.llVal;
    return const_cast<void*>(inside);
}

void store_array(const Array& array, VARIANT& argument) {
    const VARTYPE kind = element_kind(argument);
    SAFEARRAY*& variable = *argument.pparray;
    ComPointer<IRecordInfo> info;
    if (kind == VT_RECORD && variable)
        require(SafeArrayGetRecordInfo(variable, info.GetAddressOf()), "Asking an array for its records");
    SAFEARRAY* const made = safe_array_of(array, kind, info.Get());
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
        VARIANT reference = reference_to(VT_ARRAY | VT_VARIANT, &variable.parray);
        return store_array(*array, reference);
    }
    Variant fresh;
    fill_variant(value, *fresh);
    require(VariantClear(&variable), "Replacing a value");
    variable = fresh.release();
}

/// A variable of a simple type. What it held is released.
void store_simple(const Value& value, VARTYPE kind, void* variable) {
    if (kind != VT_BSTR && kind != VT_DISPATCH && kind != VT_UNKNOWN) return construct(kind, value, variable);
    void* fresh = nullptr;
    construct(kind, value, &fresh);
    Variant old;
    old->byref = std::exchange(at<void*>(variable), fresh);
    old->vt = kind;
}

/// The kinds of VARIANTs, by what a value holds.
constexpr VARTYPE natural_kinds[]{VT_EMPTY, VT_ERROR, VT_NULL, VT_BOOL,     VT_I2,     VT_I4,   VT_R4,
                                  VT_R8,    VT_DATE,  VT_BSTR, VT_DISPATCH, VT_RECORD, VT_ARRAY};
static_assert(std::size(natural_kinds) == std::variant_size_v<Value::Content>);

void fill_with_record(const Record& record, VARIANT& target) {
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

}  // namespace

Value value_at(VARTYPE kind, void* memory) {
    const auto* const known = std::ranges::find(simple_kinds, kind, &SimpleKind::kind);
    return known == std::end(simple_kinds) ? value_of_other(kind, memory) : known->load(memory);
}

void construct(VARTYPE kind, const Value& value, void* memory) {
    const auto* const known = std::ranges::find(simple_kinds, kind, &SimpleKind::kind);
    if (known == std::end(simple_kinds) || !known->construct) refuse_kind(kind);
    known->construct(value, memory);
}

Value value_of_variant(const VARIANT& variant) {
    void* const content = content_of(variant);
    const VARTYPE kind = element_kind(variant);
    if (variant.vt & VT_ARRAY) return array_of_safe_array(at<SAFEARRAY*>(content), kind);
    if (kind == VT_EMPTY) return Empty{};
    if (kind == VT_NULL) return Null{};
    if (kind == VT_RECORD) return record_of(variant.pvRecord, variant.pRecInfo);
    return value_at(kind, content);
}

void fill_variant(const Value& value, VARIANT& empty) {
    VARTYPE kind = natural_kinds[value.content().index()];
    if (const auto* record = value.get_if<Record>()) return fill_with_record(*record, empty);
    if (const auto* array = value.get_if<Array>()) {
        empty.parray = safe_array_of(*array, natural_kind(*array));
        kind = natural_kind(*array) | VT_ARRAY;
    } else if (kind == VT_ERROR) {
        empty.scode = DISP_E_PARAMNOTFOUND;
    } else if (kind != VT_EMPTY && kind != VT_NULL) {
        construct(kind, value, &empty.llVal);
    }
    empty.vt = kind;
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
    store_simple(value, kind, argument.byref);
}

}  // namespace korvane::automation

#endif
