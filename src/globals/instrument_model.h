// The one instrument model that rules depend on.
#pragma once

#include "korvane/instrument.h"
#include "korvane/instrument_contract.h"

namespace korvane {

inline bool is_model_4410(HardwareQueries& hardware) {
    return hardware.model().starts_with(contract::model_4410);
}

}  // namespace korvane
