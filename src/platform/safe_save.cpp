#include "platform/safe_save.h"

#include <atomic>
#include <charconv>
#include <cstdint>
#include <random>

#ifdef _WIN32
#include "platform/windows_text.h"
#else
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace korvane {

namespace {

#ifdef _WIN32
using ProcessId = unsigned long;

ProcessId own_process() {
    return GetCurrentProcessId();
}

bool is_alive(ProcessId process) {
    const HANDLE handle = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process);
    if (handle == nullptr) return GetLastError() == ERROR_ACCESS_DENIED;
    DWORD exit_code = 0;
    const bool alive = GetExitCodeProcess(handle, &exit_code) && exit_code == STILL_ACTIVE;
    CloseHandle(handle);
    return alive;
}
#else
using ProcessId = pid_t;

ProcessId own_process() {
    return getpid();
}

bool is_alive(ProcessId process) {
    return kill(process, 0) == 0 || errno == EPERM;
}
#endif

constexpr std::string_view temporary_ending = ".tmp";
/// Leaves room, in the 255 bytes that a name may have, for what a temporary file's name has besides.
constexpr std::size_t longest_name_part = 200;

struct SplitPath {
    std::string folder;  // with the separator
    std::string name;
};

SplitPath split(const std::string& path) {
#ifdef _WIN32
    const std::size_t separator = path.find_last_of("/\\");
#else
    const std::size_t separator = path.rfind('/');
#endif
    if (separator == std::string::npos) return {"", path};
    return {path.substr(0, separator + 1), path.substr(separator + 1)};
}

std::string temporary_prefix(const std::string& name) {
    return std::string(".").append(name, 0, longest_name_part).append(".korvane-");
}

/// Tells the temporary files of this process from those of an earlier one that had the same number.
std::uint32_t own_tag() {
    static const std::uint32_t tag = std::random_device{}();
    return tag;
}

std::string temporary_name(const std::string& name) {
    static std::atomic<std::uint32_t> count = 0;
    const std::uint64_t number = static_cast<std::uint64_t>(own_tag()) << 32 | count++;
    return temporary_prefix(name) + std::to_string(own_process()) + "-" + std::to_string(number) +
           std::string(temporary_ending);
}

/// Whether `candidate` is a temporary file of a save of `name` by a process that is no more.
bool is_leftover(std::string_view candidate, const std::string& name) {
    const std::string prefix = temporary_prefix(name);
    if (!candidate.starts_with(prefix) || !candidate.ends_with(temporary_ending)) return false;
    ProcessId process = 0;
    std::uint64_t number = 0;
    const char* const end = candidate.data() + candidate.size() - temporary_ending.size();
    const auto first = std::from_chars(candidate.data() + prefix.size(), end, process);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != '-' || process <= 0) return false;
    const auto second = std::from_chars(first.ptr + 1, end, number);
    if (second.ec != std::errc() || second.ptr != end) return false;
    return process == own_process() ? number >> 32 != own_tag() : !is_alive(process);
}

void remove_quietly(Files& files, const std::string& path) {
    try {
        files.remove(path);
    } catch (const FileError&) {
        // The fault that led here is the one to report.
    }
}

void remove_leftovers(Files& files, const SplitPath& parts) {
    try {
        for (const std::string& name : files.list(parts.folder))
            if (is_leftover(name, parts.name)) remove_quietly(files, parts.folder + name);
    } catch (const FileError&) {
        // A folder that may be written but not listed: the save itself does not need the listing.
    }
}

}  // namespace

void safe_save(Files& files, const std::string& path, std::string_view bytes) {
    const std::string target = files.resolve(path);
    const SplitPath parts = split(target);
    if (files.is_first_save(target)) remove_leftovers(files, parts);
    const std::string temporary = parts.folder + temporary_name(parts.name);
    bool made = false;
    try {
        {
            const std::unique_ptr<OutputFile> file = files.create_new(temporary, target);
            made = true;
            file->write(bytes);
            file->flush_to_disk();
            file->close();
        }
        files.replace(temporary, target);
    } catch (...) {
        if (made) remove_quietly(files, temporary);
        throw;
    }
    try {
        files.flush_folder(parts.folder);
    } catch (const FileError& fault) {
        throw FileError(fault.kind(), fault.system_code(),
                        "[" + path + "] was replaced, but may not outlast a power failure: " + fault.what());
    }
}

}  // namespace korvane
