// The tune parameter store: numbers in "TuneParams.xml".
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "korvane/platform.h"

namespace korvane {

/// Errors: -904 the file cannot be loaded or saved, or the leaf does not exist; -905 the group node does not exist;
/// -906 a group outside the permitted ones; 13 leaf text that is not a number.
class KORVANE_API clsTuneParamsXML {
public:
    explicit clsTuneParamsXML(Platform platform = Platform::process_default());
    ~clsTuneParamsXML();
    clsTuneParamsXML(clsTuneParamsXML&&) noexcept;
    clsTuneParamsXML& operator=(clsTuneParamsXML&&) noexcept;

    /// Value of element `ParamName` (a relative query) under the node that `XMLPath` selects.
    double GetTuneParamByXMLPath(const std::string& XMLPath, const std::string& ParamName, bool bReOpenXMLFile = false);
    /// Sets the text of an existing leaf as given, after a reload, and saves.
    void WriteTuneParamValue(const std::string& ParamGroupName, const std::string& strParamName,
                             const std::string& strNewParamValue,
                             const std::string& strAltTreeNode = "AutotuneParameters");
    /// The limit whose element name is the decimal text of `LimitType`.
    double GetAutoParm(const std::string& LimitGroupType, std::int32_t LimitType, bool bReOpenXMLFile = false);
    double GetAutotuneLimitValue(const std::string& LimitGroupType, const std::string& ParamName,
                                 bool bReOpenXMLFile = false);
    /// `GroupType` is "IndexedSlicer", "Calibration" or "SetpointUI".
    double GetManualTuneValue(const std::string& GroupType, const std::string& ParamName, bool bReOpenXMLFile = false);
    /// Whether the `Mode/Tune` table allows autotune; reloads the file.
    bool IsThisSourceSupportedForAutotuning(const std::string& strPolarity, const std::string& StrSourceType);
    /// The file name, without folder.
    std::string GetAutotuneParameterXMLPath();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace korvane
