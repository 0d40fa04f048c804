#!/usr/bin/env bash
# Registers the server, runs the scripts against it and removes it again: run.sh
# KORVANE_DLL TEST_OBJECTS_DLL KORVANE_EXE MTA_CLIENT_EXE.
set -euo pipefail
server=$1 objects=$2 program=$3 mta_client=$4
scripts=$(cd "$(dirname "$0")" && pwd)
export WINEDEBUG=-all WINEDLLOVERRIDES=winedbg.exe=d
work=$(mktemp -d)
failed=0

windows_path() { winepath -w "$1" 2>/dev/null | tr -d '\r'; }
finish() {
    wine regsvr32 /s /u "$(windows_path "$server")" >/dev/null 2>&1 || true
    wine reg delete 'HKLM\Software\Classes\KorvaneTest.Layer' /f >/dev/null 2>&1 || true
    wine reg delete 'HKLM\Software\Classes\quillkit.trace.1' /f >/dev/null 2>&1 || true
    rm -rf "$work"
}
trap finish EXIT

snapshot() { "$scripts/../../../../scripts/registry.sh" "$work/$1.txt"; }
check() {  # check WHAT COMMAND...: the command must succeed
    local what=$1
    shift
    if "$@"; then echo "ok    $what"; else echo "FAIL  $what"; failed=1; fi
}
# The script host is silent about scripts that fail, so that only DONE at the end counts.
script() {
    local out=$work/$1.txt
    timeout 120 wine cscript //nologo "$(windows_path "$scripts/$1")" "${@:2}" >"$out" 2>/dev/null || true
    tr -d '\r' <"$out"
    grep -q DONE "$out" && ! grep -q FAIL "$out"
}
same_registry() { diff "$work/before.txt" "$work/after.txt" >"$work/diff.txt" || { head -20 "$work/diff.txt"; return 1; }; }

base=$work/base
wine "$program" init "$(windows_path "$base")" >/dev/null
KORVANE_BASE=$(windows_path "$base")
export KORVANE_BASE
unset KORVANE_INSTRUMENT

snapshot before
check "registration" wine regsvr32 /s "$(windows_path "$server")"
snapshot registered
check "registration writes something" test -n "$(comm -13 "$work/before.txt" "$work/registered.txt")"
check "VBScript" script acceptance.vbs "$KORVANE_BASE"
check "JScript" script smoke.js
check "another apartment" wine "$mta_client"

# An abort that one process asks for and another sees.
script await_abort.vbs >/dev/null &
waiting=$!
for _ in $(seq 100); do grep -q WAITING "$work/await_abort.vbs.txt" 2>/dev/null && break; sleep 0.1; done
sleep 1
check "asking for an abort" script trigger_abort.vbs
check "another process sees it" wait "$waiting"
check "so does the program" grep -q -i 'true\|yes\|request' <(wine "$program" abort status 2>/dev/null)
wine "$program" abort reset >/dev/null

# Numbers in texts go by the user's own decimal separator.
german() {
    local params=$base/TuneParams.xml
    cp "$params" "$work/TuneParams.xml"
    sed -i 's,<amp_step>1</amp_step>,<amp_step>1\,5</amp_step>,' "$params"
    local key='HKCU\Control Panel\International' got
    wine reg add "$key" /v sDecimal /d , /f >/dev/null 2>&1
    got=$(wine "$program" call clsTuneParamsXML.GetAutotuneLimitValue gainParams amp_step 2>/dev/null | tr -d '\r\n {}')
    wine reg add "$key" /v sDecimal /d . /f >/dev/null 2>&1
    cp "$work/TuneParams.xml" "$params"
    [ "$got" = '"result":1.5' ] || { echo "$got"; return 1; }
}
check "a decimal comma" german

# Objects of others: an instrument layer and the acquisition software's tracer.
classes='HKLM\Software\Classes' layer='{0C0A7B5E-31F4-4C0B-9E0E-6D2C8F5A9B11}' tracer='{0C0A7B5E-31F4-4C0B-9E0E-6D2C8F5A9B12}'
register_class() {  # register_class PROGID CLASS_ID
    wine reg add "$classes\\$1\\CLSID" /ve /d "$2" /f >/dev/null 2>&1 &&
        wine reg add "$classes\\CLSID\\$2\\InprocServer32" /ve /d "$(windows_path "$objects")" /f >/dev/null 2>&1
}
forget_class() {
    wine reg delete "$classes\\$1" /f >/dev/null 2>&1 && wine reg delete "$classes\\CLSID\\$2" /f >/dev/null 2>&1
}
check "registration of a layer" register_class KorvaneTest.Layer "$layer"
check "registration of a tracer" register_class quillkit.trace.1 "$tracer"
KORVANE_TEST_LAYER_BASE=$(windows_path "$base")
KORVANE_TEST_TRACE=$(windows_path "$work/trace.txt")
export KORVANE_TEST_LAYER_BASE KORVANE_TEST_TRACE
check "the layer conforms" wine "$program" conform KorvaneTest.Layer
export KORVANE_INSTRUMENT=KorvaneTest.Layer
check "the program measures with the layer" wine "$program" measure >"$work/measured.txt"
check "VBScript with the layer" script acceptance.vbs "$KORVANE_BASE"
unset KORVANE_INSTRUMENT
check "the tracer was told" grep -q '^Entry|' "$work/trace.txt"
check "removal of the layer" forget_class KorvaneTest.Layer "$layer"
check "removal of the tracer" forget_class quillkit.trace.1 "$tracer"

check "removal" wine regsvr32 /s /u "$(windows_path "$server")"
snapshot after
check "the registry is as it was" same_registry
check "removal of what is not there" wine regsvr32 /s /u "$(windows_path "$server")"
exit $failed
