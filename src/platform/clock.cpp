#include "korvane/system.h"

#include <cerrno>
#include <ctime>

#include "platform/windows_text.h"

namespace korvane {

namespace {

#ifdef _WIN32

class SystemClock final : public Clock {
public:
    double seconds_since_midnight() override {
        SYSTEMTIME time;
        GetLocalTime(&time);
        return time.wHour * 3600.0 + time.wMinute * 60.0 + time.wSecond + time.wMilliseconds / 1000.0;
    }

    LocalTime now() override {
        SYSTEMTIME time;
        GetLocalTime(&time);
        return {time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond};
    }

    void sleep_milliseconds(int milliseconds) override {
        if (milliseconds > 0) Sleep(static_cast<DWORD>(milliseconds));
    }

    void process_pending_events() override {
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
    }
};

#else

class SystemClock final : public Clock {
public:
    double seconds_since_midnight() override {
        timespec instant{};
        const std::tm local = local_calendar(instant);
        return local.tm_hour * 3600.0 + local.tm_min * 60.0 + local.tm_sec +
               static_cast<double>(instant.tv_nsec) * 1e-9;
    }

    LocalTime now() override {
        timespec instant{};
        const std::tm local = local_calendar(instant);
        return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec};
    }

    void sleep_milliseconds(int milliseconds) override {
        if (milliseconds <= 0) return;
        timespec remaining{milliseconds / 1000, (milliseconds % 1000) * 1'000'000L};
        while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
        }
    }

    void process_pending_events() override {}

private:
    static std::tm local_calendar(timespec& instant) {
        clock_gettime(CLOCK_REALTIME, &instant);
        std::tm local{};
        localtime_r(&instant.tv_sec, &local);
        return local;
    }
};

#endif

}  // namespace

std::shared_ptr<Clock> make_system_clock() {
    return std::make_shared<SystemClock>();
}

}  // namespace korvane
