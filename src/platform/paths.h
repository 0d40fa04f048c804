// Paths as UTF-8 texts.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace korvane {

inline std::filesystem::path path_from_utf8(std::string_view utf8) {
    return {std::u8string(utf8.begin(), utf8.end())};
}

inline std::string utf8_from_path(const std::filesystem::path& path) {
    const std::u8string utf8 = path.u8string();
    return {utf8.begin(), utf8.end()};
}

}  // namespace korvane
