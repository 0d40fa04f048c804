#ifdef _WIN32

#include "automation/com/safe_arrays.h"

#include <cstring>
#include <functional>

#include "automation/com/record_info.h"
#include "automation/com/variant_conversion.h"

namespace korvane::automation {

namespace {

/// Access to the elements for as long as it lives.
class ArrayAccess {
public:
    explicit ArrayAccess(SAFEARRAY* array) : array_(array) {
        require(SafeArrayAccessData(array_, &data_), "Reading an array");
    }
    ~ArrayAccess() { SafeArrayUnaccessData(array_); }
    ArrayAccess(const ArrayAccess&) = delete;
    ArrayAccess& operator=(const ArrayAccess&) = delete;
    char* bytes() const { return static_cast<char*>(data_); }

private:
    SAFEARRAY* array_;
    void* data_ = nullptr;
};

std::vector<ArrayBound> bounds_of(SAFEARRAY* array) {
    std::vector<ArrayBound> bounds;
    for (UINT dimension = 1; dimension <= SafeArrayGetDim(array); ++dimension) {
        LONG lower = 0, upper = -1;
        require(SafeArrayGetLBound(array, dimension, &lower), "Asking for an array's bounds");
        require(SafeArrayGetUBound(array, dimension, &upper), "Asking for an array's bounds");
        bounds.push_back({lower, static_cast<std::size_t>(static_cast<std::int64_t>(upper) - lower + 1)});
    }
    return bounds;
}

std::size_t count_of(const std::vector<ArrayBound>& bounds) {
    std::size_t count = bounds.empty() ? 0 : 1;
    for (const ArrayBound& bound : bounds) count *= bound.count;
    return count;
}

/// Calls `visit(place, source place)` for all elements: the system's arrays run fastest in the first index, ours in the
/// last.
void for_each_place(const std::vector<ArrayBound>& bounds, const std::function<void(std::size_t, std::size_t)>& visit) {
    std::vector<std::size_t> index(bounds.size(), 0);
    const std::size_t count = count_of(bounds);
    for (std::size_t place = 0; place < count; ++place) {
        std::size_t source = 0;
        for (std::size_t dimension = bounds.size(); dimension-- > 0;)
            source = source * bounds[dimension].count + index[dimension];
        visit(place, source);
        for (std::size_t dimension = bounds.size(); dimension-- > 0;) {
            if (++index[dimension] < bounds[dimension].count) break;
            index[dimension] = 0;
        }
    }
}

/// Numbers of one dimension in one copy, others by place.
template <class Raw, class T, class Convert>
Array read_array(SAFEARRAY* source, Convert convert) {
    std::vector<ArrayBound> bounds = bounds_of(source);
    auto elements = std::make_shared<std::vector<T>>(count_of(bounds));
    if (!elements->empty()) {
        const ArrayAccess access(source);
        const Raw* const raw = reinterpret_cast<const Raw*>(access.bytes());
        if constexpr (std::is_same_v<Raw, T>) {
            if (bounds.size() == 1) {
                std::memcpy(elements->data(), raw, elements->size() * sizeof(T));
                return Array(std::move(bounds), Array::Elements<T>(std::move(elements)));
            }
        }
        for_each_place(bounds, [&](std::size_t place, std::size_t at) { (*elements)[place] = convert(raw[at]); });
    }
    return Array(std::move(bounds), Array::Elements<T>(std::move(elements)));
}

template <class T>
Array read_numbers(SAFEARRAY* source) {
    return read_array<T, T>(source, [](T number) { return number; });
}

Array read_records(SAFEARRAY* source) {
    ComPointer<IRecordInfo> info;
    require(SafeArrayGetRecordInfo(source, info.put()), "Asking an array for its records");
    std::vector<ArrayBound> bounds = bounds_of(source);
    auto records = std::make_shared<std::vector<Record>>(count_of(bounds));
    const ArrayAccess access(source);
    const std::size_t size = SafeArrayGetElemsize(source);
    for_each_place(bounds, [&](std::size_t place, std::size_t at) {
        (*records)[place] = record_of(access.bytes() + at * size, info.get());
    });
    return Array(std::move(bounds), Array::Elements<Record>(std::move(records)));
}

/// Elements of a kind that has no storage of its own.
Array read_values(SAFEARRAY* source, VARTYPE kind) {
    std::vector<ArrayBound> bounds = bounds_of(source);
    auto values = std::make_shared<std::vector<Value>>(count_of(bounds));
    const ArrayAccess access(source);
    const std::size_t size = SafeArrayGetElemsize(source);
    for_each_place(bounds, [&](std::size_t place, std::size_t at) {
        VARIANT element;
        VariantInit(&element);
        element.vt = static_cast<VARTYPE>(kind | VT_BYREF);
        element.byref = access.bytes() + at * size;
        (*values)[place] = value_of_variant(element);
    });
    return Array(std::move(bounds), Array::Elements<Value>(std::move(values)));
}

/// A new system array, destroyed unless it is handed over.
class NewArray {
public:
    NewArray(const std::vector<ArrayBound>& bounds, VARTYPE kind, IRecordInfo* info) {
        std::vector<SAFEARRAYBOUND> system_bounds;
        for (const ArrayBound& bound : bounds)
            system_bounds.push_back({static_cast<ULONG>(bound.count), static_cast<LONG>(bound.lower)});
        array_ = SafeArrayCreateEx(kind, static_cast<UINT>(bounds.size()), system_bounds.data(), info);
        if (!array_) throw std::bad_alloc();
    }
    ~NewArray() {
        if (array_) SafeArrayDestroy(array_);
    }
    NewArray(const NewArray&) = delete;
    NewArray& operator=(const NewArray&) = delete;
    SAFEARRAY* get() const { return array_; }
    SAFEARRAY* release() { return std::exchange(array_, nullptr); }

private:
    SAFEARRAY* array_;
};

template <class T, class Convert>
void write_elements(SAFEARRAY* target, const Array& array, Convert convert) {
    if (array.size() == 0) return;
    const ArrayAccess access(target);
    T* const raw = reinterpret_cast<T*>(access.bytes());
    if constexpr (std::is_arithmetic_v<T>) {
        const auto* const same = std::get_if<Array::Elements<T>>(&array.storage());
        if (same && array.rank() == 1) {
            std::memcpy(raw, (*same)->data(), array.size() * sizeof(T));
            return;
        }
    }
    for_each_place(array.bounds(), [&](std::size_t place, std::size_t at) { raw[at] = convert(array.element(place)); });
}

void write_records(SAFEARRAY* target, const Array& array) {
    const ArrayAccess access(target);
    const std::size_t size = SafeArrayGetElemsize(target);
    for_each_place(array.bounds(), [&](std::size_t place, std::size_t at) {
        const Value element = array.element(place);
        const auto* const record = element.get_if<Record>();
        if (!record || description_of(*record).size != size)
            raise_runtime_fault(error_number::type_mismatch, element.kind_name() + " in an array of records");
        std::memcpy(access.bytes() + at * size, data_of(*record), size);
    });
}

VARTYPE natural_kind(const Array& array) {
    struct Kinds {
        VARTYPE operator()(const Array::Elements<Value>&) const { return VT_VARIANT; }
        VARTYPE operator()(const Array::Elements<Object>&) const { return VT_VARIANT; }
        VARTYPE operator()(const Array::Elements<std::int16_t>&) const { return VT_I2; }
        VARTYPE operator()(const Array::Elements<std::int32_t>&) const { return VT_I4; }
        VARTYPE operator()(const Array::Elements<float>&) const { return VT_R4; }
        VARTYPE operator()(const Array::Elements<double>&) const { return VT_R8; }
        VARTYPE operator()(const Array::Elements<std::string>&) const { return VT_BSTR; }
        VARTYPE operator()(const Array::Elements<Record>&) const { return VT_RECORD; }
    };
    return std::visit(Kinds{}, array.storage());
}

IRecordInfo* record_info_for(const Array& array) {
    const Value first = array.size() > 0 ? array.element(0) : Value();
    const auto* const record = first.get_if<Record>();
    return record ? record_info_of(description_of(*record)) : record_info_of(*find_record("PeakInfo"));
}

}  // namespace

Array array_of_safe_array(SAFEARRAY* source, VARTYPE kind) {
    if (!source) return Array({}, Array::Elements<Value>());
    switch (kind) {
        case VT_R8:
            return read_numbers<double>(source);
        case VT_R4:
            return read_numbers<float>(source);
        case VT_I4:
        case VT_INT:
            return read_numbers<std::int32_t>(source);
        case VT_I2:
            return read_numbers<std::int16_t>(source);
        case VT_BSTR:
            return read_array<BSTR, std::string>(source, [](BSTR text) { return text_of(text); });
        case VT_DISPATCH:
            return read_array<IDispatch*, Object>(source, &object_of_dispatch);
        case VT_RECORD:
            return read_records(source);
        case VT_VARIANT:
            return read_array<VARIANT, Value>(source, [](const VARIANT& element) { return value_of_variant(element); });
        default:
            return read_values(source, kind);
    }
}

SAFEARRAY* safe_array_of(const Array& array, VARTYPE& kind) {
    kind = natural_kind(array);
    return safe_array_of(array, kind, kind == VT_RECORD ? record_info_for(array) : nullptr);
}

SAFEARRAY* safe_array_of(const Array& array, const VARTYPE kind, IRecordInfo* record_info) {
    if (array.rank() == 0) return nullptr;
    if (kind == VT_RECORD && !record_info)
        raise_runtime_fault(error_number::type_mismatch, "records without their library");
    NewArray made(array.bounds(), kind, record_info);
    switch (kind) {
        case VT_R8:
            write_elements<double>(made.get(), array, [](const Value& value) { return value.as_double(); });
            break;
        case VT_R4:
            write_elements<float>(made.get(), array, [](const Value& value) { return value.as_single(); });
            break;
        case VT_I4:
        case VT_INT:
            write_elements<std::int32_t>(made.get(), array, [](const Value& value) { return value.as_int32(); });
            break;
        case VT_I2:
            write_elements<std::int16_t>(made.get(), array, [](const Value& value) { return value.as_int16(); });
            break;
        case VT_BOOL:
            write_elements<VARIANT_BOOL>(made.get(), array, [](const Value& value) {
                return value.as_boolean() ? VARIANT_TRUE : VARIANT_FALSE;
            });
            break;
        case VT_BSTR:
            write_elements<BSTR>(made.get(), array, [](const Value& value) { return new_bstr(value.as_text()); });
            break;
        case VT_DISPATCH:
            write_elements<IDispatch*>(made.get(), array,
                                       [](const Value& value) { return dispatch_of_object(value.as_object()); });
            break;
        case VT_RECORD:
            write_records(made.get(), array);
            break;
        case VT_VARIANT:
            write_elements<VARIANT>(made.get(), array, [](const Value& value) {
                VARIANT element;
                VariantInit(&element);
                fill_variant(value, element);
                return element;
            });
            break;
        default:
            raise_runtime_fault(error_number::type_mismatch, "an array of elements of kind " + std::to_string(kind));
    }
    return made.release();
}

}  // namespace korvane::automation

#endif
