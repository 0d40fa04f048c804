// The embedded instrument with a clock whose second lasts half a minute: a lock is waited for a second, and on a
// machine with other work a turn may take longer than one of its own.
#pragma once

#include "korvane/forwarding.h"
#include "korvane/korvane.h"

namespace korvane {

struct SlowClock final : ForwardingClock {
    using ForwardingClock::ForwardingClock;
    double seconds_since_midnight() override { return ForwardingClock::seconds_since_midnight() / 30; }
};

inline Platform patient_platform(const std::string& base) {
    Platform platform = make_embedded_platform({.base_folder = base});
    platform.clock = std::make_shared<SlowClock>(make_system_clock());
    return platform;
}

}  // namespace korvane
