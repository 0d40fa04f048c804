// Masses turned into ranges of sample positions on a spectrum's mass axis.
#include <algorithm>
#include <cmath>

#include "spectrum/parser_state.h"

namespace korvane {

namespace {

constexpr std::string_view search_rule = "---------------------------------------------";

/// Both bounds of every window, one after the other, as masses.
std::vector<double> mass_bounds(TraceObj& record, const VariantArray<double>& masses, double delta_mass) {
    std::vector<double> bounds;
    for (std::int32_t i = 0; i <= masses.upper_bound(); ++i) {
        const double mass = masses.at(i);
        bounds.insert(bounds.end(), {mass - delta_mass, mass + delta_mass});
        record.TR_PRINT("MassWindow(", i, ") = [", mass - delta_mass, ", ", mass + delta_mass, "]");
    }
    return bounds;
}

/// The same for +-`percent` percent of flight time.
std::vector<double> percentage_bounds(TraceObj& record, const MassTimeCalibration& calibration,
                                      const VariantArray<double>& masses, double percent) {
    std::vector<double> listed;  // from position 0 on, wherever the array begins
    for (std::int32_t i = 0; i <= masses.upper_bound(); ++i) listed.push_back(masses.at(i));
    const std::vector<double> times = calibration.times_from_masses(listed);
    require_size("times_from_masses", times.size(), listed.size());
    std::vector<double> time_range_list;
    for (std::int32_t i = 0; i <= masses.upper_bound(); ++i) {
        const double mass = masses.at(i);
        const double time = times[static_cast<std::size_t>(i)];
        record.TR_PRINT("Masses(", i, ") = ", mass, "; Times(", i, ") = ", time);
        for (const double bound : {time - percent * time / 100, time + percent * time / 100}) {
            record.TR_PRINT("timeRangeList(", time_range_list.size(), "); mList(", i, "); times(", i, ") = ", bound);
            time_range_list.push_back(bound);
        }
    }
    std::vector<double> bounds = calibration.masses_from_times(time_range_list);
    require_size("masses_from_times", bounds.size(), time_range_list.size());
    for (std::size_t i = 0; 2 * i + 1 < bounds.size(); ++i) {
        record.TR_PRINT("TimeWindow(", i, ") = [", time_range_list[2 * i], ", ", time_range_list[2 * i + 1], "]");
        record.TR_PRINT("MassWindow(", i, ") = [", bounds[2 * i], ", ", bounds[2 * i + 1], "]");
    }
    return bounds;
}

/// Of a mass that the bisection does not find: at an end of the axis, where the mass lies beyond it.
std::int32_t nearest_sample(const VariantArray<double>& axis, double mass) {
    const auto masses = axis.elements();
    auto above = std::ranges::lower_bound(masses, mass);
    if (above == masses.end() || (above != masses.begin() && mass - above[-1] <= *above - mass)) --above;
    return axis.lower_bound() + static_cast<std::int32_t>(above - masses.begin());
}

}  // namespace

void SpectrumParser::CalculateTimeIndex(const VariantArray<double>& vMassData, const CalibrationObject& mtDLL,
                                        const VariantArray<double>& mList, double deltaMass, float percentT) {
    routine(impl_->trace, [&](TraceObj& record) {
        std::vector<double> bounds;
        if (percentT > 0) {
            record.TR_PRINT("Using %T window");
            if (!mtDLL) raise_runtime_fault(error_number::object_not_set, "mass-time calibration");
            bounds = percentage_bounds(record, *mtDLL, mList, static_cast<double>(percentT));
        } else if (deltaMass >= 0.0) {
            record.TR_PRINT("Using deltaMass window");
            bounds = mass_bounds(record, mList, deltaMass);
        } else {
            throw Error(error_number::routine_detected, "CalculateTimeIndex", "Invalid delta mass or percentage time");
        }
        impl_->windows.assign(bounds.size() / 2, IndexRange{});
        const auto edge = [&](double mass) {
            const std::int32_t found = GetMassArrayIndexForThisMass(vMassData, mass);
            return WindowEdge{static_cast<double>(found), found < 0 ? nearest_sample(vMassData, mass) : found};
        };
        for (std::size_t i = 0; i < impl_->windows.size(); ++i)
            impl_->windows[i] = {edge(bounds[2 * i]), edge(bounds[2 * i + 1])};
    });
}

std::int32_t SpectrumParser::GetMassArrayIndexForThisMass(const VariantArray<double>& vMassData, double mass) {
    return routine(impl_->trace, [&](TraceObj& record) {
        record.TR_PRINT(search_rule);
        record.TR_PRINT("searching mass index for mass ", mass);
        std::int32_t result = -1;
        std::int32_t low = 0, high = vMassData.upper_bound(), middle = 0;
        do {
            middle = to_int32((high - low) / 2.0 + low);
            const double here = vMassData.at(middle);
            const double next = vMassData.at(middle + 1);  // an axis of one sample fails here
            if (here < mass && next > mass) {
                result = std::abs(mass - next) < std::abs(mass - here) ? middle + 1 : middle;
                break;
            }
            (mass > here ? low : high) = middle;
        } while (low + 1 < high);
        if (result < 0 && vMassData.at(middle) == mass) result = middle;
        if (result >= 0) record.TR_PRINT("mass index for mass ", mass, "Is ", result);
        record.TR_PRINT(search_rule);
        return result;
    });
}

}  // namespace korvane
