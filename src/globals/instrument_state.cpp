// The state of the instrument in words, its mass range, the calibrant masses within that, and the indexed slicer:
// positions of two resolutions that wear with running hours.
#include <algorithm>
#include <limits>

#include "globals/tune_globals_state.h"
#include "korvane/cal_mass_list.h"
#include "platform/files.h"

namespace korvane {

namespace {

using contract::setpoint;

struct MassRange {
    double highest_mass;
    const char* text;
};

MassRangeComboBoxSelection selected_range(const TuneGlobalsState& state) {
    return static_cast<MassRangeComboBoxSelection>(state.setpoints.code(setpoint.mass_range));
}

/// `rate` gives the sampling rate, where it matters.
template <class Rate>
MassRange current_mass_range(const TuneGlobalsState& state, const Rate& rate) {
    switch (selected_range(state)) {
        case MassRangeComboBoxSelection::MassRangeComboBoxSelection_Low:
            return {1700, " in 1700 m/z Mass Range"};
        case MassRangeComboBoxSelection::MassRangeComboBoxSelection_Standard:
            return {3200, " in 3200 m/z Mass Range"};
        default:
            break;
    }
    if (state.hardware().has_160cm_flight_tube() && rate() == contract::sampling_rate.at_2_ghz)
        return {10000, " in 10,000 m/z Mass Range"};
    return {20000, " in 20,000 m/z Mass Range"};
}

std::string text_at_2_ghz(const TuneGlobalsState& state) {
    switch (state.setpoints.code(setpoint.preamp_gain_mode)) {
        case contract::preamp_gain_mode.standard:
            return state.hardware().has_160cm_flight_tube() ? "2 GHz, Extended Mass Range"
                                                            : "2 GHz, Extended Dynamic Range Disabled";
        case contract::preamp_gain_mode.high:
            return "2 GHz, High Gain";
        case contract::preamp_gain_mode.low:
            return "2 GHz, Low Gain";
        case contract::preamp_gain_mode.extended:
            return "Extended Dynamic Range (2 GHz)";
        default:
            return "2 GHz";
    }
}

std::string text_of_rate(const TuneGlobalsState& state, std::int32_t rate) {
    switch (rate) {
        case contract::sampling_rate.at_1_ghz:
            return "Minimum Storage Size (1 GHz)";
        case contract::sampling_rate.at_2_ghz:
            return text_at_2_ghz(state);
        case contract::sampling_rate.at_4_ghz:
            return state.setpoints.value(setpoint.high_resolution) != 0 ? "4 GHz, High Resolution" : "4 GHz";
        default:
            return {};
    }
}

std::size_t count_below(const VariantArray<double>& masses, double limit) {
    const auto count = std::ranges::count_if(masses.elements(), [&](double mass) { return mass < limit; });
    // The rule's counter has 16 bits.
    if (count > std::numeric_limits<std::int16_t>::max())
        raise_runtime_fault(error_number::overflow, count, " masses below ", limit);
    return static_cast<std::size_t>(count);
}

constexpr std::int32_t no_position = -1;

std::int32_t configured(TuneGlobalsState& state, const char* name) {
    return to_int32(state.parameters.GetManualTuneValue("IndexedSlicer", name));
}

std::int32_t first_high_resolution_position(TuneGlobalsState& state) {
    return configured(state, "HighResolutionFirstPosition");
}

std::int32_t slicer_position(TuneGlobals& globals) {
    return to_int32(globals.GetMSSetpointValueByInternalName(contract::slicer.position));
}

[[noreturn]] void raise_of_slicer(const std::string& description) {
    throw Error(error_number::routine_detected, "SeekNextAvailableCleanSlicerPosForTune", description);
}

/// The next position of the same resolution whose running hours are below the limit.
std::int32_t next_clean_position(TuneGlobalsState& state, TuneGlobals& globals) {
    const double limit_hours = state.limit("Limits", "InitTOFTune_MaxRunTimeOnSlicerPos_hrs");
    const std::int32_t count = configured(state, "NumberOfPositions");
    const std::int32_t first_high_resolution = first_high_resolution_position(state);
    if (state.preferences.GetTunePreference("SlicerLifeTime_SimulateOverLimit", true) == "Yes") return no_position;
    const std::int32_t current = slicer_position(globals);
    if (current < 1 || current > count)
        raise_of_slicer(text_of("slicer position[", current, "] is not one of [", count, "]"));
    const bool high_resolution = current >= first_high_resolution;
    for (std::int32_t step = 1; step <= count; ++step) {
        const std::int32_t position = (current - 1 + step) % count + 1;
        if ((position >= first_high_resolution) != high_resolution) continue;
        if (to_double(state.instrument->dictionary_item(contract::slicer_hours_item(position))) < limit_hours)
            return position;
    }
    return no_position;
}

}  // namespace

std::string TuneGlobals::GetCurrentInstrumentStateAsString() {
    return routine(impl_->trace, [&] {
        const std::int32_t rate = impl_->setpoints.code(setpoint.sampling_rate);
        const std::string text = text_of_rate(*impl_, rate);
        return text + current_mass_range(*impl_, [&] { return rate; }).text;
    });
}

double TuneGlobals::GetMaxMassForCurrentMassRange() {
    return routine(impl_->trace, [&] {
        return current_mass_range(*impl_, [&] { return impl_->setpoints.code(setpoint.sampling_rate); }).highest_mass;
    });
}

bool TuneGlobals::IsThisMassInCurrentMassRange(double mz) {
    return routine(impl_->trace, [&] {
        const double lowest = impl_->setpoints.value(setpoint.lowest_mass);
        double highest = GetMaxMassForCurrentMassRange();
        if (selected_range(*impl_) == MassRangeComboBoxSelection::MassRangeComboBoxSelection_High)
            highest = std::min(highest, impl_->setpoints.value(setpoint.highest_extended_mass));
        return mz >= lowest && mz <= highest;
    });
}

VariantArray<double> TuneGlobals::GetDefaultMassList(const std::string& sourceType, const std::string& polarity) {
    const ErrorLine line{"GetDefaultMassList.Err.number[", "], err.Description[", "]"};
    return routine(impl_->trace, line, [&]() -> VariantArray<double> {
        const std::string file_name = join_path(join_path(base_folder(*impl_->platform.instrument), "MassLists"),
                                                "default_calibration_mass_list.xml");
        const VariantArray<double> all =
            CalMassList(impl_->platform).GetMassListArrayFromFile(file_name, sourceType, polarity);
        const double limit = GetMaxMassForCurrentMassRange();
        const std::size_t count = count_below(all, limit);
        if (count == 0) raise_runtime_fault(error_number::subscript, "no mass below ", limit, " in ", file_name);
        // The first ones, not the ones below the limit: the file lists them in ascending order.
        const auto kept = all.elements().first(count);
        return std::vector<double>(kept.begin(), kept.end());
    });
}

double TuneGlobals::LargestMassInMassList(const VariantArray<double>& massList) {
    return routine(impl_->trace, [&](TraceObj& record) {
        const std::int32_t upper = massList.upper_bound();
        record.TR_PRINT("upper = ", upper);
        double largest = 0;
        for (std::int32_t index = 0; index <= upper; ++index) {
            const double mass = massList.at(index);
            record.TR_PRINT("mass ", index, ": ", mass);
            if (largest < mass) largest = mass;
        }
        record.TR_PRINT("Largest mass = ", largest);
        return largest;
    });
}

bool TuneGlobals::IsSlicerPosHighResolution() {
    return routine(impl_->trace, [&] { return slicer_position(*this) >= first_high_resolution_position(*impl_); });
}

double TuneGlobals::SeekNextAvailableCleanSlicerPosForTune() {
    return routine(impl_->trace, [&]() -> double {
        const std::int32_t position = next_clean_position(*impl_, *this);
        if (position == no_position) {
            WriteLineToTuneLogFile(
                "AUTOTUNE LOG: WARNING: no slicer position is left whose running hours are below the limit");
            return no_position;
        }
        const double reached = SetMSSetpointValueByInternalName(contract::slicer.position, position);
        if (reached != position)
            raise_of_slicer(text_of("slicer position[", position, "] was not taken; position[", reached, "]"));
        return position;
    });
}

}  // namespace korvane
