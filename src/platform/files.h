// Paths of files.
#pragma once

#include <string>
#include <string_view>

#include "korvane/system.h"

namespace korvane {

/// Joins with the platform's separator, unless `folder` already ends in one.
std::string join_path(const std::string& folder, const std::string& name);
/// The platform's path separator.
std::string_view path_separator();

}  // namespace korvane
