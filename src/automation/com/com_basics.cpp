#ifdef _WIN32

#include "automation/com/com_basics.h"

#include <new>

#include "frame/routine.h"

namespace korvane::automation {

namespace {

constexpr std::int32_t control_facility = static_cast<std::int32_t>(0x800A0000);
constexpr std::int32_t control_mask = static_cast<std::int32_t>(0xFFFF0000);
constexpr std::int32_t largest_small_number = 65535;
constexpr std::int32_t out_of_memory = 7;

// The codes of late binding itself and the numbers under which scripts know them.
constexpr std::pair<HRESULT, std::int32_t> known_codes[]{
    {DISP_E_TYPEMISMATCH, 13},      {DISP_E_OVERFLOW, 6},         {DISP_E_BADINDEX, 9},
    {DISP_E_DIVBYZERO, 11},         {DISP_E_MEMBERNOTFOUND, 438}, {DISP_E_UNKNOWNNAME, 438},
    {DISP_E_PARAMNOTOPTIONAL, 449}, {DISP_E_BADPARAMCOUNT, 450},  {E_OUTOFMEMORY, 7},
    {REGDB_E_CLASSNOTREG, 429},     {CO_E_CLASSSTRING, 429}};

}  // namespace

BSTR new_bstr(std::string_view utf8) {
    const std::wstring wide = utf16_from_utf8(utf8);
    BSTR const text = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    if (!text) throw std::bad_alloc();
    return text;
}

std::string text_of(BSTR text) {
    return text ? utf8_from_utf16({text, SysStringLen(text)}) : std::string();
}

GUID guid_of(std::string_view text) {
    GUID guid{};
    CLSIDFromString((L"{" + utf16_from_utf8(text) + L"}").c_str(), &guid);
    return guid;
}

void require(HRESULT code, const char* operation) {
    if (SUCCEEDED(code)) return;
    if (code == E_OUTOFMEMORY) throw std::bad_alloc();
    throw Error(code, "Korvane", std::string(operation) + " failed");
}

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

HRESULT code_of_number(std::int32_t number) {
    if (number < 0) return number;
    if (number == 0 || number > largest_small_number) return control_facility | error_number::invalid_call;
    return control_facility | number;
}

std::int32_t number_of_code(HRESULT code) {
    if ((code & control_mask) == control_facility) return code & largest_small_number;
    for (const auto& [known, number] : known_codes)
        if (known == code) return number;
    return code;
}

Error error_in_flight() noexcept {
    try {
        return current_error();
    } catch (...) {
        return Error(out_of_memory, {}, {});
    }
}

HRESULT report_exception(const Error& error, EXCEPINFO* details) {
    const HRESULT code = code_of_number(error.number());
    if (!details) return code;
    *details = {};
    details->scode = code;
    try {
        details->bstrSource = new_bstr(error.source());
        details->bstrDescription = new_bstr(error.description());
        details->dwHelpContext = static_cast<DWORD>(error.help().context);
        if (!error.help().file.empty()) details->bstrHelpFile = new_bstr(error.help().file);
    } catch (...) {
        // The number is what counts; there is no memory for the texts.
    }
    return DISP_E_EXCEPTION;
}

HRESULT leave_error_object(const Error& error, const GUID& interface_id) {
    ComPointer<ICreateErrorInfo> made;
    if (SUCCEEDED(CreateErrorInfo(made.GetAddressOf()))) {
        made->SetGUID(interface_id);
        made->SetSource(utf16_from_utf8(error.source()).data());
        made->SetDescription(utf16_from_utf8(error.description()).data());
        made->SetHelpFile(utf16_from_utf8(error.help().file).data());
        made->SetHelpContext(static_cast<DWORD>(error.help().context));
        ComPointer<IErrorInfo> info;
        if (SUCCEEDED(made->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(info.GetAddressOf()))))
            SetErrorInfo(0, info.Get());
    }
    return code_of_number(error.number());
}

Error error_of_call(HRESULT code, EXCEPINFO& details, const std::string& what) {
    if (code != DISP_E_EXCEPTION) return Error(number_of_code(code), "Korvane", what + " failed");
    if (details.pfnDeferredFillIn) details.pfnDeferredFillIn(&details);
    const std::int32_t number = details.wCode != 0 ? details.wCode : number_of_code(details.scode);
    Error error(number, text_of(details.bstrSource), text_of(details.bstrDescription), usual_error_kind(number),
                {text_of(details.bstrHelpFile), static_cast<std::int32_t>(details.dwHelpContext)});
    SysFreeString(details.bstrSource);
    SysFreeString(details.bstrDescription);
    SysFreeString(details.bstrHelpFile);
    details = {};
    return error;
}

}  // namespace korvane::automation

#endif
