#include "platform/files.h"

namespace korvane {

std::int32_t FileError::runtime_error_number() const noexcept {
    switch (kind_) {
        case FileErrorKind::not_found:
            return 53;
        case FileErrorKind::access_denied:
        case FileErrorKind::sharing_violation:
            return 70;
        case FileErrorKind::no_space:
            return 61;
        case FileErrorKind::input_output:
            return 57;
        case FileErrorKind::other:
            break;
    }
    return 75;
}

bool Files::is_first_save(const std::string& path) {
    const std::lock_guard lock(mutex_);
    return saved_paths_.insert(path).second;
}

std::string join_path(const std::string& folder, const std::string& name) {
    const std::string_view separator = path_separator();
    const bool ends_in_separator = !folder.empty() && (folder.back() == '/' || folder.back() == separator.front());
    if (folder.empty() || ends_in_separator) return folder + name;
    return folder + std::string(separator) + name;
}

std::string_view path_separator() {
#ifdef _WIN32
    return "\\";
#else
    return "/";
#endif
}

}  // namespace korvane
