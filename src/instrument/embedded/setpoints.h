// The setpoints of the embedded instrument: one table of definitions, and the values commanded and reached.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "korvane/instrument_contract.h"
#include "korvane/records.h"

namespace korvane::embedded {

/// Indexes beside those of the contract to which the embedded instrument gives a meaning.
inline constexpr std::int32_t quad_amu_setpoint = 22;
inline constexpr std::int32_t preamp_offset_setpoint = 62;
inline constexpr std::int32_t slicer_position_setpoint = 170;

struct SetpointDefinition {
    std::int32_t index;
    const char* internal_name;
    const char* external_name;  ///< in metadata; none is the beginning of another, case ignored
    std::int32_t type;          ///< one of `contract::variable_type`
    double lower_limit, upper_limit, resolution, tolerance, default_value;

    /// A value in the setpoint's type.
    InstrumentValue typed(double value) const;
};

/// All setpoints, ascending by index.
std::span<const SetpointDefinition> setpoint_definitions();
/// Error 9 naming an index that there is not.
const SetpointDefinition& setpoint_definition(std::int32_t index);
/// Null where there is none.
const SetpointDefinition* find_setpoint(std::string_view internal_name);

class Setpoints {
public:
    /// Every setpoint at its default. `owner` is the source of the errors.
    explicit Setpoints(std::string owner);

    double commanded(std::int32_t index) const { return entry(index).commanded; }
    double actual(std::int32_t index) const { return entry(index).actual; }

    /// Integers are rounded, halves to even. Error 9 naming an unknown index; 5 naming index, value and limits where
    /// the value is outside them or not a number. `at_once` passes over the delay. Returns whether the commanded value
    /// changed.
    bool command(std::int32_t index, const SetpointValue& value, bool at_once = false);
    /// Commanded and reached alike, whatever the limits; integers are rounded.
    void preset(std::int32_t index, double value);
    void preset(const std::map<std::string, double>& values_by_name);
    /// Lets every change arrive after so many spectra only; nothing: never.
    void delay(std::int32_t index, std::optional<std::int64_t> spectra);

    /// One spectrum passes: delayed values come nearer to arriving.
    void spectrum_begins();
    std::map<std::string, double> commanded_by_name() const;

private:
    struct Entry {
        const SetpointDefinition* definition = nullptr;
        double commanded = 0, actual = 0;
        std::optional<std::int64_t> delay_spectra = 0;  // of every change; nothing: it never arrives
        std::int64_t remaining_spectra = 0;             // until the present command arrives

        void arrive() {
            remaining_spectra = 0;
            actual = commanded;
        }
    };

    const Entry& entry(std::int32_t index) const;
    Entry& entry(std::int32_t index);

    std::string owner_;
    std::vector<Entry> entries_;  // in the order of the definitions
};

}  // namespace korvane::embedded
