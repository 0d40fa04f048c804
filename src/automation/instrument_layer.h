// An instrument layer as automation objects, with the members of docs/instrument-objects.md, and a layer that consists
// of such objects.
#pragma once

#include <functional>
#include <memory>
#include <span>

#include "automation/class_description.h"
#include "korvane/instrument.h"

namespace korvane::automation {

/// The layer's objects, the layer itself first.
std::span<const ClassDescription> layer_class_descriptions();

/// The finder with a copy of its samples, which it reads in `run`. Null for null.
std::shared_ptr<PeakFinder> keeping_samples(std::shared_ptr<PeakFinder> finder);

/// The layer behind an object with the members of "InstrumentLayer" (docs/instrument-layer.md). The object is asked for
/// anew for everything that the layer makes, so that every thread can have its own.
std::shared_ptr<InstrumentLayer> make_late_bound_layer(std::function<Object()> layer);

}  // namespace korvane::automation
