' Asks whatever runs on the base folder to stop.
CreateObject("Korvane.AbortHelper").TriggerAbort
WScript.Echo "DONE"
