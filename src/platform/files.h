// Seam: the file system. One interface of small operations, so that a test can record them or fail the n-th.
// Paths and texts are UTF-8. Every operation raises `FileError`.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

enum class FileErrorKind { not_found, access_denied, sharing_violation, no_space, input_output, other };

/// What the system said. Turned into an automation error (number by `runtime_error_number`) where it leaves the room.
class FileError : public std::runtime_error {
public:
    FileError(FileErrorKind kind, int system_code, const std::string& text)
        : std::runtime_error(text), kind_(kind), system_code_(system_code) {}
    FileErrorKind kind() const noexcept { return kind_; }
    int system_code() const noexcept { return system_code_; }
    /// 53 file not found, 70 permission denied, 61 disk full, 57 device input/output error.
    std::int32_t runtime_error_number() const noexcept;

private:
    FileErrorKind kind_;
    int system_code_;
};

struct FileStatus {
    bool exists = false;
    bool is_folder = false;
    bool read_only = false;  ///< nobody may write it (Windows: the read-only attribute)
};

/// A file open for writing. Destruction closes without reporting.
class OutputFile {
public:
    virtual ~OutputFile() = default;
    /// Hands all bytes to the operating system.
    virtual void write(std::string_view bytes) = 0;
    /// Returns when the bytes are on the disk.
    virtual void flush_to_disk() = 0;
    virtual void close() = 0;
};

class Files {
public:
    virtual ~Files() = default;

    /// Replaces `bytes` with the file's content, keeping its capacity.
    virtual void read(const std::string& path, std::string& bytes) = 0;
    virtual FileStatus status(const std::string& path) = 0;
    /// Clears the read-only attribute alone (POSIX: gives the owner back the right to write).
    virtual void clear_read_only(const std::string& path) = 0;
    virtual std::unique_ptr<OutputFile> open_append(const std::string& path) = 0;
    /// A file that must not exist yet, for a save; made with the owner, mode and attributes of `like` where it exists.
    virtual std::unique_ptr<OutputFile> create_new(const std::string& path, const std::string& like) = 0;
    /// Puts `from` in the place of `to` in one step.
    virtual void replace(const std::string& from, const std::string& to) = 0;
    virtual void flush_folder(const std::string& folder) = 0;
    virtual void remove(const std::string& path) = 0;
    virtual std::vector<std::string> list(const std::string& folder) = 0;  // names, without the folder
    /// A path to the same file whose last name is no link: what a save replaces. The path itself where nothing exists.
    virtual std::string resolve(const std::string& path) = 0;

    /// True at the first call with `path` on this object: for what a save need do only once.
    bool is_first_save(const std::string& path);

private:
    std::mutex mutex_;
    std::set<std::string> saved_paths_;
};

/// Forwards every call, so that a fake overrides only what it bends.
class ForwardingFiles : public Files {
public:
    explicit ForwardingFiles(std::shared_ptr<Files> target) : target_(std::move(target)) {}

    void read(const std::string& path, std::string& bytes) override { target_->read(path, bytes); }
    FileStatus status(const std::string& path) override { return target_->status(path); }
    void clear_read_only(const std::string& path) override { target_->clear_read_only(path); }
    std::unique_ptr<OutputFile> open_append(const std::string& path) override { return target_->open_append(path); }
    std::unique_ptr<OutputFile> create_new(const std::string& path, const std::string& like) override {
        return target_->create_new(path, like);
    }
    void replace(const std::string& from, const std::string& to) override { target_->replace(from, to); }
    void flush_folder(const std::string& folder) override { target_->flush_folder(folder); }
    void remove(const std::string& path) override { target_->remove(path); }
    std::vector<std::string> list(const std::string& folder) override { return target_->list(folder); }
    std::string resolve(const std::string& path) override { return target_->resolve(path); }

protected:
    Files& target() { return *target_; }

private:
    std::shared_ptr<Files> target_;
};

std::shared_ptr<Files> make_system_files();

/// Joins with the platform's separator, unless `folder` already ends in one.
std::string join_path(const std::string& folder, const std::string& name);
/// The platform's path separator.
std::string_view path_separator();

}  // namespace korvane
