// A file system in memory that knows what a crash would leave: what has been flushed is sure, the rest may be kept,
// dropped or torn. It notes its operations, and fails the one it is told to.
#pragma once

#include <map>
#include <optional>

#include "platform/files.h"

namespace korvane {

class MemoryDisk final : public Files {
public:
    /// A file that is there, flushed, from the start; its folder comes into being.
    void put(const std::string& path, const std::string& bytes, bool read_only = false);
    /// What a reader sees now; nothing where there is no file.
    std::optional<std::string> content(const std::string& path) const;

    /// Fails the n-th operation (from 1); every later one too when `stays`. A short write leaves half of its bytes.
    struct Fault {
        int at = 0;
        bool stays = false;
        FileErrorKind kind = FileErrorKind::input_output;
        bool short_write = false;
    };
    std::optional<Fault> fault;
    int operations = 0;
    int open_files = 0;
    bool is_locked = false;  ///< somebody else has every lock
    /// Called before every operation with its name; for notes and for races.
    std::function<void(const std::string& operation)> before_operation;

    /// Everything that may be on the disk after a crash right now, as path to content. An unflushed write may be cut at
    /// 16 places.
    using Image = std::map<std::string, std::string>;
    std::vector<Image> crash_images() const;

    void read(const std::string& path, std::string& bytes) override;
    FileStatus status(const std::string& path) override;
    void clear_read_only(const std::string& path) override;
    std::unique_ptr<OutputFile> open_append(const std::string& path) override;
    std::unique_ptr<OutputFile> create_new(const std::string& path, const std::string& like) override;
    void remove_abandoned(const std::string& path) override { remove(path); }
    std::unique_ptr<FileLock> try_lock(const std::string& path) override;
    void replace(const std::string& from, const std::string& to) override;
    void flush_folder(const std::string& folder) override;
    void remove(const std::string& path) override;
    std::vector<std::string> list(const std::string& folder) override;
    std::string resolve(const std::string& path) override;

private:
    friend class MemoryOutput;
    struct Inode {
        std::string seen;     // what a reader gets
        std::string flushed;  // what surely is on the disk
        bool read_only = false;
    };
    using Entries = std::map<std::string, std::shared_ptr<Inode>>;

    void operation(const std::string& name);
    Inode& inode(const std::string& path) const;
    void entries_changed();

    Entries entries_;
    // The folder as it was at the last flush, then after every change since: a crash may leave any of them.
    std::vector<Entries> folder_history_{Entries{}};
};

}  // namespace korvane
