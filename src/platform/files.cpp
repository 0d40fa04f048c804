#include "platform/files.h"

#include <cstdlib>

#include "platform/windows_text.h"

namespace korvane {

std::string_view path_separator() {
#ifdef _WIN32
    return "\\";
#else
    return "/";
#endif
}

std::string join_path(const std::string& folder, const std::string& name) {
    const bool ends_in_separator = folder.ends_with('/') || folder.ends_with(path_separator());
    return folder.empty() || ends_in_separator ? folder + name : folder + std::string(path_separator()) + name;
}

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
