// What the system and regsvr32 call.
#ifdef _WIN32

#include <ranges>
#include <string>
#include <vector>

#include "automation/com/com_object.h"
#include "automation/type_library.h"
#include "korvane/automation.h"

namespace korvane::automation {

namespace {

/// A value of the registry below HKEY_CLASSES_ROOT.
struct Entry {
    std::wstring key;
    std::wstring value;
    const wchar_t* name = nullptr;  ///< null: the key's own value
};

auto creatable_classes() {
    return class_descriptions() | std::views::filter(&ClassDescription::create);
}

/// As the registry has identifiers: in capitals.
std::wstring braced(std::string_view guid) {
    wchar_t text[39];
    StringFromGUID2(guid_of(guid), text, std::size(text));
    return text;
}

std::wstring class_key(const ClassDescription& description) {
    return L"CLSID\\" + braced(description.class_id);
}

std::vector<Entry> entries_of(const ClassDescription& description, const std::wstring& module) {
    const std::wstring prog_id = utf16_from_utf8(description.prog_id());
    const std::wstring key = class_key(description);
    const std::wstring version = std::to_wstring(library_major_version) + L"." + std::to_wstring(library_minor_version);
    return {
        {key, prog_id},
        {key + L"\\ProgID", prog_id},
        {key + L"\\InprocServer32", module},
        {key + L"\\InprocServer32", L"Apartment", L"ThreadingModel"},
        {key + L"\\TypeLib", braced(library_id)},
        {key + L"\\Version", version},
        {key + L"\\Programmable", {}},
        {prog_id, prog_id},
        {prog_id + L"\\CLSID", braced(description.class_id)},
    };
}

void write_all() {
    std::wstring module = module_path();
    for (const ClassDescription& description : creatable_classes())
        for (const auto& [key, value, name] : entries_of(description, module)) {
            const auto size = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
            const LSTATUS status = RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, value.c_str(), size);
            require(HRESULT_FROM_WIN32(status), "Registering a class");
        }
    require(RegisterTypeLib(&type_library(), module.data(), nullptr), "Registering the type library");
}

/// Removes all that there is; the first failure.
HRESULT remove_all() {
    HRESULT failure = S_OK;
    const auto note = [&failure](HRESULT code) {
        if (SUCCEEDED(failure) && FAILED(code)) failure = code;
    };
    for (const ClassDescription& description : creatable_classes())
        for (const std::wstring& key : {class_key(description), utf16_from_utf8(description.prog_id())}) {
            const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
            if (status != ERROR_FILE_NOT_FOUND) note(HRESULT_FROM_WIN32(status));
        }
    // The system's answer for a library that is not registered differs from version to version, so it is asked before.
    const GUID id = guid_of(library_id);
    BSTR path = nullptr;
    constexpr SYSKIND system = sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32;
    if (SUCCEEDED(QueryPathOfRegTypeLib(id, library_major_version, library_minor_version, LOCALE_NEUTRAL, &path)))
        note(UnRegisterTypeLib(id, library_major_version, library_minor_version, LOCALE_NEUTRAL, system));
    SysFreeString(path);
    return failure;
}

}  // namespace

}  // namespace korvane::automation

using namespace korvane::automation;

extern "C" {

HRESULT WINAPI DllGetClassObject(REFCLSID class_id, REFIID wanted, void** result) try {
    if (!result) return E_POINTER;
    *result = nullptr;
    for (const ClassDescription& description : creatable_classes())
        if (IsEqualGUID(class_id, guid_of(description.class_id)))
            return make_factory([&] { return dispatch_of_object(create_object(description.prog_id())); },
                                guid_of(description.interface_id), wanted, result);
    return CLASS_E_CLASSNOTAVAILABLE;
} catch (...) {
    return E_OUTOFMEMORY;
}

HRESULT WINAPI DllCanUnloadNow() {
    return module_uses == 0 ? S_OK : S_FALSE;
}

/// What is not there is no error.
HRESULT WINAPI DllUnregisterServer() try { return remove_all(); } catch (...) {
    return E_OUTOFMEMORY;
}

/// Takes back what it wrote when it cannot write all.
HRESULT WINAPI DllRegisterServer() try {
    write_all();
    return S_OK;
} catch (...) {
    const korvane::Error error = error_in_flight();
    DllUnregisterServer();
    return error.number() < 0 ? error.number() : E_FAIL;
}
}

#endif
