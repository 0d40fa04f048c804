#ifdef _WIN32

#include "automation/com/server.h"

#include <string>
#include <vector>

#include "automation/class_description.h"
#include "automation/com/com_object.h"
#include "automation/com/record_info.h"
#include "automation/com/variant_conversion.h"
#include "automation/type_library.h"
#include "korvane/automation.h"

namespace korvane::automation {

namespace {

class ClassFactory final : public IClassFactory {
public:
    ClassFactory(std::function<IDispatch*()> make, const GUID& interface_id)
        : make_(std::move(make)), interface_id_(interface_id) {
        ModuleUse::add();
    }
    virtual ~ClassFactory() { ModuleUse::release(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** result) override {
        if (!result) return E_POINTER;
        const bool known = IsEqualGUID(wanted, IID_IUnknown) || IsEqualGUID(wanted, IID_IClassFactory);
        *result = known ? this : nullptr;
        if (!known) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) delete this;
        return left;
    }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID wanted, void** result) override {
        if (!result) return E_POINTER;
        *result = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        try {
            return ComPointer<IDispatch>::owned(make_())->QueryInterface(wanted, result);
        } catch (...) {
            return leave_error_object(error_in_flight(), interface_id_);
        }
    }

    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        lock ? ModuleUse::add() : ModuleUse::release();
        return S_OK;
    }

private:
    const std::function<IDispatch*()> make_;
    const GUID interface_id_;
    std::atomic<ULONG> references_{0};
};

struct Entry {
    std::wstring key;               ///< below HKEY_CLASSES_ROOT
    std::wstring value;             ///< empty: the key alone
    const wchar_t* name = nullptr;  ///< null: the key's own value
};

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

HRESULT write(const Entry& entry) {
    if (entry.value.empty()) {
        HKEY key = nullptr;
        const LSTATUS made = RegCreateKeyW(HKEY_CLASSES_ROOT, entry.key.c_str(), &key);
        RegCloseKey(key);
        return HRESULT_FROM_WIN32(made);
    }
    return HRESULT_FROM_WIN32(RegSetKeyValueW(HKEY_CLASSES_ROOT, entry.key.c_str(), entry.name, REG_SZ,
                                              entry.value.c_str(),
                                              static_cast<DWORD>((entry.value.size() + 1) * sizeof(wchar_t))));
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
        return FAILED(code) ? code : remove_tree(utf16_from_utf8(description.prog_id()));
    });
    const HRESULT library = remove_type_library();
    return FAILED(classes) ? classes : library;
}

}  // namespace

HRESULT make_factory(std::function<IDispatch*()> make, const GUID& interface_id, REFIID wanted, void** result) {
    return ComPointer<ClassFactory>::shared(new ClassFactory(std::move(make), interface_id))
        ->QueryInterface(wanted, result);
}

HRESULT make_class_factory(REFCLSID class_id, REFIID wanted, void** result) noexcept {
    if (!result) return E_POINTER;
    *result = nullptr;
    try {
        for (const ClassDescription& description : class_descriptions()) {
            if (!description.create || !IsEqualGUID(class_id, guid_of(description.class_id))) continue;
            return make_factory([&] { return dispatch_of_object(create_object(description.prog_id())); },
                                guid_of(description.interface_id), wanted, result);
        }
        return CLASS_E_CLASSNOTAVAILABLE;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

bool module_is_idle() noexcept {
    return ModuleUse::count() == 0;
}

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
