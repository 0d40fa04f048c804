// An instrument layer that consists of automation objects.
#pragma once

#include <memory>

#include "korvane/automation.h"
#include "korvane/instrument.h"

namespace korvane::automation {

/// The layer behind an object with the members of "InstrumentLayer" (docs/instrument-layer.md).
std::shared_ptr<InstrumentLayer> make_late_bound_layer(Object layer);

}  // namespace korvane::automation
