// Paths as UTF-8 texts, and the process's environment, where some of them come from.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "korvane/system.h"

namespace korvane {

inline std::filesystem::path path_from_utf8(std::string_view utf8) {
    return {std::u8string(utf8.begin(), utf8.end())};
}

inline std::string utf8_from_path(const std::filesystem::path& path) {
    const std::u8string utf8 = path.u8string();
    return {utf8.begin(), utf8.end()};
}

/// Joins with the platform's separator, unless `folder` already ends in one.
std::string join_path(const std::string& folder, const std::string& name);
/// The platform's path separator.
std::string_view path_separator();

/// The environment variable's value as UTF-8; empty where it is not set.
std::string environment_text(const std::string& name);

}  // namespace korvane
