// Member tables of the stores: clsTuneParamsXML, clsTunePrefsXML, AbortHelper, CalMassList.
// The order of the lines is the order of the vtable; numbers and order are a public contract.
#pragma once

#include "automation/member.h"
#include "korvane/abort_helper.h"
#include "korvane/cal_mass_list.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"

namespace korvane::automation {

inline constexpr auto tune_prefs_members = member_table(
    method<&clsTunePrefsXML::GetTunePreference>(1, "Text of a preference.", value("ParamName"),
                                                value("bReOpenXMLFile", false)),
    method<&clsTunePrefsXML::WriteTunePreference>(2, "Reloads the file, sets an existing preference and saves.",
                                                  value("strParamName"), reference("strNewParameterValue")));

/// The result is always Empty.
inline Value trigger_abort(AbortHelper& helper) {
    helper.TriggerAbort();
    return Empty{};
}

inline constexpr auto abort_helper_members = member_table(
    method<&AbortHelper::Reset>(1, "Clears the request to abort."),
    method<&trigger_abort>(
        2, "TriggerAbort",
        "Makes the request to abort; every process that polls the same file sees it. The result is always Empty."),
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

}  // namespace korvane::automation
