// An instrument layer out of a shared library.
#pragma once

#include <memory>
#include <string>

#include "korvane/instrument.h"

namespace korvane {

/// Whether a name is that of a library file rather than of an automation object: it has a path or a library's ending.
bool names_library(const std::string& name);

/// Loads the library (a UTF-8 path) and makes its layer. Error -904 naming the file where it has no folder, cannot be
/// loaded, has not the entry point, was built for another version of the interface (both numbers are told), or where
/// the layer cannot be made; an `Error` of the layer itself as it is.
std::shared_ptr<InstrumentLayer> load_instrument_library(const std::string& path);

}  // namespace korvane
