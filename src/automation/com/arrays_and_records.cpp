#ifdef _WIN32

#include <cstring>
#include <memory>
#include <vector>

#include "automation/com/com_object.h"

namespace korvane::automation {

namespace {

struct KnownRecord {
    const RecordDescription* description;
    GUID guid;
    IRecordInfo* info;
};

IRecordInfo* load_record_info(const GUID& guid) try {
    ComPointer<ITypeInfo> type;
    if (FAILED(type_library().GetTypeInfoOfGuid(guid, type.GetAddressOf()))) return nullptr;
    IRecordInfo* info = nullptr;
    return SUCCEEDED(GetRecordInfoFromTypeInfo(type.Get(), &info)) ? info : nullptr;
} catch (const Error&) {
    return nullptr;
}

/// Looked up once; a program without the type library inside has no records.
const std::vector<KnownRecord>& known_records() {
    static const std::vector<KnownRecord> records = [] {
        std::vector<KnownRecord> all;
        for (const RecordDescription& description : record_descriptions()) {
            const GUID guid = guid_of(description.guid);
            all.push_back({&description, guid, load_record_info(guid)});
        }
        return all;
    }();
    return records;
}

/// The elements, for as long as it lives.
std::shared_ptr<char> bytes_of(SAFEARRAY* array) {
    void* data = nullptr;
    require(SafeArrayAccessData(array, &data), "Reading an array");
    return {static_cast<char*>(data), [array](char*) { SafeArrayUnaccessData(array); }};
}

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

/// Where the system has our element: its arrays run fastest in the first index, ours in the last.
std::size_t system_place(const std::vector<ArrayBound>& bounds, std::size_t place) {
    std::size_t system = 0;
    for (std::size_t dimension = bounds.size(); dimension-- > 0; place /= bounds[dimension].count)
        system = system * bounds[dimension].count + place % bounds[dimension].count;
    return system;
}

template <class T>
Array::Storage copied(const char* bytes, std::size_t count) {
    const auto* const elements = reinterpret_cast<const T*>(bytes);
    return std::make_shared<const std::vector<T>>(elements, elements + count);
}

struct ArrayDestroyer {
    void operator()(SAFEARRAY* array) const { SafeArrayDestroy(array); }
};

std::unique_ptr<SAFEARRAY, ArrayDestroyer> make_array(const std::vector<ArrayBound>& bounds, VARTYPE kind,
                                                      IRecordInfo* info) {
    std::vector<SAFEARRAYBOUND> system_bounds;
    for (const ArrayBound& bound : bounds)
        system_bounds.push_back({static_cast<ULONG>(bound.count), static_cast<LONG>(bound.lower)});
    SAFEARRAY* const made = SafeArrayCreateEx(kind, static_cast<UINT>(bounds.size()), system_bounds.data(), info);
    if (!made) throw std::bad_alloc();
    return std::unique_ptr<SAFEARRAY, ArrayDestroyer>(made);
}

/// The kinds of elements, by an array's storage. Objects go into VARIANTs.
constexpr VARTYPE element_kinds[]{VT_VARIANT, VT_I2, VT_I4, VT_R4, VT_R8, VT_BSTR, VT_VARIANT, VT_RECORD};
static_assert(std::size(element_kinds) == std::variant_size_v<Array::Storage>);

/// The elements as they lie in memory, where they are numbers.
const void* numbers_of(const Array& array) {
    return std::visit(
        [](const auto& elements) -> const void* {
            using T = typename std::remove_cvref_t<decltype(elements)>::element_type::value_type;
            return std::is_arithmetic_v<T> && elements ? elements->data() : nullptr;
        },
        array.storage());
}

void write_record(const Value& value, std::size_t size, void* memory) {
    const auto* const record = value.get_if<Record>();
    if (!record || description_of(*record).size != size)
        raise_runtime_fault(error_number::type_mismatch, value.kind_name() + " in an array of records");
    std::memcpy(memory, data_of(*record), size);
}

IRecordInfo* record_info_for(const Array& array) {
    const Value first = array.size() > 0 ? array.element(0) : Value();
    const auto* const record = first.get_if<Record>();
    return record ? record_info_of(description_of(*record)) : record_info_of(*find_record("PeakInfo"));
}

}  // namespace

VARTYPE natural_kind(const Array& array) {
    return element_kinds[array.storage().index()];
}

IRecordInfo* record_info_of(const RecordDescription& description) {
    for (const KnownRecord& known : known_records())
        if (known.description == &description) return known.info;
    return nullptr;
}

const RecordDescription& description_of(IRecordInfo& info) {
    GUID guid{};
    ULONG size = 0;
    require(info.GetGuid(&guid), "Asking a record for its kind");
    require(info.GetSize(&size), "Asking a record for its size");
    for (const KnownRecord& known : known_records())
        if (IsEqualGUID(known.guid, guid) && known.description->size == size) return *known.description;
    raise_runtime_fault(error_number::type_mismatch, "a record of another library");
}

Record record_of(const void* memory, IRecordInfo* info) {
    if (!memory || !info) raise_runtime_fault(error_number::type_mismatch, "a record without content");
    return make_record(description_of(*info), memory);
}

Array array_of_safe_array(SAFEARRAY* source, VARTYPE kind) {
    if (!source) return Array({}, Array::Elements<Value>());
    std::vector<ArrayBound> bounds = bounds_of(source);
    std::size_t count = bounds.empty() ? 0 : 1;
    for (const ArrayBound& bound : bounds) count *= bound.count;
    ComPointer<IRecordInfo> info;
    if (kind == VT_RECORD)
        require(SafeArrayGetRecordInfo(source, info.GetAddressOf()), "Asking an array for its records");
    const auto bytes = bytes_of(source);
    // Numbers of one dimension in one copy, others one by one.
    if (bounds.size() == 1) {
        if (kind == VT_R8) return Array(bounds, copied<double>(bytes.get(), count));
        if (kind == VT_R4) return Array(bounds, copied<float>(bytes.get(), count));
        if (kind == VT_I4 || kind == VT_INT) return Array(bounds, copied<std::int32_t>(bytes.get(), count));
        if (kind == VT_I2) return Array(bounds, copied<std::int16_t>(bytes.get(), count));
    }
    std::vector<Value> elements;
    for (std::size_t place = 0; place < count; ++place) {
        char* const memory = bytes.get() + system_place(bounds, place) * SafeArrayGetElemsize(source);
        elements.push_back(info ? Value(record_of(memory, info.Get())) : value_at(kind, memory));
    }
    return Array(std::move(bounds), std::make_shared<const std::vector<Value>>(std::move(elements)));
}

SAFEARRAY* safe_array_of(const Array& array, VARTYPE kind, IRecordInfo* record_info) {
    if (array.rank() == 0) return nullptr;
    if (kind == VT_RECORD && !record_info) record_info = record_info_for(array);
    if (kind == VT_RECORD && !record_info)
        raise_runtime_fault(error_number::type_mismatch, "records without their library");
    auto made = make_array(array.bounds(), kind, record_info);
    if (array.size() > 0) {
        const auto bytes = bytes_of(made.get());
        const std::size_t size = SafeArrayGetElemsize(made.get());
        const void* const numbers = natural_kind(array) == kind ? numbers_of(array) : nullptr;
        if (numbers && array.rank() == 1)
            std::memcpy(bytes.get(), numbers, array.size() * size);
        else
            for (std::size_t place = 0; place < array.size(); ++place) {
                void* const memory = bytes.get() + system_place(array.bounds(), place) * size;
                if (kind == VT_RECORD)
                    write_record(array.element(place), size, memory);
                else
                    construct(kind, array.element(place), memory);
            }
    }
    return made.release();
}

}  // namespace korvane::automation

#endif
