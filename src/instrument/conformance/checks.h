// The list of checks as it grows.
#pragma once

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "korvane/conformance.h"

namespace korvane {

class ConformanceChecks {
public:
    /// Passes when `body` returns no text; what it returns is the detail of the failure. An error is a failure.
    void check(const std::string& operation, const std::string& expected, const std::function<std::string()>& body);
    /// Passes when `body` raises an error of this number whose description contains `item`.
    void refuses(const std::string& operation, const std::string& expected, std::int32_t number,
                 const std::string& item, const std::function<void()>& body);

    std::vector<ConformanceResult> results;
};

/// The text of a failure unless the condition holds.
inline std::string unless(bool condition, const std::string& failure) {
    return condition ? std::string() : failure;
}

void check_setpoints(ConformanceChecks& checks, InstrumentGlobals& globals);
void check_control(ConformanceChecks& checks, InstrumentGlobals& globals);
void check_calibrations(ConformanceChecks& checks, InstrumentGlobals& globals);
void check_state(ConformanceChecks& checks, InstrumentGlobals& globals);
void check_peak_finder(ConformanceChecks& checks, InstrumentLayer& layer);

}  // namespace korvane
