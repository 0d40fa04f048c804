// The tune parameter store: numbers in "TuneParams.xml".
#pragma once

#include <cstdint>
#include <string>

#include "korvane/platform.h"

namespace korvane {

/// Values are the file's own, in the unit of the parameter. Errors of every member but the last: -904 the file cannot
/// be loaded or saved (three attempts), or the leaf does not exist; -905 the group node does not exist; -906 a group
/// outside the permitted ones; 13 leaf text that is not a number by the current locale; -2147467259 what is no XPath
/// query. A failed load leaves an empty document: the next read without a reload is -905.
class KORVANE_API clsTuneParamsXML {
public:
    explicit clsTuneParamsXML(Platform platform = Platform::process_default());

    /// Value of element `ParamName` (a relative query) under the node that `XMLPath` selects. Reads of every member use
    /// the copy of the last load unless `bReOpenXMLFile` asks for another.
    double GetTuneParamByXMLPath(const std::string& XMLPath, const std::string& ParamName, bool bReOpenXMLFile = false);
    /// Sets the text of an existing leaf as given, after a reload, and saves. -906 for a group other than gainParams,
    /// checkAbundParams, resolutionParams, RampParams, PeakHandling, Misc, Calibration, IndexedSlicer, SetpointUI.
    void WriteTuneParamValue(const std::string& ParamGroupName, const std::string& strParamName,
                             const std::string& strNewParamValue,
                             const std::string& strAltTreeNode = "AutotuneParameters");
    /// The limit whose element name is the decimal text of `LimitType`, which is no query: -2147467259.
    double GetAutoParm(const std::string& LimitGroupType, std::int32_t LimitType, bool bReOpenXMLFile = false);
    /// Value of an element of an autotune group.
    double GetAutotuneLimitValue(const std::string& LimitGroupType, const std::string& ParamName,
                                 bool bReOpenXMLFile = false);
    /// Value of an element of a manual tune group: "IndexedSlicer", "Calibration" or "SetpointUI", else -906.
    double GetManualTuneValue(const std::string& GroupType, const std::string& ParamName, bool bReOpenXMLFile = false);
    /// Whether the `Mode/Tune` table allows autotune; reloads the file. False where the table has no such entry; -904
    /// where the entry does not say.
    bool IsThisSourceSupportedForAutotuning(const std::string& strPolarity, const std::string& StrSourceType);
    /// The file name, without folder.
    std::string GetAutotuneParameterXMLPath();

private:
    struct Impl;
    PrivateState<Impl> impl_;
};

}  // namespace korvane
