// An instrument layer as automation objects: the members of docs/instrument-objects.md.
#pragma once

#include <span>

#include "automation/class_description.h"
#include "korvane/instrument.h"

namespace korvane::automation {

/// The layer's objects, the layer itself first.
std::span<const ClassDescription> layer_class_descriptions();

/// A layer as an automation object of class "InstrumentLayer".
Object object_of_layer(std::shared_ptr<InstrumentLayer> layer);
/// The same of a part of one.
Object object_of_peak_finder(std::shared_ptr<PeakFinder> finder);

}  // namespace korvane::automation
