// Where the base folder is.
#pragma once

#include <filesystem>

namespace korvane {

/// The chosen folder, or for an empty path the default one; the per-user folder is made when it does not exist yet.
/// Error -904 naming the result when it does not exist or is no folder; what it holds is told by who needs it.
std::filesystem::path usable_base_folder(const std::filesystem::path& chosen);

}  // namespace korvane
