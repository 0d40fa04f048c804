#include "support/memory_disk.h"

namespace korvane {

class MemoryOutput final : public OutputFile {
public:
    MemoryOutput(MemoryDisk& disk, std::shared_ptr<MemoryDisk::Inode> inode) : disk_(disk), inode_(std::move(inode)) {
        ++disk_.open_files;
    }
    ~MemoryOutput() override { --disk_.open_files; }

    void write(std::string_view bytes) override {
        const bool cut = disk_.fault && disk_.fault->short_write && disk_.operations + 1 == disk_.fault->at;
        if (cut) inode_->seen += bytes.substr(0, bytes.size() / 2);
        disk_.operation("write");
        inode_->seen += bytes;
    }
    void flush_to_disk() override {
        disk_.operation("flush");
        inode_->flushed = inode_->seen;
    }

private:
    MemoryDisk& disk_;
    std::shared_ptr<MemoryDisk::Inode> inode_;
};

void MemoryDisk::put(const std::string& path, const std::string& bytes, bool read_only) {
    entries_[path] = std::make_shared<Inode>(Inode{bytes, bytes, read_only});
    folder_history_ = {entries_};
}

std::optional<std::string> MemoryDisk::content(const std::string& path) const {
    const auto known = entries_.find(path);
    return known == entries_.end() ? std::nullopt : std::optional(known->second->seen);
}

void MemoryDisk::operation(const std::string& name) {
    if (before_operation) before_operation(name);
    ++operations;
    if (fault && (operations == fault->at || (fault->stays && operations > fault->at)))
        throw FileError(fault->kind, 5, name + ": injected fault");
}

MemoryDisk::Inode& MemoryDisk::inode(const std::string& path) const {
    const auto known = entries_.find(path);
    if (known == entries_.end()) throw FileError(FileErrorKind::not_found, 2, path + ": not found");
    return *known->second;
}

void MemoryDisk::entries_changed() {
    folder_history_.push_back(entries_);
}

std::vector<MemoryDisk::Image> MemoryDisk::crash_images() const {
    constexpr std::size_t torn_parts = 16;
    std::vector<Image> images;
    for (const Entries& entries : folder_history_)
        for (std::size_t part = 0; part <= torn_parts + 1; ++part) {
            Image image;
            for (const auto& [path, inode] : entries) {
                const auto shared = inode->seen.starts_with(inode->flushed) ? inode->flushed.size() : 0;
                const auto unsure = inode->seen.size() - shared;
                image[path] =
                    part == 0 ? inode->flushed : inode->seen.substr(0, shared + unsure * part / (torn_parts + 1));
            }
            images.push_back(std::move(image));
        }
    return images;
}

void MemoryDisk::read(const std::string& path, std::string& bytes) {
    operation("read");
    bytes = inode(path).seen;
}

FileStatus MemoryDisk::status(const std::string& path) {
    operation("status");
    const auto known = entries_.find(path);
    if (known != entries_.end()) return {true, false, known->second->read_only};
    const auto below = entries_.lower_bound(path + "/");
    const bool folder = below != entries_.end() && below->first.starts_with(path + "/");
    return {folder, folder, false};
}

void MemoryDisk::clear_read_only(const std::string& path) {
    operation("clear read-only");
    inode(path).read_only = false;
}

std::unique_ptr<OutputFile> MemoryDisk::open_append(const std::string& path) {
    operation("open");
    auto& entry = entries_[path];
    if (!entry) {
        entry = std::make_shared<Inode>();
        entries_changed();
    }
    return std::make_unique<MemoryOutput>(*this, entry);
}

std::unique_ptr<OutputFile> MemoryDisk::create_new(const std::string& path, const std::string&) {
    operation("create");
    if (entries_.count(path)) throw FileError(FileErrorKind::other, 17, path + ": exists");
    const auto made = entries_[path] = std::make_shared<Inode>();
    entries_changed();
    return std::make_unique<MemoryOutput>(*this, made);
}

std::unique_ptr<FileLock> MemoryDisk::try_lock(const std::string&) {
    operation("lock");
    return is_locked ? nullptr : std::make_unique<FileLock>();
}

void MemoryDisk::replace(const std::string& from, const std::string& to) {
    operation("replace");
    inode(from);
    entries_[to] = entries_[from];
    entries_.erase(from);
    entries_changed();
}

void MemoryDisk::flush_folder(const std::string&) {
    operation("flush folder");
    folder_history_ = {entries_};
}

void MemoryDisk::remove(const std::string& path) {
    operation("remove");
    inode(path);
    entries_.erase(path);
    entries_changed();
}

std::vector<std::string> MemoryDisk::list(const std::string& folder) {
    operation("list");
    std::vector<std::string> names;
    const std::string start = folder.ends_with('/') ? folder : folder + "/";
    for (const auto& [path, inode] : entries_)
        if (path.starts_with(start)) names.push_back(path.substr(start.size()));
    return names;
}

std::string MemoryDisk::resolve(const std::string& path) {
    operation("resolve");
    return path;
}

}  // namespace korvane
