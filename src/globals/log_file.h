// A text log below the base folder: opened by name, appended to line by line.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "korvane/platform.h"
#include "korvane/system.h"
#include "platform/files.h"

namespace korvane {

/// Lines reach the operating system when written, each in one write. Errors are `FileError`.
class LogFile {
public:
    explicit LogFile(const Platform& platform) : instrument_(platform.instrument), files_(platform.files) {}

    bool is_open() const { return file_ != nullptr; }
    /// Opens "Logfiles/`name`" of the base folder for appending (the folder is not made) and writes `header`. When that
    /// fails, the file stays open.
    void open(const std::string& name, std::string_view header);
    /// Text is UTF-8; it is stored in the system's own narrow encoding.
    void write_line(std::string_view line);
    /// Forgets the file, whether its close succeeds or not: what was written has reached the system.
    void close() noexcept { file_.reset(); }
    /// Of the file open now, else of the last one.
    const std::string& path() const { return path_; }

private:
    std::shared_ptr<InstrumentLayer> instrument_;
    std::shared_ptr<Files> files_;
    std::unique_ptr<OutputFile> file_;
    std::string path_;
    std::string line_;  // kept for its memory
};

/// "`stem`_YYYYMMDD_HHmmss.txt".
std::string dated_log_name(std::string_view stem, const LocalTime& time);

}  // namespace korvane
