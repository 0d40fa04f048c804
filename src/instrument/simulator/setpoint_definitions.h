// The setpoints of the simulated instrument.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace korvane::simulation {

/// Codes of the setpoint table's variable types.
enum class SetpointType : std::int32_t { int32 = 3, real = 4, int16 = 6 };

struct SetpointDefinition {
    std::int32_t index;
    std::string_view internal_name;
    std::string_view external_name;  ///< in metadata; none is the beginning of another, case ignored
    SetpointType type;
    double lower_limit, upper_limit, resolution, tolerance, default_value;
};

/// All setpoints, ascending by index.
std::span<const SetpointDefinition> setpoint_definitions();
/// Null where there is none.
const SetpointDefinition* find_setpoint(std::int32_t index);
const SetpointDefinition* find_setpoint(std::string_view internal_name);

/// Indexes to which the simulation itself gives a meaning.
namespace setpoint {
inline constexpr std::int32_t sampling_rate = 18;
inline constexpr std::int32_t quad_amu = 22;
inline constexpr std::int32_t preamp_offset = 62;
inline constexpr std::int32_t source_type = 117;
inline constexpr std::int32_t polarity = 119;
inline constexpr std::int32_t transients_1_ghz = 127;
inline constexpr std::int32_t gain_mode = 149;
inline constexpr std::int32_t transients_2_ghz = 160;
inline constexpr std::int32_t transients_4_ghz = 161;
inline constexpr std::int32_t slicer_position = 170;
}  // namespace setpoint

inline constexpr std::int32_t quad_amu_channel = 22;  ///< firmware channel of the quadrupole

}  // namespace korvane::simulation
