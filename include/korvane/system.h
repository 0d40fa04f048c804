// Seam: the system. Time with pending events, files, message box and tracer, as public interfaces: a host program
// brings its own event loop, dialogs or tracer by putting them into the `Platform`. Texts and paths are UTF-8.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "korvane/export.h"

namespace korvane {

/// Local calendar time.
struct LocalTime {
    int year = 1970, month = 1, day = 1;  ///< month 1 to 12
    int hour = 0, minute = 0, second = 0;
};

/// "2026-11-22T08:51:49Z", by the time zone of the process.
KORVANE_API std::string utc_text(const LocalTime& time);

/// Nothing else in the library knows the time.
class KORVANE_API Clock {
public:
    virtual ~Clock() = default;

    /// Seconds since local midnight, with fraction; falls back to 0 at midnight.
    virtual double seconds_since_midnight() = 0;
    virtual LocalTime now() = 0;
    virtual void sleep_milliseconds(int milliseconds) = 0;
    /// Lets the host handle what its user has done; called between the polls of every wait.
    virtual void process_pending_events() = 0;
};

/// A modal message box with an OK button.
class KORVANE_API MessageBox {
public:
    virtual ~MessageBox() = default;
    /// Returns when the user has closed the box.
    virtual void show(const std::string& text, const std::string& title) = 0;
};

/// The class of the acquisition software's tracer.
inline constexpr std::string_view tracer_prog_id = "quillkit.trace.1";

/// Takes the trace of one thread.
class KORVANE_API Tracer {
public:
    virtual ~Tracer() = default;
    virtual void set_module_name(const std::string& name) = 0;
    /// Whether anything is traced at all; asked once, when the tracer is made.
    virtual bool trace_flag() = 0;
    virtual void entry(const std::string& routine, std::int32_t level) = 0;
    virtual void exit(const std::string& routine, std::int32_t level) = 0;
    virtual void trace_print(const std::string& text, const std::string& routine, std::int32_t level) = 0;
};

class KORVANE_API TracerFactory {
public:
    TracerFactory();
    TracerFactory(const TracerFactory&) = delete;
    TracerFactory& operator=(const TracerFactory&) = delete;
    virtual ~TracerFactory() = default;

    /// Different for every factory of the process, also after one has gone: the key of per-thread trace state.
    std::uint64_t id() const noexcept { return id_; }
    /// One tracer a thread. Error 429 naming an unknown class.
    virtual std::unique_ptr<Tracer> create(std::string_view prog_id) = 0;

private:
    std::uint64_t id_;
};

enum class FileErrorKind {
    not_found,
    folder_not_found,
    access_denied,
    sharing_violation,
    no_space,
    input_output,
    other
};

/// What the system said of a file. Turned into an automation error (number by `runtime_error_number`) where it leaves
/// the library.
class KORVANE_API FileError : public std::runtime_error {
public:
    FileError(FileErrorKind kind, int system_code, const std::string& text)
        : std::runtime_error(text), kind_(kind), system_code_(system_code) {}
    FileErrorKind kind() const noexcept { return kind_; }
    int system_code() const noexcept { return system_code_; }
    /// 53 file not found, 76 path not found, 70 permission denied, 61 disk full, 57 device input/output error.
    std::int32_t runtime_error_number() const noexcept;

private:
    FileErrorKind kind_;
    int system_code_;
};

struct FileStatus {
    bool exists = false;
    bool is_folder = false;
    bool read_only = false;   ///< nobody may write it (Windows: the read-only attribute)
    bool is_special = false;  ///< neither file nor folder: a device, a pipe, a socket
};

/// Its life is the lock's.
class KORVANE_API FileLock {
public:
    virtual ~FileLock() = default;
};

/// A file open for writing. Destruction closes without reporting.
class KORVANE_API OutputFile {
public:
    virtual ~OutputFile() = default;
    /// Hands all bytes to the operating system.
    virtual void write(std::string_view bytes) = 0;
    /// Returns when the bytes are on the disk.
    virtual void flush_to_disk() = 0;
};

/// The file system in small operations, so that a test can record them or fail the n-th. Every operation raises
/// `FileError`.
class KORVANE_API Files {
public:
    virtual ~Files() = default;

    /// Replaces `bytes` with the file's content, keeping its capacity. A regular file of 1 GiB at most; anything else
    /// is refused, without waiting for its other end.
    virtual void read(const std::string& path, std::string& bytes) = 0;
    virtual FileStatus status(const std::string& path) = 0;
    /// Clears the read-only attribute alone (POSIX: gives the owner back the right to write).
    virtual void clear_read_only(const std::string& path) = 0;
    /// A regular file, made where there is none; a link in its place is not followed but refused.
    virtual std::unique_ptr<OutputFile> open_append(const std::string& path) = 0;
    /// A file that must not exist yet, for a save of `like`, whose owner, mode (without set-user bits) and attributes
    /// it gets where that exists. Errors name `like`.
    virtual std::unique_ptr<OutputFile> create_new(const std::string& path, const std::string& like) = 0;
    /// Removes what `create_new` made, unless its `OutputFile` still lives, in whatever process; says nothing either
    /// way.
    virtual void remove_abandoned(const std::string& path) = 0;
    /// A lock named `path`, a file that comes and goes with it; null while somebody has it, in whatever process. It
    /// ends with its process at the latest.
    virtual std::unique_ptr<FileLock> try_lock(const std::string& path) = 0;
    /// Puts `from` in the place of `to` in one step.
    virtual void replace(const std::string& from, const std::string& to) = 0;
    virtual void flush_folder(const std::string& folder) = 0;
    virtual void remove(const std::string& path) = 0;
    /// Names, without the folder.
    virtual std::vector<std::string> list(const std::string& folder) = 0;
    /// A path to the same file whose last name is no link: what a save replaces. The path itself where nothing exists.
    virtual std::string resolve(const std::string& path) = 0;
};

/// Its `now` is what the environment variable KORVANE_TIME says ("2026-11-22T08:51:49"), where it is set.
KORVANE_API std::shared_ptr<Clock> make_system_clock();
/// The system's own box; where there is none, title and text go to standard error.
KORVANE_API std::shared_ptr<MessageBox> make_system_message_box();
KORVANE_API std::shared_ptr<Files> make_system_files();
/// Appends lines to the file named by the environment variable KORVANE_TRACE ("-": standard error); on when it is set.
KORVANE_API std::shared_ptr<TracerFactory> make_file_tracer_factory();

/// Writes a temporary file beside `path` (links followed), flushes it, puts it in the place of the old one, flushes the
/// folder: at any point the file is the complete old or the complete new one. Leftovers of killed processes are removed
/// before. Raises `FileError`, also for what is there and no regular file; the old file is then intact and no temporary
/// file stays. One exception: when only the flush of the folder fails, the new content is in place, complete and
/// visible to all, and the error says that a power failure may bring the old one back. A hard link to the old file
/// keeps the old content.
KORVANE_API void safe_save(Files& files, const std::string& path, std::string_view bytes);

}  // namespace korvane
