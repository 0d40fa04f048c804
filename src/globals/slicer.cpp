// The indexed slicer: positions of two resolutions that wear with running hours.
#include "globals/tune_globals_state.h"

namespace korvane {

namespace {

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
