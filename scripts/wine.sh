# Starts a Windows of this project's own below build/, for the script that reads this file in the project's folder; it
# ends with that script. Its server is started first, away from the pipes that it would keep open.
export WINEPREFIX=$PWD/build/wine WINEDEBUG=-all
export WINEDLLOVERRIDES="winedbg.exe,winemenubuilder.exe,mscoree,mshtml=d"
unset DISPLAY WAYLAND_DISPLAY
mkdir -p "$WINEPREFIX"
trap 'wineserver -k >/dev/null 2>&1 </dev/null || true' EXIT
wineserver -p >/dev/null 2>&1 </dev/null
wine cmd /c exit >/dev/null 2>&1 </dev/null
# The script host registers its types when it first runs; a test compares the registry before and after it.
echo 'WScript.Echo "ready"' >"$WINEPREFIX/ready.vbs"
(cd "$WINEPREFIX" && wine cscript //nologo ready.vbs >/dev/null 2>&1 </dev/null)
# Thousands of small files that are flushed to the disk: in memory where there is such a folder.
temporary=$PWD/build/temporary
[ -d /dev/shm ] && temporary=/dev/shm
mkdir -p "$temporary"
for variable in TMP TEMP; do
    wine reg add 'HKCU\Environment' /v "$variable" /d "Z:${temporary//\//\\}" /f >/dev/null 2>&1 </dev/null
done
