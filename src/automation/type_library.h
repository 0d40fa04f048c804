// Identity of the type library.
#pragma once

#include <string_view>

namespace korvane::automation {

inline constexpr std::string_view library_id = "5aa8e6dd-acb0-496d-ae14-d4459c479825";
inline constexpr int library_major_version = 1;
inline constexpr int library_minor_version = 0;

}  // namespace korvane::automation
