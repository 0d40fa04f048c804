#!/bin/sh
# Thirty days of tunes on the simulated instrument of KORVANE_BASE, each morning one: from the 11th on the detector loses
# 1.5 % of its gain a day, on the 15th somebody writes a wrong calibration, on the 22nd the detector is replaced.
set -e
export TZ=UTC
morning() {
    export KORVANE_TIME="2026-10-$(printf %02d "$1")T08:00:00"
}
coefficient() {
    korvane calibration show --csv 2>/dev/null | awk -F, -v name="$1" '$1 == name { printf "%.15g", $3 }'
}
day=1
while [ $day -le 30 ]; do
    morning $day
    lost=0
    if [ $day -gt 10 ] && [ $day -lt 22 ]; then lost=$((day - 10)); fi
    if [ $day -eq 22 ]; then korvane history mark maintenance "new detector"; fi
    awk -v lost=$lost 'BEGIN { gain = 1 - 0.015 * lost
        printf "{\"detector\": {\"counts_per_ion\": [%g, %g, %g]}}\n", 25 * gain, 40 * gain, 64 * gain }' \
        >"$KORVANE_BASE/scene.json"
    if [ $day -eq 15 ]; then
        a=$(coefficient A) t0=$(coefficient B)
        korvane calibration set -A "$(awk -v a="$a" 'BEGIN { printf "%.15g", a * 1.000002 }')" --t0 "$t0" >/dev/null 2>&1
    fi
    korvane measure --keep --seed $day >/dev/null 2>&1
    if [ $day -eq 15 ]; then korvane calibration set -A "$a" --t0 "$t0" >/dev/null 2>&1; fi
    day=$((day + 1))
done
