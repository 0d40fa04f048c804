#include <fmt/format.h>

#include <cmath>
#include <cstdio>

#include "korvane/error.h"
#include "korvane/system.h"
#include "platform/files.h"

namespace korvane {

namespace {

constexpr std::int32_t cannot_create_object = 429;

/// One record stays one line.
std::string in_one_line(const std::string& text) {
    std::string line;
    for (const char character : text) {
        if (character == '\r')
            line += "\\r";
        else if (character == '\n')
            line += "\\n";
        else
            line += character;
    }
    return line;
}

/// "2026-11-21 08:30:15.123 module level > routine"; ">" enters, "<" leaves, ":" stands before a text.
class FileTracer final : public Tracer {
public:
    /// `file` null: standard error.
    FileTracer(std::shared_ptr<Clock> clock, std::unique_ptr<OutputFile> file)
        : clock_(std::move(clock)), file_(std::move(file)) {}

    void set_module_name(const std::string& name) override { module_ = name; }
    bool trace_flag() override { return true; }
    void entry(const std::string& routine, std::int32_t level) override { put(level, "> " + routine); }
    void exit(const std::string& routine, std::int32_t level) override { put(level, "< " + routine); }
    void trace_print(const std::string& text, const std::string& routine, std::int32_t level) override {
        put(level, "  " + routine + ": " + text);
    }

private:
    void put(std::int32_t level, const std::string& record) {
        const LocalTime now = clock_->now();
        const int milliseconds = static_cast<int>(std::fmod(clock_->seconds_since_midnight(), 1.0) * 1000.0);
        const std::string line =
            fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} {} {} {}\n", now.year, now.month, now.day, now.hour,
                        now.minute, now.second, milliseconds, module_, level, in_one_line(record));
        if (file_)
            file_->write(line);
        else
            std::fwrite(line.data(), 1, line.size(), stderr);
    }

    std::shared_ptr<Clock> clock_;
    std::unique_ptr<OutputFile> file_;
    std::string module_;
};

class SilentTracer final : public Tracer {
public:
    void set_module_name(const std::string&) override {}
    bool trace_flag() override { return false; }
    void entry(const std::string&, std::int32_t) override {}
    void exit(const std::string&, std::int32_t) override {}
    void trace_print(const std::string&, const std::string&, std::int32_t) override {}
};

class FileTracerFactory final : public TracerFactory {
public:
    std::unique_ptr<Tracer> create(std::string_view prog_id) override {
        if (prog_id != tracer_prog_id) raise_runtime_fault(cannot_create_object, std::string(prog_id));
        const std::string name = environment_text("KORVANE_TRACE");
        if (name.empty()) return std::make_unique<SilentTracer>();
        try {
            auto file = name == "-" ? nullptr : make_system_files()->open_append(name);
            return std::make_unique<FileTracer>(make_system_clock(), std::move(file));
        } catch (const FileError& fault) {
            raise_runtime_fault(fault.runtime_error_number(), std::string("KORVANE_TRACE: ") + fault.what());
        }
    }
};

}  // namespace

std::shared_ptr<TracerFactory> make_file_tracer_factory() {
    return std::make_shared<FileTracerFactory>();
}

}  // namespace korvane
