// The seam's objects as views of one simulated instrument.
#pragma once

#include <memory>

#include "instrument/simulator/simulated_instrument.h"
#include "korvane/instrument.h"

namespace korvane::simulation {

std::unique_ptr<InstrumentGlobals> make_globals_view(std::shared_ptr<SimulatedInstrument> instrument);

}  // namespace korvane::simulation
