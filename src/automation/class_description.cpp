#include "automation/class_description.h"

#include <algorithm>
#include <array>

#include "automation/spectrum_parser_members.h"
#include "automation/store_and_object_members.h"
#include "automation/tune_globals_members.h"
#include "platform/text.h"

namespace korvane::automation {

namespace {

template <class C>
std::shared_ptr<void> create(const Platform& platform) {
    return std::make_shared<C>(platform);
}

}  // namespace

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

Value default_value_of(const Parameter& parameter) {
    const auto as_value = [](const auto& content) -> Value {
        if constexpr (requires { Value(content); }) return content;
        return Missing{};
    };
    return std::visit(as_value, parameter.default_value);
}

std::span<const ClassDescription> class_descriptions() {
    static const std::array<ClassDescription, 8> classes{{
        {"TuneGlobals", "6e684b45-8112-40cc-a61a-aec826883ccd", "9bc6a968-e3f2-43c0-a64a-297d3a1ee9f1",
         "Shared tune state and helpers.", tune_globals_members, &create<TuneGlobals>},
        {"SpectrumParser", "30bbefca-d34c-46f6-93bc-f38f60a102bf", "7711b7af-5a63-4d5a-867c-a65d3593f010",
         "Spectrum acquisition, peak measurement, abundance adjustment.", spectrum_parser_members,
         &create<SpectrumParser>},
        {"CalMassList", "8b2d20f6-2d87-4a3e-b9df-a677257d3d94", "0afd9d74-1aaf-42c3-b6ac-d23494915e1c",
         "The calibrant mass-list file.", cal_mass_list_members, &create<CalMassList>},
        {"clsTuneParamsXML", "e18958ad-2bc6-49bd-baba-00dbca4ce905", "ef41bd08-fb19-4419-bbec-842b24f4df47",
         "The tune parameter file.", tune_params_members, &create<clsTuneParamsXML>},
        {"clsTunePrefsXML", "080ba38a-31d2-40a7-8ea0-672f33042b11", "0fcd36cb-ac62-4c52-a18f-c1298cab3f87",
         "The tune preference file.", tune_prefs_members, &create<clsTunePrefsXML>},
        {"AbortHelper", "563a22ab-aaf4-4cb1-ab7c-c2cae4999944", "691781c6-e04a-407a-a4b7-3bba94599b0f",
         "The abort flag, shared by all processes.", abort_helper_members, &create<AbortHelper>},
        {"PeakList", "b42ed16d-34a6-4dfa-8932-7bd0ed117466", "c1531d77-c2e7-4ca7-9627-f88ff075ced1",
         "The peaks that a search found.", peak_list_members},
        {"MassTimeCalibration", "8f1559e5-a122-4d86-9ca6-97c5a428958e", "ddfa12c3-2ccc-426d-8f9f-772ccf0772af",
         "Conversion between flight time and mass.", mass_time_calibration_members},
    }};
    return classes;
}

const ClassDescription* find_class(std::string_view name) {
    for (const ClassDescription& description : class_descriptions())
        if (equal_but_for_case(description.name, name) || equal_but_for_case(description.prog_id(), name))
            return &description;
    return nullptr;
}

}  // namespace korvane::automation
