// A second language: by value only, and errors as exceptions.
var preferences = new ActiveXObject("Korvane.clsTunePrefsXML");
var text = preferences.GetTunePreference("LogSetpointTraffic");
var number = 0;
try {
    preferences.GetTunePreference("NoSuchPreference");
} catch (error) {
    number = error.number;
}
var globals = new ActiveXObject("Korvane.TuneGlobals");
globals.CurrentTimeSegment = 4;
WScript.Echo(text == "No" && number == -904 && globals.CurrentTimeSegment == 4 ? "DONE" : "FAIL " + text + " " + number);
