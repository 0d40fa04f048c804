// Saves that survive a crash, and the lock under which a file is loaded, edited and saved.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/files.h"

namespace korvane {

/// `safe_save` (korvane/system.h) of what `write` writes, part by part; what it raises is raised, and the old file
/// stays.
void safe_save(Files& files, const std::string& path, const std::function<void(OutputFile&)>& write);

/// The lock of a file's editors, to be held from load to save; readers take none. It is a file beside `path` and ends
/// with its process. Null where it is not to be had within a second, or cannot be made: the edit goes on without it.
std::unique_ptr<FileLock> wait_for_edit_lock(Files& files, Clock& clock, const std::string& path);

}  // namespace korvane
