// The scintillator setpoint, out of the way while peaks are measured.
#pragma once

#include "spectrum/session.h"

namespace korvane {

/// Not a guard: an error leaves the setpoint at 0, as the routines that measure promise.
class Scintillator {
public:
    enum class Access {
        table,   ///< writes the setpoint table; restores always
        awaited  ///< writes through the tune globals and waits for the value; restores where it differs
    };

    Scintillator(Session& session, Access access) : session_(session), access_(access) {}

    void put_aside(TraceObj& record);
    void restore();

private:
    void set(double value);

    Session& session_;
    Access access_;
    double kept_ = 0;
};

}  // namespace korvane
