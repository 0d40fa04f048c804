#include "platform/safe_save.h"

#include <fmt/format.h>

#include <random>

#include "platform/stopwatch.h"

namespace korvane {

namespace {

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
