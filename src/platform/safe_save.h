// A save that survives a crash: after it, at any point, the file is the complete old or the complete new one.
#pragma once

#include <string>
#include <string_view>

#include "platform/files.h"

namespace korvane {

/// Writes a temporary file beside `path` (links followed), flushes it, puts it in the place of the old one, flushes the
/// folder. Leftovers of killed processes are removed when `files` first saves the file. Raises `FileError`; the
/// old file is then intact and no temporary file stays. One exception: when only the flush of the folder fails, the new
/// content is in place, complete and visible to all, and the error says that a power failure may bring the old one
/// back. A hard link to the old file keeps the old content.
void safe_save(Files& files, const std::string& path, std::string_view bytes);

}  // namespace korvane
