// Member tables of the stores: clsTuneParamsXML, clsTunePrefsXML, AbortHelper, CalMassList.
// The order of the lines is the order of the vtable; numbers and order are a public contract.
#pragma once

#include "automation/member.h"
#include "korvane/abort_helper.h"
#include "korvane/cal_mass_list.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"

namespace korvane::automation {

// clang-format off
inline constexpr std::array tune_prefs_members{
    method<&clsTunePrefsXML::GetTunePreference>(1, "GetTunePreference", "Text of a preference.",
        value("ParamName"), value("bReOpenXMLFile", false)),
    method<&clsTunePrefsXML::WriteTunePreference>(2, "WriteTunePreference", "Reloads the file, sets an existing preference and saves.",
        value("strParamName"), reference("strNewParameterValue")),
};

/// The result is always Empty.
inline Value trigger_abort(AbortHelper& helper) {
    helper.TriggerAbort();
    return Empty{};
}

inline constexpr std::array abort_helper_members{
    method<&AbortHelper::Reset>(1, "Reset", "Clears the request to abort."),
    method<&trigger_abort>(2, "TriggerAbort", "Makes the request to abort; every process that polls the same file sees it. The result is always Empty."),
    method<&AbortHelper::UserHasClickedAbort>(3, "UserHasClickedAbort", "Whether an abort was requested; reads the file anew."),
};

inline constexpr std::array cal_mass_list_members{
    method<&CalMassList::GetMassListArrayFromFile>(1, "GetMassListArrayFromFile", "All masses of one list straight from a file, used or not.",
        reference("fileName"), reference("sourceType"), reference("polarity")),
    method<&CalMassList::OpenMassListFile>(2, "OpenMassListFile", "Opens a mass-list file.",
        reference("fileName")),
    method<&CalMassList::CloseMassListFile>(3, "CloseMassListFile", "Closes the file and forgets what was not saved."),
    method<&CalMassList::SaveMassListToFile>(4, "SaveMassListToFile", "Writes the changed lists and saves, under another name if one is given.",
        reference("fileName").may_be_missing()),
    method<&CalMassList::GetMassListArray>(5, "GetMassListArray", "A list, one text a mass: the use flag, a tab, the m/z.",
        reference("sourceType"), reference("polarity")),
    method<&CalMassList::GetMassList>(6, "GetMassList", "A list as one text, a line a mass.",
        reference("sourceType"), reference("polarity")),
    method<&CalMassList::UpdateMassList>(7, "UpdateMassList", "Replaces a list and marks it as changed.",
        reference("sourceType"), reference("polarity"), reference("massList")),
    method<&CalMassList::IsMassListDirty>(8, "IsMassListDirty", "Whether a list was changed since it was opened or saved.",
        reference("sourceType"), reference("polarity")),
    method<&CalMassList::AnyMassListsDirty>(9, "AnyMassListsDirty", "Whether any list was changed."),
};

inline constexpr std::array tune_params_members{
    method<&clsTuneParamsXML::GetTuneParamByXMLPath>(1, "GetTuneParamByXMLPath", "Value of an element under the node that a query selects.",
        value("XMLPath"), value("ParamName"), value("bReOpenXMLFile", false)),
    method<&clsTuneParamsXML::WriteTuneParamValue>(2, "WriteTuneParamValue", "Sets the text of an existing element, after a reload, and saves.",
        value("ParamGroupName"), value("strParamName"), value("strNewParamValue"), value("strAltTreeNode", "AutotuneParameters")),
    method<&clsTuneParamsXML::GetAutoParm>(3, "GetAutoParm", "A limit of a group by its number.",
        value("LimitGroupType"), value("LimitType"), value("bReOpenXMLFile", false)),
    method<&clsTuneParamsXML::GetAutotuneLimitValue>(4, "GetAutotuneLimitValue", "An autotune limit of a group by its name.",
        value("LimitGroupType"), value("ParamName"), value("bReOpenXMLFile", false)),
    method<&clsTuneParamsXML::GetManualTuneValue>(5, "GetManualTuneValue", "A manual tune value; the group is IndexedSlicer, Calibration or SetpointUI.",
        value("GroupType"), value("ParamName"), value("bReOpenXMLFile", false)),
    method<&clsTuneParamsXML::IsThisSourceSupportedForAutotuning>(6, "IsThisSourceSupportedForAutotuning", "Whether a source may be autotuned in a polarity; reloads the file.",
        reference("strPolarity"), reference("StrSourceType")),
    method<&clsTuneParamsXML::GetAutotuneParameterXMLPath>(7, "GetAutotuneParameterXMLPath", "Name of the tune parameter file, without folder."),
};
// clang-format on

}  // namespace korvane::automation
