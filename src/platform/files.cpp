#include "platform/files.h"

#include <fmt/format.h>

#include <cerrno>
#include <random>
#include <utility>

#include "platform/stopwatch.h"
#include "platform/text.h"
#include "platform/windows_text.h"

namespace korvane {

namespace fs = std::filesystem;

namespace {

using enum FileErrorKind;
using std::errc;

const std::pair<std::error_condition, FileErrorKind> kinds_by_condition[] = {
#ifdef EDQUOT
    {{EDQUOT, std::generic_category()}, no_space},
#endif
    {errc::not_a_directory, folder_not_found},
    {errc::no_such_device, folder_not_found},
    {errc::permission_denied, access_denied},
    {errc::operation_not_permitted, access_denied},
    {errc::read_only_file_system, access_denied},
    {errc::device_or_resource_busy, sharing_violation},
    {errc::text_file_busy, sharing_violation},
    {errc::resource_unavailable_try_again, sharing_violation},
    {errc::no_space_on_device, no_space},
    {errc::file_too_large, no_space},
    {errc::io_error, input_output},
    {errc::no_such_device_or_address, input_output}};

FileErrorKind kind_of(const std::error_code& code, const std::string& path) {
    if (code == errc::no_such_file_or_directory) {
        const fs::path folder = path_from_utf8(path).parent_path();
        std::error_code ignored;
        return folder.empty() || fs::exists(folder, ignored) ? not_found : folder_not_found;
    }
    for (const auto& [condition, kind] : kinds_by_condition)
        if (code == condition) return kind;
    return other;
}

/// In UTF-8, which the category's own is not everywhere.
std::string message_of(const std::error_code& code) {
#ifdef _WIN32
    wchar_t text[512];
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        static_cast<DWORD>(code.value()), 0, text, 512, nullptr);
    if (code.category() == std::system_category() && length > 0)
        return std::string(trimmed(utf8_from_utf16({text, length})));
#endif
    return code.message();
}

constexpr std::string_view temporary_ending = ".tmp";
/// Leaves room, in the 255 bytes that a name may have, for what the names beside a file have besides.
constexpr std::size_t longest_name_part = 200;

constexpr double longest_wait_seconds = 1;
constexpr int pause_milliseconds = 1;

/// Where the last name of a path begins.
std::size_t begin_of_name(const std::string& path) {
#ifdef _WIN32
    return path.find_last_of("/\\") + 1;
#else
    return path.rfind('/') + 1;  // 0 where there is no folder
#endif
}

/// How the names of hidden files beside a file begin.
std::string name_beside(const std::string& path) {
    return std::string(".").append(path, begin_of_name(path), longest_name_part);
}

/// Nothing of a process in it: processes of different machines may have the same number.
std::string temporary_name(const std::string& prefix) {
    std::random_device random;
    return fmt::format("{}{:08x}{:08x}{}", prefix, random(), random(), temporary_ending);
}

void remove_quietly(Files& files, const std::string& path) {
    try {
        files.remove(path);
    } catch (const FileError&) {
        // The fault that led here is the one to report.
    }
}

void remove_leftovers(Files& files, const std::string& folder, const std::string& prefix) {
    try {
        for (const std::string& name : files.list(folder))
            if (name.starts_with(prefix) && name.ends_with(temporary_ending)) files.remove_abandoned(folder + name);
    } catch (const FileError&) {
        // A folder that may be written but not listed: the save itself does not need the listing.
    }
}

}  // namespace

void raise_file_error(const char* operation, const std::string& path, const std::error_code& code,
                      const std::string& advice) {
    throw FileError(kind_of(code, path), code.value(),
                    text_of("Cannot ", operation, " [", path, "]: ", message_of(code), advice));
}

void refuse_file(const char* operation, const std::string& path, const char* reason) {
    throw FileError(other, EINVAL, text_of("Cannot ", operation, " [", path, "]: ", reason));
}

FileStatus SystemFiles::status(const std::string& path) {
    std::error_code code;
    const fs::file_status found = fs::status(path_from_utf8(path), code);
    if (found.type() == fs::file_type::none) raise_file_error("look at", path, code);
    if (!fs::exists(found)) return {};
    // Not whether this user may write it: the superuser may write everything.
    constexpr fs::perms writable = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    return {.exists = true,
            .is_folder = fs::is_directory(found),
            .read_only = (found.permissions() & writable) == fs::perms::none,
            .is_special = fs::is_other(found)};
}

void SystemFiles::clear_read_only(const std::string& path) {
    std::error_code code;
    fs::permissions(path_from_utf8(path), fs::perms::owner_write, fs::perm_options::add, code);
    if (code) raise_file_error("make writable", path, code);
}

std::vector<std::string> SystemFiles::list(const std::string& folder) {
    std::error_code code;
    std::vector<std::string> names;
    for (fs::directory_iterator entry(path_from_utf8(folder.empty() ? "." : folder), code), end; !code && entry != end;
         entry.increment(code))
        names.push_back(utf8_from_path(entry->path().filename()));
    if (code) raise_file_error("list the folder", folder, code);
    return names;
}

void safe_save(Files& files, const std::string& path, std::string_view bytes) {
    safe_save(files, path, [&](OutputFile& file) { file.write(bytes); });
}

void safe_save(Files& files, const std::string& path, const std::function<void(OutputFile&)>& write) {
    const FileStatus status = files.status(path);
    if (status.is_folder || status.is_special) refuse_file("save", path, "it is there, and no regular file");
    const std::string target = files.resolve(path);
    const std::string folder = target.substr(0, begin_of_name(target));
    const std::string prefix = name_beside(target) + ".korvane-";
    remove_leftovers(files, folder, prefix);
    const std::string temporary = folder + temporary_name(prefix);
    bool made = false;
    try {
        // Held until it has its name, or another process would take it for abandoned.
        const std::unique_ptr<OutputFile> file = files.create_new(temporary, target);
        made = true;
        write(*file);
        file->flush_to_disk();
        files.replace(temporary, target);
    } catch (...) {
        if (made) remove_quietly(files, temporary);
        throw;
    }
    try {
        files.flush_folder(folder);
    } catch (const FileError& fault) {
        throw FileError(fault.kind(), fault.system_code(),
                        "[" + path + "] was replaced, but may not outlast a power failure: " + fault.what());
    }
}

std::unique_ptr<FileLock> wait_for_edit_lock(Files& files, Clock& clock, const std::string& path) {
    Stopwatch waited(clock);
    const auto wait_for = [&](const std::string& name) -> std::unique_ptr<FileLock> {
        for (;;) {
            if (auto lock = files.try_lock(name)) return lock;
            if (waited.seconds() >= longest_wait_seconds) return nullptr;
            clock.sleep_milliseconds(pause_milliseconds);
        }
    };
    try {
        const std::string target = files.resolve(path);
        const std::string beside = target.substr(0, begin_of_name(target)) + name_beside(target);
        // Whoever has just let go of the lock queues behind those who wait for it.
        const auto turn = wait_for(beside + ".turn");
        return turn ? wait_for(beside + ".lock") : nullptr;
    } catch (const FileError&) {
        return nullptr;
    }
}

}  // namespace korvane
