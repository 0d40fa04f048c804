#ifdef _WIN32

#include "automation/com/com_basics.h"

#include <new>

#include "korvane/error.h"

namespace korvane::automation {

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

}  // namespace korvane::automation

#endif
