// Checks an instrument layer: every operation with right and with wrong arguments.
#pragma once

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

/// Runs on the connected instrument. It reads everything and takes a few spectra; what it writes is what was there
/// before (setpoints, firmware channel 22, calibrations), and one entry in the logbook. Never raises: an error is a
/// failed check.
KORVANE_API std::vector<ConformanceResult> check_instrument_layer(InstrumentLayer& layer);

}  // namespace korvane
