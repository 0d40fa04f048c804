// Member tables of the stores (clsTuneParamsXML, clsTunePrefsXML, AbortHelper, CalMassList) and of the objects that
// members take and return (PeakList, MassTimeCalibration).
// The order of the lines is the order of the vtable; numbers and order are a public contract.
#pragma once

#include "automation/member.h"
#include "korvane/abort_helper.h"
#include "korvane/cal_mass_list.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "platform/text.h"

namespace korvane::automation {

inline constexpr auto tune_prefs_members = member_table(
    method<&clsTunePrefsXML::GetTunePreference>(1, "Text of a preference.", value("ParamName"),
                                                value("bReOpenXMLFile", false)),
    method<&clsTunePrefsXML::WriteTunePreference>(2, "Reloads the file, sets an existing preference and saves.",
                                                  value("strParamName"), reference("strNewParameterValue")));

inline constexpr auto abort_helper_members = member_table(
    method<&AbortHelper::Reset>(1, "Clears the request to abort."),
    method<&AbortHelper::TriggerAbort>(
        2, "Makes the request to abort; every process that polls the same file sees it. The result is always Empty.")
        .returning_variant(),
    method<&AbortHelper::UserHasClickedAbort>(3, "Whether an abort was requested; reads the file anew."));

inline constexpr auto cal_mass_list_members = member_table(
    method<&CalMassList::GetMassListArrayFromFile>(1, "All masses of one list straight from a file, used or not.",
                                                   reference("fileName"), reference("sourceType"),
                                                   reference("polarity")),
    method<&CalMassList::OpenMassListFile>(2, "Opens a mass-list file.", reference("fileName")),
    method<&CalMassList::CloseMassListFile>(3, "Closes the file and forgets what was not saved."),
    method<&CalMassList::SaveMassListToFile>(4,
                                             "Writes the changed lists and saves, under another name if one is given.",
                                             reference("fileName").may_be_missing()),
    method<&CalMassList::GetMassListArray>(5, "A list, one text a mass: the use flag, a tab, the m/z.",
                                           reference("sourceType"), reference("polarity")),
    method<&CalMassList::GetMassList>(6, "A list as one text, a line a mass.", reference("sourceType"),
                                      reference("polarity")),
    method<&CalMassList::UpdateMassList>(7, "Replaces a list and marks it as changed.", reference("sourceType"),
                                         reference("polarity"), reference("massList")),
    method<&CalMassList::IsMassListDirty>(8, "Whether a list was changed since it was opened or saved.",
                                          reference("sourceType"), reference("polarity")),
    method<&CalMassList::AnyMassListsDirty>(9, "Whether any list was changed."));

inline constexpr auto tune_params_members = member_table(
    method<&clsTuneParamsXML::GetTuneParamByXMLPath>(1, "Value of an element under the node that a query selects.",
                                                     value("XMLPath"), value("ParamName"),
                                                     value("bReOpenXMLFile", false)),
    method<&clsTuneParamsXML::WriteTuneParamValue>(
        2, "Sets the text of an existing element, after a reload, and saves.", value("ParamGroupName"),
        value("strParamName"), value("strNewParamValue"), value("strAltTreeNode", "AutotuneParameters")),
    method<&clsTuneParamsXML::GetAutoParm>(3, "A limit of a group by its number.", value("LimitGroupType"),
                                           value("LimitType"), value("bReOpenXMLFile", false)),
    method<&clsTuneParamsXML::GetAutotuneLimitValue>(4, "An autotune limit of a group by its name.",
                                                     value("LimitGroupType"), value("ParamName"),
                                                     value("bReOpenXMLFile", false)),
    method<&clsTuneParamsXML::GetManualTuneValue>(
        5, "A manual tune value; the group is IndexedSlicer, Calibration or SetpointUI.", value("GroupType"),
        value("ParamName"), value("bReOpenXMLFile", false)),
    method<&clsTuneParamsXML::IsThisSourceSupportedForAutotuning>(
        6, "Whether a source may be autotuned in a polarity; reloads the file.", reference("strPolarity"),
        reference("StrSourceType")),
    method<&clsTuneParamsXML::GetAutotuneParameterXMLPath>(7, "Name of the tune parameter file, without folder."));

/// All records in the units of the list; an array of records.
inline Value peak_records(PeakList& peaks) {
    std::vector<Record> records;
    for (std::int32_t index = 0; index < peaks.count(); ++index)
        records.emplace_back(peaks.GetPeakAttributeInfo(index, true));
    return Array(std::move(records));
}

/// One value of a record by its name ("pkHeight"), whatever the case. Error 5 naming an unknown name.
inline double peak_value(PeakList& peaks, std::int32_t index, const std::string& name, bool current_units) {
    const auto* const known =
        std::ranges::find_if(peak_info_names, [&](const char* each) { return equal_but_for_case(each, name); });
    if (known == peak_info_names.end())
        raise_runtime_fault(error_number::invalid_call, "peak record value [" + name + "]");
    return peaks.GetPeakAttributeInfo(index, current_units)
        .value(static_cast<std::int32_t>(known - peak_info_names.begin()));
}

inline void convert_peaks(PeakList& peaks, const CalibrationObject& calibration, std::int32_t mode) {
    if (!calibration) raise_runtime_fault(error_number::object_not_set, "Calibration[Nothing] of Convert");
    peaks.convert(*calibration, mode);
}

inline constexpr auto peak_list_members = member_table(
    property<&PeakList::count>(1, "Count", "Number of peaks."),
    property<&peak_records>(2, "Records", "All records in the list's units, as an array."),
    method<&PeakList::order>(
        3, "Order",
        "Orders by a record position, 0 to 7; direction 0 puts the largest value first, any other the smallest.",
        value("Position"), value("Direction", 0)),
    method<&PeakList::GetPeakAttributeInfo>(
        4, "Record of a peak, index from 0; CurrentUnits False gives nanoseconds even after a conversion.",
        value("Index"), value("CurrentUnits", true)),
    method<&peak_value>(5, "GetPeakValue", "One value of a peak's record by its name, such as pkHeight.",
                        value("Index"), value("Name"), value("CurrentUnits", true)),
    method<&convert_peaks>(6, "Convert", "Converts all records from nanoseconds to amu (mode 2).",
                           reference("Calibration"), value("Mode", convert_to_amu_mode)));

inline constexpr auto mass_time_calibration_members = member_table(
    property<&MassTimeCalibration::coefficients>(1, "Coefficients", "The coefficients, in nanoseconds."),
    property<&MassTimeCalibration::settings>(2, "Settings", "The settings."),
    property<&MassTimeCalibration::use_flags>(3, "UseFlags", "An array, indexed by term number; 1 is used."),
    method<&MassTimeCalibration::set_coefficients>(4, "SetCoefficients", "Sets the coefficients, in nanoseconds.",
                                                   reference("Coefficients")),
    method<&MassTimeCalibration::set_settings>(5, "SetSettings", "Sets the settings.", reference("Settings")),
    method<&MassTimeCalibration::mass_from_time>(6, "MassFromTime", "Mass in amu of a flight time in ns.",
                                                 value("Time")),
    method<&MassTimeCalibration::time_from_mass>(7, "TimeFromMass", "Flight time in ns of a mass in amu.",
                                                 value("Mass")),
    method<&MassTimeCalibration::masses_from_times>(8, "MassesFromTimes", "Masses of an array of flight times.",
                                                    reference("Times")),
    method<&MassTimeCalibration::times_from_masses>(9, "TimesFromMasses", "Flight times of an array of masses.",
                                                    reference("Masses")),
    method<&MassTimeCalibration::clone>(10, "Clone", "An independent calibration with the same content."));

}  // namespace korvane::automation
