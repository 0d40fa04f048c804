// Time passed, right across midnight.
#pragma once

#include "korvane/system.h"

namespace korvane {

/// Counts from its making, as long as it is read at least twice a day. A clock set back a little stands still.
class Stopwatch {
public:
    explicit Stopwatch(Clock& clock) : clock_(clock), last_(clock.seconds_since_midnight()) {}

    double seconds() {
        const double now = clock_.seconds_since_midnight();
        double step = now - last_;
        if (step < -seconds_a_day / 2) step += seconds_a_day;  // midnight has passed
        if (step > 0) elapsed_ += step;
        last_ = now;
        return elapsed_;
    }

private:
    static constexpr double seconds_a_day = 86400.0;
    Clock& clock_;
    double last_;
    double elapsed_ = 0;
};

}  // namespace korvane
