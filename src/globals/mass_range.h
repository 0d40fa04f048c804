// The mass range the instrument is set to, and the calibrant masses within it.
#pragma once

#include <string>

#include "frame/routine.h"
#include "globals/current_setpoints.h"
#include "korvane/enumerations.h"
#include "korvane/platform.h"

namespace korvane {

class MassRange {
public:
    MassRange(const Trace& trace, const LazyInstrument& instrument, const CurrentSetpoints& setpoints,
              const Platform& platform)
        : trace_(trace), instrument_(instrument), setpoints_(setpoints), platform_(platform) {}

    double highest_mass();
    bool contains(double mass);
    /// The file's list, cut to as many masses as lie below the highest mass.
    VariantArray<double> default_mass_list(const std::string& source_type, const std::string& polarity);
    double largest_of(const VariantArray<double>& masses);

private:
    MassRangeComboBoxSelection selection() const;
    std::size_t count_below(const VariantArray<double>& masses, double limit) const;

    const Trace& trace_;
    const LazyInstrument& instrument_;
    const CurrentSetpoints& setpoints_;
    const Platform& platform_;
};

}  // namespace korvane
