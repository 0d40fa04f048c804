#include "globals/mass_range.h"

#include <algorithm>
#include <limits>

#include "korvane/cal_mass_list.h"
#include "platform/files.h"

namespace korvane {

namespace {

constexpr double highest_mass_low_range = 1700;
constexpr double highest_mass_standard_range = 3200;
constexpr double highest_mass_high_range = 20000;
constexpr double highest_mass_long_tube_at_2_ghz = 10000;

}  // namespace

MassRangeComboBoxSelection MassRange::selection() const {
    return static_cast<MassRangeComboBoxSelection>(setpoints_.code(contract::setpoint.mass_range));
}

double MassRange::highest_mass() {
    return routine(trace_, {"GetMaxMassForCurrentMassRange"}, [&] {
        switch (selection()) {
            case MassRangeComboBoxSelection::MassRangeComboBoxSelection_Low:
                return highest_mass_low_range;
            case MassRangeComboBoxSelection::MassRangeComboBoxSelection_Standard:
                return highest_mass_standard_range;
            default:
                break;
        }
        const bool long_tube_at_2_ghz =
            instrument_->hardware().has_160cm_flight_tube() &&
            setpoints_.code(contract::setpoint.sampling_rate) == contract::sampling_rate.at_2_ghz;
        return long_tube_at_2_ghz ? highest_mass_long_tube_at_2_ghz : highest_mass_high_range;
    });
}

bool MassRange::contains(double mass) {
    return routine(trace_, {"IsThisMassInCurrentMassRange"}, [&] {
        const double lowest = setpoints_.value(contract::setpoint.lowest_mass);
        double highest = highest_mass();
        if (selection() == MassRangeComboBoxSelection::MassRangeComboBoxSelection_High)
            highest = std::min(highest, setpoints_.value(contract::setpoint.highest_extended_mass));
        return mass >= lowest && mass <= highest;
    });
}

VariantArray<double> MassRange::default_mass_list(const std::string& source_type, const std::string& polarity) {
    const ErrorLine line{"GetDefaultMassList.Err.number[", "], err.Description[", "]"};
    return routine(trace_, {"GetDefaultMassList"}, line, [&]() -> VariantArray<double> {
        const std::string file_name =
            join_path(join_path(base_folder(*platform_.instrument), "MassLists"), "default_calibration_mass_list.xml");
        const VariantArray<double> all =
            CalMassList(platform_).GetMassListArrayFromFile(file_name, source_type, polarity);
        const double limit = highest_mass();
        const std::size_t count = count_below(all, limit);
        if (count == 0)
            raise_runtime_fault(error_number::subscript, text_of("no mass below ", limit, " in ", file_name));
        // The first ones, not the ones below the limit: the file lists them in ascending order.
        const auto kept = all.elements().first(count);
        return std::vector<double>(kept.begin(), kept.end());
    });
}

std::size_t MassRange::count_below(const VariantArray<double>& masses, double limit) const {
    const auto elements = masses.elements();
    const auto count = std::count_if(elements.begin(), elements.end(), [&](double mass) { return mass < limit; });
    // The rule's counter has 16 bits.
    if (count > std::numeric_limits<std::int16_t>::max())
        raise_runtime_fault(error_number::overflow, text_of(count, " masses below ", limit));
    return static_cast<std::size_t>(count);
}

double MassRange::largest_of(const VariantArray<double>& masses) {
    return routine(trace_, {"LargestMassInMassList"}, [&](TraceObj& record) {
        const std::int32_t upper = masses.upper_bound();
        record.TR_PRINT("upper = ", upper);
        double largest = 0;
        for (std::int32_t index = 0; index <= upper; ++index) {
            const double mass = masses.at(index);
            record.TR_PRINT("mass ", index, ": ", mass);
            if (largest < mass) largest = mass;
        }
        record.TR_PRINT("Largest mass = ", largest);
        return largest;
    });
}

}  // namespace korvane
