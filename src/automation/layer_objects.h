// An instrument layer as automation objects: the members of docs/instrument-objects.md.
#pragma once

#include <span>

#include "automation/class_description.h"
#include "korvane/instrument.h"

namespace korvane::automation {

/// The layer's objects, the layer itself first.
std::span<const ClassDescription> layer_class_descriptions();

/// The finder with a copy of its samples, which it reads in `run`. Null for null.
std::shared_ptr<PeakFinder> keeping_samples(std::shared_ptr<PeakFinder> finder);

}  // namespace korvane::automation
