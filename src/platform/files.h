// Paths of files, and the file system that forwards.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "korvane/system.h"

namespace korvane {

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

/// Joins with the platform's separator, unless `folder` already ends in one.
std::string join_path(const std::string& folder, const std::string& name);
/// The platform's path separator.
std::string_view path_separator();

}  // namespace korvane
