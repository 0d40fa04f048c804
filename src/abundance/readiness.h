// Whether the instrument is ready for the next measurement.
#pragma once

#include "spectrum/session.h"

namespace korvane {

class Readiness {
public:
    explicit Readiness(Session& session) : session_(session) {}

    /// Not ready is a negative not-ready state, as a 16-bit integer.
    bool CheckInstrumentReadyState();
    /// Polls every 500 ms, without a time-out. Error 1 when the user asks to abort.
    void wait_until_ready();

private:
    Session& session_;
};

}  // namespace korvane
