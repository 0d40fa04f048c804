// Values of the setpoints: what was commanded, and what the instrument has reached.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "instrument/simulator/scene.h"
#include "instrument/simulator/setpoint_definitions.h"
#include "korvane/records.h"

namespace korvane::simulation {

class SetpointBank {
public:
    /// Table defaults, then the scene's values.
    explicit SetpointBank(const Scene& scene);

    /// Error 9 naming an unknown index.
    const SetpointDefinition& definition(std::int32_t index) const;

    double commanded(std::int32_t index) const { return entry(index).commanded; }
    double actual(std::int32_t index) const { return entry(index).actual; }
    /// A value in the setpoint's type.
    static InstrumentValue typed(const SetpointDefinition& definition, double value);

    /// Integers are rounded, halves to even. Error 5 naming index, value and limits where the value is outside them or
    /// not a number. Returns whether the commanded value changed.
    bool command(std::int32_t index, const SetpointValue& value);
    /// The same without delay, for the firmware.
    bool command_now(std::int32_t index, double value);

    /// One spectrum passes: delayed values come nearer to arriving.
    void spectrum_begins();
    /// Changes whenever an actual value changes.
    std::uint64_t revision() const { return revision_; }

    std::map<std::string, double> commanded_by_name() const;
    /// Takes values over as they were kept; commanded and actual alike.
    void restore(const std::map<std::string, double>& values);

private:
    struct Entry {
        const SetpointDefinition* definition = nullptr;
        double commanded = 0, actual = 0;
        bool never_arrives = false;
        std::int64_t delay_spectra = 0;      // of every change
        std::int64_t remaining_spectra = 0;  // until the present command arrives
    };

    const Entry& entry(std::int32_t index) const;
    Entry& entry(std::int32_t index);
    static double checked(const SetpointDefinition& definition, double value);
    void arrive(Entry& entry);

    std::vector<Entry> entries_;  // in the order of the definitions
    std::uint64_t revision_ = 1;
};

}  // namespace korvane::simulation
