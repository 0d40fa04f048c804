// The setpoint table as it stands for the current segments.
#pragma once

#include <cstdint>

#include "korvane/instrument.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

/// Indexes of the setpoint table that rules depend on.
namespace setpoint_index {
inline constexpr std::int32_t sampling_rate = 18;
inline constexpr std::int32_t source_type = 117;
inline constexpr std::int32_t polarity = 119;
inline constexpr std::int32_t mass_range = 128;
inline constexpr std::int32_t highest_extended_mass = 135;
inline constexpr std::int32_t preamp_gain_mode = 149;
inline constexpr std::int32_t high_resolution = 150;
inline constexpr std::int32_t sheath_gas_pressure = 167;
inline constexpr std::int32_t sheath_gas_temperature = 169;
inline constexpr std::int32_t lowest_mass = 300;
}  // namespace setpoint_index

inline constexpr std::int32_t sampling_rate_1_ghz = 1;
inline constexpr std::int32_t sampling_rate_2_ghz = 2;
inline constexpr std::int32_t sampling_rate_4_ghz = 3;
inline constexpr std::int32_t low_gain_mode = 2;

/// Time and scan segment that every setpoint access names.
struct Segments {
    std::int32_t time = 0;
    std::int32_t scan = 0;
};

class CurrentSetpoints {
public:
    CurrentSetpoints(InstrumentGlobals& instrument, const Segments& segments)
        : instrument_(instrument), segments_(segments) {}

    SetpointTable& table() const { return instrument_.setpoints(); }
    double value(std::int32_t index) const { return to_double(table().value(index, segments_.time, segments_.scan)); }
    std::int32_t code(std::int32_t index) const {
        return to_int32(table().value(index, segments_.time, segments_.scan));
    }
    void write(std::int32_t index, const SetpointValue& value) const {
        table().write(index, segments_.time, segments_.scan, value);
    }
    bool is_positive() const { return value(setpoint_index::polarity) == 0; }

private:
    InstrumentGlobals& instrument_;
    const Segments& segments_;
};

}  // namespace korvane
