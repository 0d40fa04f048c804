#ifndef _WIN32

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/files.h"

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t largest_read = std::size_t{1} << 30;
constexpr std::size_t longest_attribute = 65536;  // as the system bounds values and lists of names

[[noreturn]] void fail(const char* operation, const std::string& path, int code, const std::string& advice = {}) {
    raise_file_error(operation, path, {code, std::generic_category()}, advice);
}

/// Repeats a call that a signal interrupted.
template <class Call>
auto retried(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (number_ >= 0) ::close(number_);
    }
    int number() const { return number_; }
    int release() { return std::exchange(number_, -1); }

private:
    int number_;
};

/// -1 where it fails. Never one of the standard streams' numbers, which a caller may have closed: what the program
/// prints must not end in a file.
int opened(const std::string& path, int flags, mode_t mode = 0666) {
    const int number = retried([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); });
    if (number < 0 || number > STDERR_FILENO) return number;
    const int higher = ::fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    ::close(number);
    return higher;
}

int open_or_fail(const char* operation, const std::string& path, int flags) {
    const int number = opened(path, flags);
    if (number < 0) fail(operation, path, errno);
    return number;
}

/// The file's size; refuses devices, pipes, sockets, folders. To be opened with O_NONBLOCK, or a pipe would wait.
std::size_t regular_size(const char* operation, const std::string& path, const Descriptor& file) {
    struct stat found;
    if (::fstat(file.number(), &found) != 0) fail(operation, path, errno);
    if (!S_ISREG(found.st_mode)) refuse_file(operation, path, "it is no regular file");
    return static_cast<std::size_t>(found.st_size);
}

class PosixOutputFile final : public OutputFile {
public:
    PosixOutputFile(int number, std::string path) : descriptor_(number), path_(std::move(path)) {}

    void write(std::string_view bytes) override {
        while (!bytes.empty()) {
            const ssize_t count = retried([&] { return ::write(descriptor_.number(), bytes.data(), bytes.size()); });
            if (count < 0) fail("write to", path_, errno);
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    void flush_to_disk() override {
        if (retried([&] { return ::fsync(descriptor_.number()); }) != 0) fail("flush", path_, errno);
    }

private:
    Descriptor descriptor_;
    std::string path_;
};

/// As far as the system lets this user give them.
void copy_attributes(const std::string& from, int to) {
    // The system takes memory for the list before it looks: it is asked first whether there is any.
    if (::listxattr(from.c_str(), nullptr, 0) <= 0) return;
    std::string names(longest_attribute, '\0'), value = names;  // each name with its null
    const ssize_t length = ::listxattr(from.c_str(), names.data(), names.size());
    names.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    for (std::size_t at = 0; at < names.size(); at = names.find('\0', at) + 1) {
        const char* const name = names.data() + at;
        const ssize_t size = ::getxattr(from.c_str(), name, value.data(), value.size());
        if (size >= 0 && ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(size), 0) != 0) continue;
    }
}

/// Owner and attributes as far as the system lets this user give them; the mode always, without the bits that let a
/// program run as another user.
void take_after(const std::string& like, const struct stat& like_status, const Descriptor& made) {
    if (::fchown(made.number(), like_status.st_uid, like_status.st_gid) != 0 &&
        ::fchown(made.number(), static_cast<uid_t>(-1), like_status.st_gid) != 0) {
        // A file of somebody else: the content is saved under the own name.
    }
    copy_attributes(like, made.number());
    // After the owner, whose change clears bits of it.
    if (::fchmod(made.number(), like_status.st_mode & 0777) != 0) fail("make", like, errno);
}

/// The name goes with the lock; who waits for the old one has to look again.
class PosixLock final : public FileLock {
public:
    PosixLock(int number, std::string path) : descriptor_(number), path_(std::move(path)) {}
    ~PosixLock() override { ::unlink(path_.c_str()); }

private:
    Descriptor descriptor_;
    std::string path_;
};

bool locked(const Descriptor& file) {
    return retried([&] { return ::flock(file.number(), LOCK_EX | LOCK_NB); }) == 0;
}

bool is_still(const std::string& path, const Descriptor& file) {
    struct stat held, named;
    return ::fstat(file.number(), &held) == 0 && ::lstat(path.c_str(), &named) == 0 && held.st_ino == named.st_ino &&
           held.st_dev == named.st_dev;
}

class PosixFiles final : public SystemFiles {
public:
    void read(const std::string& path, std::string& bytes) override {
        const Descriptor file(open_or_fail("read", path, O_RDONLY | O_NONBLOCK));
        std::size_t size = regular_size("read", path, file);
        for (std::size_t filled = 0;; size = 2 * filled) {  // it grows, or does not tell its size
            if (size > largest_read) refuse_file("read", path, "it is larger than 1 GiB");
            bytes.resize(size + 1);
            while (filled < bytes.size()) {
                const ssize_t count =
                    retried([&] { return ::read(file.number(), bytes.data() + filled, bytes.size() - filled); });
                if (count < 0) fail("read", path, errno);
                if (count == 0) return bytes.resize(filled);
                filled += static_cast<std::size_t>(count);
            }
        }
    }

