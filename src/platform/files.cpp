#include "platform/files.h"

#include <cerrno>
#include <utility>

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

}  // namespace korvane
