// The tune preference store: single text values in "TunePreferences.xml".
#pragma once

#include <string>

#include "korvane/platform.h"

namespace korvane {

/// Errors of every member: -901 the file cannot be opened (three attempts), -904 no such element or the save failed
/// three times, -905 no root element, -2147467259 what is no XPath query.
class KORVANE_API clsTunePrefsXML {
public:
    explicit clsTunePrefsXML(Platform platform = Platform::process_default());

    /// Text of a preference, from the copy already loaded unless a reload is asked for.
    std::string GetTunePreference(const std::string& ParamName, bool bReOpenXMLFile = false);
    /// Reloads, sets the text of an existing preference as given, saves; a read-only file is made writable.
    void WriteTunePreference(const std::string& strParamName, const std::string& strNewParameterValue);

private:
    struct Impl;
    PrivateState<Impl> impl_;
};

}  // namespace korvane