    std::unique_ptr<OutputFile> open_append(const std::string& path) override {
        Descriptor file(opened(path, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK));
        if (file.number() < 0 && errno == ELOOP) refuse_file("open", path, "it is a link");
        if (file.number() < 0) fail("open", path, errno);
        (void)regular_size("open", path, file);
        return std::make_unique<PosixOutputFile>(file.release(), path);
    }

    std::unique_ptr<OutputFile> create_new(const std::string& path, const std::string& like) override {
        struct stat like_status;
        const bool has_like = retried([&] { return ::stat(like.c_str(), &like_status); }) == 0;
        if (!has_like && errno != ENOENT && errno != ENOTDIR) fail("look at", like, errno);
        // Nobody else may read the new file before it has all the rights of the old one.
        Descriptor made(opened(path, O_WRONLY | O_CREAT | O_EXCL, has_like ? 0600 : 0666));
        if (made.number() < 0 && errno == EACCES)
            fail("save", like, EACCES, "; a save makes a new file, for which the folder has to be writable");
        if (made.number() < 0) fail("save", like, errno);
        (void)locked(made);  // where the file system has no locks, nothing is taken for abandoned either
        try {
            if (has_like) take_after(like, like_status, made);
            return std::make_unique<PosixOutputFile>(made.release(), like);
        } catch (...) {
            ::unlink(path.c_str());
            throw;
        }
    }

    void remove_abandoned(const std::string& path) override {
        const Descriptor file(opened(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
        if (file.number() >= 0 && locked(file) && is_still(path, file)) ::unlink(path.c_str());
    }

    std::unique_ptr<FileLock> try_lock(const std::string& path) override {
        Descriptor file(open_or_fail("lock", path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK));
        const bool is_ours = locked(file);
        if (!is_ours && errno != EWOULDBLOCK) fail("lock", path, errno);
        if (!is_ours || !is_still(path, file)) return nullptr;
        return std::make_unique<PosixLock>(file.release(), path);
    }

    void replace(const std::string& from, const std::string& to) override {
        if (::rename(from.c_str(), to.c_str()) != 0) fail("replace", to, errno);
    }

    void flush_folder(const std::string& folder) override {
        const Descriptor opened(
            open_or_fail("flush the folder", folder.empty() ? std::string(".") : folder, O_RDONLY | O_DIRECTORY));
        // EINVAL: a file system that has no such operation.
        if (retried([&] { return ::fsync(opened.number()); }) != 0 && errno != EINVAL)
            fail("flush the folder", folder, errno);
    }

    void remove(const std::string& path) override {
        if (::unlink(path.c_str()) != 0) fail("remove", path, errno);
    }

    std::string resolve(const std::string& path) override {
        constexpr int most_links = 40;
        fs::path current = path;
        for (int followed = 0; followed <= most_links; ++followed) {
            std::error_code code;
            const fs::path target = fs::read_symlink(current, code);
            if (code == std::errc::invalid_argument || code == std::errc::no_such_file_or_directory)
                return current.string();
            if (code) fail("resolve", path, code.value());
            current = current.parent_path() / target;
        }
        fail("resolve", path, ELOOP);
    }
};

}  // namespace

std::shared_ptr<Files> make_system_files() {
    return std::make_shared<PosixFiles>();
}

}  // namespace korvane

#endif
