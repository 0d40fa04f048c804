// The setpoints of a replay: memory that answers as an instrument does, without changing what is played.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "korvane/instrument.h"

namespace korvane::replay {

namespace setpoint {
inline constexpr std::int32_t sampling_rate = 18;
inline constexpr std::int32_t quad_amu = 22;
inline constexpr std::int32_t source_type = 117;
inline constexpr std::int32_t polarity = 119;
inline constexpr std::int32_t mass_range = 128;
inline constexpr std::int32_t upper_mass_limit = 135;
}  // namespace setpoint

/// The setpoints that the library reads by itself. Time and scan segments share one value. A written integer is
/// rounded, halves to even; a value outside the limits is error 5 naming setpoint and value.
class ReplaySetpoints final : public SetpointTable {
public:
    ReplaySetpoints();

    InstrumentValue value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) override;
    void write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
               const SetpointValue& value) override;
    double lower_limit(std::int32_t index) override;
    double upper_limit(std::int32_t index) override;
    double resolution(std::int32_t index) override;
    double tolerance(std::int32_t index) override;
    std::int32_t variable_type(std::int32_t index) override;
    std::string external_name(std::int32_t index) override;
    std::string internal_name(std::int32_t index) override;
    std::int32_t index_of(const std::string& internal_name) override;
    std::vector<std::int32_t> indexes() override;

    bool has(std::int32_t index) const { return values_.contains(index); }
    double number(std::int32_t index) const;
    /// Puts a value in the setpoint's type, without regard to limits: what the recording says is so.
    void preset(std::int32_t index, double value);

private:
    std::map<std::int32_t, double> values_;
};

}  // namespace korvane::replay
