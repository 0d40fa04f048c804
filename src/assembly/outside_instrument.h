// An instrument layer out of a shared library.
#pragma once

#include <memory>
#include <string>

#include "korvane/instrument.h"

namespace korvane {

/// A shared library's layer. Errors: -904 naming the library, 429 naming what is no library file.
std::shared_ptr<InstrumentLayer> make_outside_instrument(const std::string& name);

}  // namespace korvane
