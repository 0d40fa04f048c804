// The one instrument model that rules depend on.
#pragma once

#include "korvane/instrument.h"

namespace korvane {

/// Only the first five characters tell.
inline bool is_model_4410(HardwareQueries& hardware) {
    return hardware.model().starts_with("K4410");
}

}  // namespace korvane
