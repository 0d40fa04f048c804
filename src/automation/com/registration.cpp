#ifdef _WIN32

#include "automation/com/registration.h"

#include <string>
#include <vector>

#include "automation/class_description.h"
#include "automation/com/record_info.h"
#include "automation/type_library.h"

namespace korvane::automation {

namespace {

struct Entry {
    std::wstring key;    ///< below HKEY_CLASSES_ROOT
    std::wstring name;   ///< empty: the key's own value
    std::wstring value;  ///< empty: the key alone
};

std::wstring wide(std::string_view text) {
    return utf16_from_utf8(text);
}

std::wstring braced(std::string_view guid) {
    std::wstring text = L"{" + wide(guid) + L"}";
    for (wchar_t& letter : text)
        if (letter >= L'a' && letter <= L'z') letter = static_cast<wchar_t>(letter - L'a' + L'A');
    return text;
}

std::wstring class_key(const ClassDescription& description) {
    return L"CLSID\\" + braced(description.class_id);
}

std::vector<Entry> entries_of(const ClassDescription& description, const std::wstring& module) {
    const std::wstring prog_id = wide(description.prog_id());
    const std::wstring key = class_key(description);
    const std::wstring version = std::to_wstring(library_major_version) + L"." + std::to_wstring(library_minor_version);
    return {
        {key, {}, prog_id},
        {key + L"\\ProgID", {}, prog_id},
        {key + L"\\InprocServer32", {}, module},
        {key + L"\\InprocServer32", L"ThreadingModel", L"Apartment"},
        {key + L"\\TypeLib", {}, braced(library_id)},
        {key + L"\\Version", {}, version},
        {key + L"\\Programmable", {}, {}},
        {prog_id, {}, prog_id},
        {prog_id + L"\\CLSID", {}, braced(description.class_id)},
    };
}

HRESULT write(const Entry& entry) {
    if (entry.value.empty()) {
        HKEY key = nullptr;
        const LSTATUS made = RegCreateKeyW(HKEY_CLASSES_ROOT, entry.key.c_str(), &key);
        RegCloseKey(key);
        return HRESULT_FROM_WIN32(made);
    }
    return HRESULT_FROM_WIN32(
        RegSetKeyValueW(HKEY_CLASSES_ROOT, entry.key.c_str(), entry.name.empty() ? nullptr : entry.name.c_str(), REG_SZ,
                        entry.value.c_str(), static_cast<DWORD>((entry.value.size() + 1) * sizeof(wchar_t))));
}

HRESULT remove_tree(const std::wstring& key) {
    const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
    return status == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(status);
}

template <class Act>
HRESULT for_each_class(Act act) {
    for (const ClassDescription& description : class_descriptions())
        if (description.create)
            if (const HRESULT code = act(description); FAILED(code)) return code;
    return S_OK;
}

HRESULT write_all() {
    std::wstring module = module_path();
    const HRESULT written = for_each_class([&](const ClassDescription& description) {
        for (const Entry& entry : entries_of(description, module))
            if (const HRESULT code = write(entry); FAILED(code)) return code;
        return S_OK;
    });
    if (FAILED(written)) return written;
    return RegisterTypeLib(&type_library(), module.data(), nullptr);
}

/// The system's answer for a library that is not registered differs from version to version, so it is asked before.
HRESULT remove_type_library() {
    const GUID id = guid_of(library_id);
    BSTR path = nullptr;
    const HRESULT known =
        QueryPathOfRegTypeLib(id, library_major_version, library_minor_version, LOCALE_NEUTRAL, &path);
    SysFreeString(path);
    if (FAILED(known)) return S_OK;
    const SYSKIND system = sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32;
    return UnRegisterTypeLib(id, library_major_version, library_minor_version, LOCALE_NEUTRAL, system);
}

HRESULT remove_all() {
    const HRESULT classes = for_each_class([](const ClassDescription& description) {
        const HRESULT code = remove_tree(class_key(description));
        return FAILED(code) ? code : remove_tree(wide(description.prog_id()));
    });
    const HRESULT library = remove_type_library();
    return FAILED(classes) ? classes : library;
}

}  // namespace

HRESULT register_server() noexcept {
    try {
        const HRESULT code = write_all();
        if (FAILED(code)) remove_all();
        return code;
    } catch (const Error& error) {
        return error.number() < 0 ? error.number() : E_FAIL;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT unregister_server() noexcept {
    try {
        return remove_all();
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace korvane::automation

#endif
