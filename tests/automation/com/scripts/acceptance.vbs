' The six classes as a script uses them. The base folder is the first argument. Ends with DONE and the number of failures.
Option Explicit
Dim failures, checks, base
failures = 0
checks = 0
base = WScript.Arguments(0)

Sub Check(what, got, wanted)
    checks = checks + 1
    If CStr(got) <> CStr(wanted) Then
        failures = failures + 1
        WScript.Echo "FAIL " & what & ": " & CStr(got) & " instead of " & CStr(wanted)
    End If
End Sub

Sub CheckTrue(what, truth)
    Check what, truth, True
End Sub

Sub CheckError(what, number, source, description)
    Check what & ", number", Err.Number, number
    Check what & ", source", Err.Source, source
    Check what & ", description", Err.Description, description
    Err.Clear
End Sub

Dim globals, parser, masses, parameters, preferences, abort
Set globals = CreateObject("Korvane.TuneGlobals")
Set parser = CreateObject("Korvane.SpectrumParser")
Set masses = CreateObject("Korvane.CalMassList")
Set parameters = CreateObject("Korvane.clsTuneParamsXML")
Set preferences = CreateObject("Korvane.clsTunePrefsXML")
Set abort = CreateObject("Korvane.AbortHelper")
abort.Reset

WScript.Echo "properties"
Check "time segment at first", globals.CurrentTimeSegment, 0
globals.CurrentTimeSegment = 2
Check "time segment", globals.CurrentTimeSegment, 2
globals.CurrentTimeSegment = "0"
Check "time segment from a text", globals.CurrentTimeSegment, 0
globals.ErrorMsgString = "a message"
Check "message", globals.ErrorMsgString, "a message"
Check "polarity", globals.GetPolarityStr(), "Positive"
Check "source", globals.GetSourceTypeStr, "ESI"
Check "limit", parameters.GetAutotuneLimitValue("checkAbundParams", "TargetAbundance"), 150000

WScript.Echo "optional arguments"
' Optional arguments: given, left out in the middle, left out at the end
Check "preference", preferences.GetTunePreference("LogSetpointTraffic"), "No"
Check "preference read again", preferences.GetTunePreference("LogSetpointTraffic", True), "No"
Dim fragmentor
fragmentor = globals.GetMSSetpointValueByInternalName("FragmentTune")
Check "fragmentor", fragmentor, 175
Check "fragmentor set", globals.SetMSSetpointValueByInternalName("FragmentTune", 180, , 0), 180
Check "fragmentor set back", globals.SetMSSetpointValueByInternalName("FragmentTune", fragmentor), 175

WScript.Echo "references"
' References: what the routine fills in comes back
Dim massAxis, abundances, metadata, start, cancelled
parser.GetNewSpectrumAndVerifyDataIsPopulated massAxis, abundances, metadata, start, cancelled
Check "mass axis is an array of Double", VarType(massAxis), 8197
CheckTrue "abundances are an array", IsArray(abundances)
CheckTrue "start of the spectrum", start > 1000
Check "cancelled", cancelled, False
Check "kind of the start", VarType(start), 5
CheckTrue "the axis goes back in", parser.GetMassArrayIndexForThisMass(massAxis, 922) > 0

WScript.Echo "lists"
' A list that the script made, and one peak of it
Dim wanted(1), lists
wanted(0) = 294.938932
wanted(1) = 566.888490
lists = parser.GetPeakListsForCalibrantMasses(wanted)
CheckTrue "peak lists", IsArray(lists)
Check "kind of a record", VarType(parser.GetPeakAttributes(294.938932)), 36

WScript.Echo "measuring"
' Measuring
Dim mass, abundance
mass = parser.GetPeakAttribute(2, 294.938932)
CheckTrue "mass " & mass, Abs(mass - 294.938932) < 0.001
abundance = parser.GetPeakAttribute(5, 294.938932, 0.2)
CheckTrue "abundance " & abundance, abundance > 1000
Check "no peak, zero is fine", parser.GetPeakAttribute(2, 100.5, 0.2, True), 0
Check "no peak, no error wanted", parser.GetPeakAttribute(5, 100.5, , , False), 0

