// Without Windows there are no automation objects of the system.
#ifndef _WIN32

#include "korvane/automation.h"

namespace korvane::automation {

const Platform& process_platform() {
    return Platform::process_default();
}

Platform make_outside_platform(const std::string& instrument) {
    return korvane::make_outside_platform(instrument);
}

Platform with_system_tracer(Platform platform) {
    return platform;
}

}  // namespace korvane::automation

#endif
