#ifdef _WIN32

#include <algorithm>
#include <system_error>
#include <utility>

#include "platform/files.h"
#include "platform/windows_text.h"

namespace korvane {

namespace {

constexpr std::size_t largest_read = std::size_t{1} << 30;
/// A file that somebody reads cannot be replaced, and a tune that polls the abort flag reads it all the time, a
/// fraction of a millisecond at once. Whoever holds it for longer meets the caller's own attempts.
constexpr int replace_attempts = 20;

bool may_be_held(DWORD code) {
    return code == ERROR_SHARING_VIOLATION || code == ERROR_ACCESS_DENIED;
}

constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

[[noreturn]] void fail(const char* operation, const std::string& path, DWORD code) {
    raise_file_error(operation, path, {static_cast<int>(code), std::system_category()});
}

class Handle {
public:
    explicit Handle(HANDLE handle) : handle_(handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
    }
    HANDLE get() const { return handle_; }
    HANDLE release() { return std::exchange(handle_, INVALID_HANDLE_VALUE); }

private:
    HANDLE handle_;
};

HANDLE opened(const std::string& path, DWORD access, DWORD share, DWORD disposition,
              DWORD flags = FILE_ATTRIBUTE_NORMAL) {
    return CreateFileW(utf16_from_utf8(path).c_str(), access, share, nullptr, disposition, flags, nullptr);
}

/// Refuses devices and pipes, and a link that was not followed.
HANDLE opened_file(const char* operation, const std::string& path, DWORD access, DWORD disposition, DWORD flags) {
    Handle file(opened(path, access, share_all, disposition, flags));
    if (file.get() == INVALID_HANDLE_VALUE) fail(operation, path, GetLastError());
    if (GetFileType(file.get()) != FILE_TYPE_DISK) refuse_file(operation, path, "it is no file");
    FILE_ATTRIBUTE_TAG_INFO found{};
    const bool known = GetFileInformationByHandleEx(file.get(), FileAttributeTagInfo, &found, sizeof found);
    if (known && (found.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
        found.ReparseTag == IO_REPARSE_TAG_SYMLINK)
        refuse_file(operation, path, "it is a link");
    return file.release();
}

class WindowsOutputFile final : public OutputFile {
public:
    WindowsOutputFile(HANDLE handle, std::string path) : handle_(handle), path_(std::move(path)) {}

    void write(std::string_view bytes) override {
        while (!bytes.empty()) {
            const DWORD wanted = static_cast<DWORD>(std::min(bytes.size(), largest_read));
            DWORD written = 0;
            if (!WriteFile(handle_.get(), bytes.data(), wanted, &written, nullptr))
                fail("write to", path_, GetLastError());
            bytes.remove_prefix(written);
        }
    }

    void flush_to_disk() override {
        if (!FlushFileBuffers(handle_.get())) fail("flush", path_, GetLastError());
    }

private:
    Handle handle_;
    std::string path_;
};

/// Attributes and access rights as far as the system lets this user give them; never the read-only attribute, which
/// would stand in the way of writing.
void take_after(const std::wstring& like, DWORD attributes, const std::wstring& made) {
    constexpr DWORD kept =
        FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
    if ((attributes & kept) != 0) SetFileAttributesW(made.c_str(), attributes & kept);
    DWORD size = 0;
    GetFileSecurityW(like.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    std::string rights(size, '\0');
    if (size > 0 && GetFileSecurityW(like.c_str(), DACL_SECURITY_INFORMATION, rights.data(), size, &size))
        SetFileSecurityW(made.c_str(), DACL_SECURITY_INFORMATION, rights.data());
}

std::string without_device_prefix(std::wstring_view path) {
    constexpr std::wstring_view device = L"\\\\?\\";
    constexpr std::wstring_view share = L"\\\\?\\UNC\\";
    if (path.starts_with(share)) return "\\\\" + utf8_from_utf16(path.substr(share.size()));
    if (path.starts_with(device)) path.remove_prefix(device.size());
    return utf8_from_utf16(path);
}

bool is_missing(DWORD code) {
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

/// The file goes with the handle, and the handle with the process.
class WindowsLock final : public FileLock {
public:
    explicit WindowsLock(HANDLE handle) : handle_(handle) {}

private:
    Handle handle_;
};

class WindowsFiles final : public SystemFiles {
public:
    void read(const std::string& path, std::string& bytes) override {
        const Handle file(opened_file("read", path, GENERIC_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));
        LARGE_INTEGER found;
        if (!GetFileSizeEx(file.get(), &found)) fail("read", path, GetLastError());
        std::size_t size = static_cast<std::size_t>(std::min<LONGLONG>(found.QuadPart, largest_read + 1));
        for (std::size_t filled = 0;; size = 2 * filled) {  // it grows
            if (size > largest_read) refuse_file("read", path, "it is larger than 1 GiB");
            bytes.resize(size + 1);
            while (filled < bytes.size()) {
                DWORD count = 0;
                const DWORD wanted = static_cast<DWORD>(bytes.size() - filled);
                if (!ReadFile(file.get(), bytes.data() + filled, wanted, &count, nullptr))
                    fail("read", path, GetLastError());
                if (count == 0) return bytes.resize(filled);
                filled += count;
            }
        }
    }

    std::unique_ptr<OutputFile> open_append(const std::string& path) override {
        const HANDLE handle = opened_file("open", path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES, OPEN_ALWAYS,
                                          FILE_FLAG_OPEN_REPARSE_POINT);
        return std::make_unique<WindowsOutputFile>(handle, path);
    }

    std::unique_ptr<OutputFile> create_new(const std::string& path, const std::string& like) override {
        // Shared so that it can be given its name while it is open; see `remove_abandoned`.
        Handle made(opened(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, CREATE_NEW));
        if (made.get() == INVALID_HANDLE_VALUE) fail("save", like, GetLastError());
        const std::wstring wide_like = utf16_from_utf8(like);
        const DWORD attributes = GetFileAttributesW(wide_like.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES) take_after(wide_like, attributes, utf16_from_utf8(path));
        return std::make_unique<WindowsOutputFile>(made.release(), like);
    }

    void remove_abandoned(const std::string& path) override {
        // Shared with nobody: whoever still writes it keeps it.
        const Handle file(
            opened(path, DELETE, 0, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT));
    }

    std::unique_ptr<FileLock> try_lock(const std::string& path) override {
        const HANDLE handle =
            opened(path, GENERIC_READ | DELETE, 0, OPEN_ALWAYS, FILE_ATTRIBUTE_HIDDEN | FILE_FLAG_DELETE_ON_CLOSE);
        if (handle != INVALID_HANDLE_VALUE) return std::make_unique<WindowsLock>(handle);
        // Somebody has it, or has just let go of it.
        if (may_be_held(GetLastError())) return nullptr;
        fail("lock", path, GetLastError());
    }

    void replace(const std::string& from, const std::string& to) override {
        constexpr DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
        const std::wstring source = utf16_from_utf8(from), target = utf16_from_utf8(to);
        for (int attempt = 1; !MoveFileExW(source.c_str(), target.c_str(), flags); ++attempt) {
            const DWORD code = GetLastError();
            if (attempt == replace_attempts || !may_be_held(code)) fail("replace", to, code);
            Sleep(1);
        }
    }

    /// Nothing to do: a folder cannot be flushed, and the replacement was written through.
    void flush_folder(const std::string&) override {}

    void remove(const std::string& path) override {
        if (!DeleteFileW(utf16_from_utf8(path).c_str())) fail("remove", path, GetLastError());
    }

    std::string resolve(const std::string& path) override {
        // No access is asked for, so that a file that others hold open resolves too.
        const Handle file(CreateFileW(utf16_from_utf8(path).c_str(), 0, share_all, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        if (file.get() == INVALID_HANDLE_VALUE) {
            const DWORD code = GetLastError();
            if (!is_missing(code)) fail("resolve", path, code);
            return path;
        }
        const DWORD length = GetFinalPathNameByHandleW(file.get(), nullptr, 0, FILE_NAME_NORMALIZED);
        std::wstring found(length, L'\0');
        const DWORD written = GetFinalPathNameByHandleW(file.get(), found.data(), length, FILE_NAME_NORMALIZED);
        if (written == 0 || written >= length) return path;  // a file system without such names
        found.resize(written);
        return without_device_prefix(found);
    }
};

}  // namespace

std::shared_ptr<Files> make_system_files() {
    return std::make_shared<WindowsFiles>();
}

}  // namespace korvane

#endif
