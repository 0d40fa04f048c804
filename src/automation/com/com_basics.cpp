#ifdef _WIN32

#include "automation/com/com_basics.h"

#include <charconv>
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
    const auto number = [text](std::size_t place, std::size_t digits) {
        unsigned value = 0;
        std::from_chars(text.data() + place, text.data() + place + digits, value, 16);
        return value;
    };
    guid.Data1 = number(0, 8);
    guid.Data2 = static_cast<unsigned short>(number(9, 4));
    guid.Data3 = static_cast<unsigned short>(number(14, 4));
    static constexpr std::size_t places[8] = {19, 21, 24, 26, 28, 30, 32, 34};
    for (std::size_t byte = 0; byte < 8; ++byte) guid.Data4[byte] = static_cast<unsigned char>(number(places[byte], 2));
    return guid;
}

void require(HRESULT code, const char* operation) {
    if (SUCCEEDED(code)) return;
    if (code == E_OUTOFMEMORY) throw std::bad_alloc();
    throw Error(code, "Korvane", std::string(operation) + " failed");
}

}  // namespace korvane::automation

#endif
