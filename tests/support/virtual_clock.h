// A clock that only moves when it is told to: sleeping and waiting for spectra take no time.
#pragma once

#include <cmath>
#include <functional>

#include "korvane/system.h"

namespace korvane {

class VirtualClock final : public Clock {
public:
    /// Starts at a time of day in seconds.
    explicit VirtualClock(double seconds = 36000.0) : seconds_(seconds) {}

    double seconds_since_midnight() override { return std::fmod(seconds_, 86400.0); }
    LocalTime now() override {
        const int second = static_cast<int>(seconds_since_midnight());
        const int day = 21 + static_cast<int>(seconds_ / 86400.0);
        return {2026, 11, day, second / 3600, second / 60 % 60, second % 60};
    }
    void sleep_milliseconds(int milliseconds) override {
        ++sleeps;
        advance(milliseconds / 1000.0);
    }
    void process_pending_events() override {
        if (on_events) on_events();
    }

    void advance(double seconds) { seconds_ += seconds; }
    /// Seconds since the midnight before the start; goes on past 86400.
    double total_seconds() const { return seconds_; }

    std::function<void()> on_events;
    int sleeps = 0;

private:
    double seconds_;
};

}  // namespace korvane
