// An instrument layer that consists of automation objects.
#pragma once

#include <functional>
#include <memory>

#include "korvane/automation.h"
#include "korvane/instrument.h"

namespace korvane::automation {

/// The layer behind an object with the members of "InstrumentLayer" (docs/instrument-layer.md). The object is asked for
/// anew for everything that the layer makes, so that every thread can have its own.
std::shared_ptr<InstrumentLayer> make_late_bound_layer(std::function<Object()> layer);

}  // namespace korvane::automation
