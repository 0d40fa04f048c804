#ifdef _WIN32

#include "automation/com/record_info.h"

#include <array>
#include <cstring>
#include <mutex>

namespace korvane::automation {

namespace {

struct KnownRecord {
    const RecordDescription* description;
    GUID guid;
    IRecordInfo* info;
};

IRecordInfo* load_record_info(const GUID& guid) try {
    ComPointer<ITypeInfo> type;
    if (FAILED(type_library().GetTypeInfoOfGuid(guid, type.put()))) return nullptr;
    IRecordInfo* info = nullptr;
    return SUCCEEDED(GetRecordInfoFromTypeInfo(type.get(), &info)) ? info : nullptr;
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

}  // namespace

std::wstring module_path() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&module_path), &module);
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

ITypeLib& type_library() {
    static ITypeLib* const library = [] {
        ITypeLib* loaded = nullptr;
        require(LoadTypeLibEx(module_path().c_str(), REGKIND_NONE, &loaded), "Loading the type library");
        return loaded;
    }();
    return *library;
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
    const RecordDescription& description = description_of(*info);
    Record record = make_record(description);
    std::memcpy(data_of(record), memory, description.size);
    return record;
}

}  // namespace korvane::automation

#endif
