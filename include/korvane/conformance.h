// Checks an instrument layer: every operation with right and with wrong arguments.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "korvane/instrument.h"

namespace korvane {

struct ConformanceResult {
    std::string operation;  ///< "SetpointTable.value"
    std::string check;      ///< what was expected
    bool passed = false;
    std::string detail;  ///< of a failure
};

/// Called before every check, with what is expected, and after it.
using ConformanceObserver = std::function<void(const ConformanceResult& result, bool is_over)>;

/// Runs on the connected instrument. It reads everything, takes a few spectra and writes one entry in the logbook. What
/// it moves it puts back: setpoints that take any number by one step of their resolution, firmware channel 22 by a
/// hundredth, coefficient B of the calibrations by 1 ns. Never raises: an error is a failed check.
KORVANE_API std::vector<ConformanceResult> check_instrument_layer(InstrumentLayer& layer,
                                                                  const ConformanceObserver& observer = {});

}  // namespace korvane
