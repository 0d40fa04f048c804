#include <clocale>

#include "platform/automation_arithmetic.h"
#include "platform/windows_text.h"

namespace korvane {

std::string decimal_separator() {
#ifdef _WIN32
    // The user's own setting, which the C library of this module never heard of.
    wchar_t text[8] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SDECIMAL, text, 8);
    return utf8_from_utf16(text);
#else
    return std::localeconv()->decimal_point;
#endif
}

}  // namespace korvane
