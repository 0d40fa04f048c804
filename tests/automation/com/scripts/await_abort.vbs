' Waits for an abort that another process asks for, polling: not every script host can sleep.
Dim abort, start
Set abort = CreateObject("Korvane.AbortHelper")
abort.Reset
WScript.Echo "WAITING"
start = Timer
Do While Timer - start < 30 And Not abort.UserHasClickedAbort
Loop
If abort.UserHasClickedAbort Then WScript.Echo "DONE" Else WScript.Echo "FAIL no abort in 30 s"
