// Paths as UTF-8 texts, the process's environment, where some of them come from, what the files of both systems share,
// saves that survive a crash, and the lock under which a file is loaded, edited and saved.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

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

/// What the system said, as a `FileError`: "Cannot <operation> [<path>]: ...", and the advice.
[[noreturn]] void raise_file_error(const char* operation, const std::string& path, const std::error_code& code,
                                   const std::string& advice = {});
/// What the library says itself.
[[noreturn]] void refuse_file(const char* operation, const std::string& path, const char* reason);

/// What the standard library does alike on all systems.
class SystemFiles : public Files {
public:
    FileStatus status(const std::string& path) override;
    void clear_read_only(const std::string& path) override;
    std::vector<std::string> list(const std::string& folder) override;
};

/// `safe_save` (korvane/system.h) of what `write` writes, part by part; what it raises is raised, and the old file
/// stays.
void safe_save(Files& files, const std::string& path, const std::function<void(OutputFile&)>& write);

/// The lock of a file's editors, to be held from load to save; readers take none. It is a file beside `path` and ends
/// with its process. Null where it is not to be had within a second, or cannot be made: the edit goes on without it.
std::unique_ptr<FileLock> wait_for_edit_lock(Files& files, Clock& clock, const std::string& path);

}  // namespace korvane
