// The process's environment and paths, its clock, message box and file tracer.
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <utility>

#include "korvane/error.h"
#include "korvane/system.h"
#include "platform/files.h"
#include "platform/text.h"
#include "platform/windows_text.h"

namespace korvane {

namespace {

/// And the fraction of the second.
std::pair<LocalTime, double> local_instant() {
#ifdef _WIN32
    SYSTEMTIME time;
    GetLocalTime(&time);
    return {LocalTime{time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond},
            time.wMilliseconds / 1000.0};
#else
    timespec instant{};
    clock_gettime(CLOCK_REALTIME, &instant);
    std::tm local{};
    localtime_r(&instant.tv_sec, &local);
    return {LocalTime{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec},
            static_cast<double>(instant.tv_nsec) * 1e-9};
#endif
}

class SystemClock final : public Clock {
public:
    double seconds_since_midnight() override {
        const auto [time, fraction] = local_instant();
        return time.hour * 3600.0 + time.minute * 60.0 + time.second + fraction;
    }

    /// Error 13 where KORVANE_TIME is no time.
    LocalTime now() override {
        if (played_.empty()) return local_instant().first;
        LocalTime time;
        int read = 0;
        std::sscanf(played_.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &time.year, &time.month, &time.day, &time.hour,
                    &time.minute, &time.second, &read);
        const auto day = std::chrono::year(time.year) / time.month / time.day;
        const bool is_clock = time.hour >= 0 && time.hour < 24 && time.minute >= 0 && time.minute < 60 &&
                              time.second >= 0 && time.second < 60;
        if (static_cast<std::size_t>(read) == played_.size() && day.ok() && is_clock) return time;
        throw Error(error_number::type_mismatch, "",
                    "KORVANE_TIME[" + played_ + "] is no local time, such as 2026-11-22T08:51:49",
                    ErrorKind::configuration);
    }

    void sleep_milliseconds(int milliseconds) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }

    void process_pending_events() override {
#ifdef _WIN32
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (message.message == WM_QUIT) {
                // The quit request belongs to the host's own message loop.
                PostQuitMessage(static_cast<int>(message.wParam));
                return;
            }
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
#endif
    }

private:
    const std::string played_ = environment_text("KORVANE_TIME");  ///< taken for now; empty: the system's time
};

class SystemMessageBox final : public MessageBox {
public:
    void show(const std::string& text, const std::string& title) override {
#ifdef _WIN32
        ::MessageBoxW(nullptr, utf16_from_utf8(text).c_str(), utf16_from_utf8(title).c_str(), MB_OK | MB_TASKMODAL);
#else
        std::fputs((title + ": " + text + "\n").c_str(), stderr);
#endif
    }
};

constexpr std::int32_t cannot_create_object = 429;

/// "2026-11-21 08:30:15.123 module level > routine", one line a record; ">" enters, "<" leaves, ":" stands before a
/// text.
class FileTracer final : public Tracer {
public:
    /// `file` null: standard error.
    FileTracer(bool is_on, std::unique_ptr<OutputFile> file) : is_on_(is_on), file_(std::move(file)) {}

    void set_module_name(const std::string& name) override { module_ = name; }
    bool trace_flag() override { return is_on_; }
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
                        now.minute, now.second, milliseconds, module_, level, one_line(record));
        if (file_)
            file_->write(line);
        else
            std::fwrite(line.data(), 1, line.size(), stderr);
    }

    const bool is_on_;
    const std::unique_ptr<OutputFile> file_;
    const std::shared_ptr<Clock> clock_ = make_system_clock();
    std::string module_;
};

class FileTracerFactory final : public TracerFactory {
public:
    std::unique_ptr<Tracer> create(std::string_view prog_id) override {
        if (prog_id != tracer_prog_id) raise_runtime_fault(cannot_create_object, std::string(prog_id));
        const std::string name = environment_text("KORVANE_TRACE");
        try {
            auto file = name.empty() || name == "-" ? nullptr : make_system_files()->open_append(name);
            return std::make_unique<FileTracer>(!name.empty(), std::move(file));
        } catch (const FileError& fault) {
            raise_runtime_fault(fault.runtime_error_number(), "KORVANE_TRACE: ", fault.what());
        }
    }
};

}  // namespace

std::string_view path_separator() {
#ifdef _WIN32
    return "\\";
#else
    return "/";
#endif
}

std::string join_path(const std::string& folder, const std::string& name) {
    const bool ends_in_separator = folder.ends_with('/') || folder.ends_with(path_separator());
    return folder.empty() || ends_in_separator ? folder + name : folder + std::string(path_separator()) + name;
}

std::string environment_text(const std::string& name) {
#ifdef _WIN32
    // The system's environment: a host may change it behind the back of this module's C library.
    const std::wstring wide = utf16_from_utf8(name);
    std::wstring value(GetEnvironmentVariableW(wide.c_str(), nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(wide.c_str(), value.data(), static_cast<DWORD>(value.size())));
    return utf8_from_utf16(value);
#else
    const char* const value = std::getenv(name.c_str());
    return value ? value : "";
#endif
}

std::shared_ptr<Clock> make_system_clock() {
    return std::make_shared<SystemClock>();
}

std::shared_ptr<MessageBox> make_system_message_box() {
    return std::make_shared<SystemMessageBox>();
}

std::shared_ptr<TracerFactory> make_file_tracer_factory() {
    return std::make_shared<FileTracerFactory>();
}

}  // namespace korvane
