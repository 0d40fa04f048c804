// The system's clock and message box.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

#include "korvane/error.h"
#include "korvane/system.h"
#include "platform/files.h"
#include "platform/windows_text.h"

namespace korvane {

namespace {

struct Instant {
    LocalTime time;
    double fraction;  ///< of the second
};

Instant local_instant() {
#ifdef _WIN32
    SYSTEMTIME time;
    GetLocalTime(&time);
    return {{time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond}, time.wMilliseconds / 1000.0};
#else
    timespec instant{};
    clock_gettime(CLOCK_REALTIME, &instant);
    std::tm local{};
    localtime_r(&instant.tv_sec, &local);
    return {{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec},
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
        if (played_.empty()) return local_instant().time;
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

}  // namespace

std::shared_ptr<Clock> make_system_clock() {
    return std::make_shared<SystemClock>();
}

std::shared_ptr<MessageBox> make_system_message_box() {
    return std::make_shared<SystemMessageBox>();
}

}  // namespace korvane
