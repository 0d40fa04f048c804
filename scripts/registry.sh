#!/usr/bin/env bash
# registry.sh FILE: writes the registry of Wine's Windows as text, a value a line with its key; without what the machine's
# drivers write when they please.
set -euo pipefail
trap 'rm -f "$1.reg"' EXIT
wine regedit /E "$(winepath -w "$1.reg" 2>/dev/null | tr -d '\r')" >/dev/null 2>&1 </dev/null
iconv -f UTF-16 -t UTF-8 "$1.reg" | tr -d '\r' |
    awk '/^\[/ { key = $0; print; next } NF { print key " " $0 }' |
    grep -v -i '^\[HKEY_LOCAL_MACHINE\\\(System\|Hardware\)\\' | sort >"$1"
[ -s "$1" ]
