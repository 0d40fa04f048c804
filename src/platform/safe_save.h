// Saves that survive a crash, and the lock under which a file is loaded, edited and saved.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace korvane {

/// Writes a temporary file beside `path` (links followed), flushes it, puts it in the place of the old one, flushes the
/// folder: at any point the file is the complete old or the complete new one. Leftovers of killed processes are removed
/// when `files` first saves the file. Raises `FileError`, also for what is there and no regular file; the old file is
/// then intact and no temporary file stays. One exception: when only the flush of the folder fails, the new content is
/// in place, complete and visible to all, and the error says that a power failure may bring the old one back. A hard
/// link to the old file keeps the old content.
void safe_save(Files& files, const std::string& path, std::string_view bytes);
/// The same of what `write` writes, part by part; what it raises is raised, and the old file stays.
void safe_save(Files& files, const std::string& path, const std::function<void(OutputFile&)>& write);

/// The lock of a file's editors, to be held from load to save; readers take none. It is a file beside `path` and ends
/// with its process. Null where it is not to be had within a second, or cannot be made: the edit goes on without it.
std::unique_ptr<FileLock> wait_for_edit_lock(Files& files, Clock& clock, const std::string& path);

}  // namespace korvane
