// An instrument layer that is not the embedded one.
#pragma once

#include <memory>
#include <string>

#include "korvane/instrument.h"

namespace korvane {

/// A shared library's layer or, where the system has automation, that of the object with this ProgID. Errors: -904
/// naming the library, 429 naming the ProgID.
std::shared_ptr<InstrumentLayer> make_outside_instrument(const std::string& name);

/// Makes a layer of automation objects. The automation room, which stands above this one, hands its way in.
using AutomationLayerMaker = std::shared_ptr<InstrumentLayer> (*)(const std::string& prog_id);
void set_automation_layer_maker(AutomationLayerMaker maker);

}  // namespace korvane