WScript.Echo "objects"
' Objects in and out
Dim calibration, peaks, bare
Set calibration = globals.GetCurrentCalibrationObjFromDD
CheckTrue "there and back", Abs(calibration.MassFromTime(calibration.TimeFromMass(922)) - 922) < 0.000001
globals.WriteThisCalibrationObjToDD calibration
Set peaks = parser.GetPeakListOfOnlyThisOneMass(294.938932)
CheckTrue "peaks in the list", peaks.Count > 0
CheckTrue "height of a peak in the list", peaks.GetPeakValue(0, "pkHeight") > 1000
Set bare = Nothing

WScript.Echo "search"
' The search
Dim before, setting
before = globals.GetMSSetpointValueByIdx(104)
setting = parser.BinaryAdjustAbundanceDownUsingThisSetpoint(104, 294.938932, abundance / 3, , True, 1000, before)
CheckTrue "found setting " & setting, setting < before And setting > 1000
globals.SetMSSetpointValueByIdx 104, before

WScript.Echo "errors"
' Errors
On Error Resume Next
Dim value
value = preferences.GetTunePreference("NoSuchPreference")
CheckError "unknown preference", -904, "AutotuneParameterXMLConfigFileReader", "Item[NoSuchPreference] not found in Tune XML config file"
value = parameters.GetTuneParamByXMLPath("/No/Such/Path", "Leaf")
CheckError "unknown path", -905, "GetTuneParamByXMLPath", "XML Query failed for /No/Such/Path, Leaf"
value = parameters.GetManualTuneValue("Misc", "Leaf")
CheckError "group that is not permitted", -906, "", ""
value = parser.GetPeakAttribute(2, 100.5)
CheckError "no peak", -1, "GetPeakAttribute()", "No peaks returned by peakfinder"
value = globals.GetMSSetpointValueByInternalName("NoSuchSetpoint")
Check "unknown setpoint", Err.Number, 5
Err.Clear
preferences.WriteTunePreference "TriggerError_VerifyInstrumentIsShowingValidCalibrantSpectrum", "Yes"
Check "writing a preference", Err.Number, 0
Dim rehearsed
Set rehearsed = CreateObject("Korvane.SpectrumParser")
rehearsed.VerifyInstrumentIsShowingValidCalibrantSpectrum
Check "rehearsed failure", Err.Number, -821
Check "rehearsed failure, description", Err.Description, "Rehearsed failure of the calibrant spectrum check"
Err.Clear
preferences.WriteTunePreference "TriggerError_VerifyInstrumentIsShowingValidCalibrantSpectrum", "No"
parser.VerifyInstrumentIsShowingValidCalibrantSpectrum
Check "the check passes", Err.Number, 0
Dim again
Set again = CreateObject("Korvane.NoSuchClass")
Check "unknown class", Err.Number, 429
Err.Clear
globals.NoSuchMember
Check "unknown member", Err.Number, 438
Err.Clear
value = preferences.GetTunePreference()
Check "argument not optional", Err.Number, 449
Err.Clear
value = preferences.GetTunePreference("a", True, 3)
Check "too many arguments", Err.Number, 450
Err.Clear
value = parser.GetPeakAttribute(2, "no number")
Check "type mismatch", Err.Number, 13
Err.Clear

Check "nobody aborted", abort.UserHasClickedAbort, False
abort.TriggerAbort
Check "abort", abort.UserHasClickedAbort, True
parser.GetNewSpectrumAndVerifyDataIsPopulated massAxis, abundances, metadata, start, cancelled
Check "aborted measurement", Err.Number, 1
Check "aborted measurement, description", Err.Description, "User aborted"
Err.Clear
abort.Reset
Check "after the reset", globals.UserHasClickedAbort, False

' The preferences are gone
Dim files
Set files = CreateObject("Scripting.FileSystemObject")
files.MoveFile base & "\TunePreferences.xml", base & "\TunePreferences.away"
value = CreateObject("Korvane.clsTunePrefsXML").GetTunePreference("LogSetpointTraffic")
CheckError "no preferences", -901, "AutotuneParameterXMLConfigFileReader", "TunePreferences XML file doesn't exist"
files.MoveFile base & "\TunePreferences.away", base & "\TunePreferences.xml"

WScript.Echo "DONE " & checks & " checks, " & failures & " failed"
