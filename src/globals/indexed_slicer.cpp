#include "globals/indexed_slicer.h"

namespace korvane {

namespace {

const std::string slicer_group = "IndexedSlicer";
constexpr std::int32_t no_position = -1;

}  // namespace

std::int32_t IndexedSlicer::current_position() {
    return to_int32(setpoints_.get(contract::slicer.position));
}

std::int32_t IndexedSlicer::configured(const std::string& name) {
    return to_int32(parameters_.GetManualTuneValue(slicer_group, name));
}

bool IndexedSlicer::is_high_resolution() {
    return routine(trace_, {"IsSlicerPosHighResolution"},
                   [&] { return current_position() >= configured("HighResolutionFirstPosition"); });
}

double IndexedSlicer::seek_clean_position() {
    return routine(trace_, {"SeekNextAvailableCleanSlicerPosForTune"}, [&]() -> double {
        const std::int32_t position = next_clean_position();
        if (position == no_position)
            logs_.write_tune_line(
                "AUTOTUNE LOG: WARNING: no slicer position is left whose running hours are below the limit");
        else
            move_to(position);
        return position;
    });
}

std::int32_t IndexedSlicer::next_clean_position() {
    const double limit_hours = parameters_.GetAutotuneLimitValue("Limits", "InitTOFTune_MaxRunTimeOnSlicerPos_hrs");
    const std::int32_t count = configured("NumberOfPositions");
    const std::int32_t first_high_resolution = configured("HighResolutionFirstPosition");
    if (preferences_.GetTunePreference("SlicerLifeTime_SimulateOverLimit", true) == "Yes") return no_position;
    const std::int32_t current = current_position();
    if (current < 1 || current > count)
        throw Error(error_number::routine_detected, "SeekNextAvailableCleanSlicerPosForTune",
                    text_of("slicer position[", current, "] is not one of [", count, "]"));
    const bool high_resolution = current >= first_high_resolution;
    for (std::int32_t step = 1; step <= count; ++step) {
        const std::int32_t position = (current - 1 + step) % count + 1;
        if ((position >= first_high_resolution) != high_resolution) continue;
        if (to_double(instrument_->dictionary_item(contract::slicer_hours_item(position))) < limit_hours)
            return position;
    }
    return no_position;
}

void IndexedSlicer::move_to(std::int32_t position) {
    SetpointChange change;
    change.new_value = position;
    const double reached = setpoints_.set(contract::slicer.position, change);
    if (reached != position)
        throw Error(error_number::routine_detected, "SeekNextAvailableCleanSlicerPosForTune",
                    text_of("slicer position[", position, "] was not taken; position[", reached, "]"));
}

}  // namespace korvane
