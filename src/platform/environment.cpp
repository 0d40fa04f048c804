#include "platform/environment.h"

#include <cstdlib>
#include <string>

#include "platform/windows_text.h"

namespace korvane {

std::string environment_text(const std::string& name) {
#ifdef _WIN32
    // The system's environment: a host may change it behind the back of this module's C library.
    const std::wstring wide = utf16_from_utf8(name);
    std::wstring value(GetEnvironmentVariableW(wide.c_str(), nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(wide.c_str(), value.data(), static_cast<DWORD>(value.size())));
    return utf8_from_utf16(value);
#else
    const char* const value = std::getenv(name.c_str());
    return value ? value : "";
#endif
}

}  // namespace korvane
