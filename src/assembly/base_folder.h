// Where the base folder is, and whether a folder is one.
#pragma once

#include <filesystem>

namespace korvane {

/// The chosen folder, or for an empty path the default one; the per-user folder is made when it does not exist yet.
/// Error -904 naming what is missing when the result is no base folder.
std::filesystem::path usable_base_folder(const std::filesystem::path& chosen);

}  // namespace korvane
