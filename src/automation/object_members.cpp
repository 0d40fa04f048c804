#include "automation/object_members.h"

#include <algorithm>
#include "platform/text.h"

namespace korvane::automation {

Value peak_records(PeakList& peaks) {
    std::vector<Record> records;
    for (std::int32_t index = 0; index < peaks.count(); ++index)
        records.emplace_back(peaks.GetPeakAttributeInfo(index, true));
    return Array(std::move(records));
}

double peak_value(PeakList& peaks, std::int32_t index, const std::string& name, bool current_units) {
    const auto* const known = std::find_if(peak_info_names.begin(), peak_info_names.end(),
                                           [&](const char* each) { return equal_but_for_case(each, name); });
    if (known == peak_info_names.end())
        raise_runtime_fault(error_number::invalid_call, "peak record value [" + name + "]");
    return peaks.GetPeakAttributeInfo(index, current_units)
        .value(static_cast<std::int32_t>(known - peak_info_names.begin()));
}

void convert_peaks(PeakList& peaks, const CalibrationObject& calibration, std::int32_t mode) {
    if (!calibration) raise_runtime_fault(error_number::object_not_set, "Calibration[Nothing] of Convert");
    peaks.convert(*calibration, mode);
}

}  // namespace korvane::automation
