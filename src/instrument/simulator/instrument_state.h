// What the instrument keeps from one program to the next: setpoints, calibrations, running hours of the slicer.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "instrument/simulator/scene.h"

namespace korvane::simulation {

/// A part that the file does not hold is absent and leaves the instrument as the scene has it.
struct InstrumentState {
    std::map<std::string, double> setpoints;                        ///< commanded values by internal name
    std::array<std::optional<CalibrationContent>, 2> calibrations;  ///< by polarity
    std::optional<std::vector<double>> slicer_hours;                ///< by position, 10 values
    friend bool operator==(const InstrumentState&, const InstrumentState&) = default;
};

inline constexpr std::size_t most_state_bytes = std::size_t{1} << 16;

/// `file_name` is what errors call the file. Error -904 naming the item and the file for anything that is not a state.
InstrumentState parse_state(std::string_view text, const std::string& file_name);
/// The text that `parse_state` reads back exactly.
std::string state_text(const InstrumentState& state);

}  // namespace korvane::simulation
