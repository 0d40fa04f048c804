// Seam: time and pending user-interface events. Nothing else in the library knows the time.
#pragma once

#include <memory>

namespace korvane {

/// Local calendar time.
struct LocalTime {
    int year = 1970, month = 1, day = 1;  // month 1 to 12
    int hour = 0, minute = 0, second = 0;
};

class Clock {
public:
    virtual ~Clock() = default;

    /// Seconds since local midnight, with fraction; falls back to 0 at midnight.
    virtual double seconds_since_midnight() = 0;
    virtual LocalTime now() = 0;
    virtual void sleep_milliseconds(int milliseconds) = 0;
    virtual void process_pending_events() = 0;
};

/// Seconds from `start` to `now`, both since midnight, when midnight may have passed once in between.
inline double elapsed_seconds(double start, double now) {
    const double elapsed = now - start;
    return elapsed < 0 ? elapsed + 86400.0 : elapsed;
}

std::shared_ptr<Clock> make_system_clock();

}  // namespace korvane
