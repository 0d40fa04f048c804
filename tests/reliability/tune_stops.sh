#!/usr/bin/env bash
# tune_stops.sh PROGRAM [COUNT]: stops a tune at random moments, by signals, by the abort flag and by a kill, and counts
# where the instrument is neither as before, nor as the last record says, nor (killed) as the marks of the base folder
# explain; where the history is not whole; where a report is half.
set -uo pipefail
count=${2:-300}
. "$(dirname "$0")/world.sh"
echo '{"instrument": {"spectrum_period_ms": 20}}' >base/scene.json
echo '{"adjust": [{"setpoint": "FragmentTune", "mz": 566.8885, "target": 110000, "around_percent": 40}],
       "fit_spectra": 3, "masses": [158.964, 566.8885]}' >recipe.json

# Setpoints and calibration, a line each.
state() {
    "$program" setpoint list --json | python3 -c 'import json, sys
for row in json.load(sys.stdin)["setpoints"]: print(row["internal_name"], float(row["value"]))'
    "$program" calibration show --json | python3 -c 'import json, sys
for row in json.load(sys.stdin)["ns"].items(): print(*row)'
}
# The same as the last record has it after its run; nothing without a record.
recorded() {
    "$program" history show last --json 2>/dev/null | python3 -c 'import json, sys
record = json.load(sys.stdin)["record"]
for row in record["setpoints"]: print(row["name"], float(row["after"]))
for row in record["calibration_after"].items(): print(*row)' 2>/dev/null
}
# What a killed run has left, put right by the marks: setpoints as found, the calibration before.
put_right() {
    [ ! -f base/korvane_search.json ] || python3 -c 'import json
for name, value in json.load(open("base/korvane_search.json")).items(): print(name, value)' | while read -r name value; do
        "$program" setpoint set "$name" "$value" >/dev/null 2>&1
    done
    rm -f base/korvane_search.json
    [ "$(state)" = "$1" ] || "$program" calibration undo >/dev/null 2>&1
}

# Stops come within the time that a whole tune takes here.
begun=$(date +%s%3N)
"$program" tune recipe.json >/dev/null 2>&1
span=$(($(date +%s%3N) - begun + 20))

RANDOM=1
moved=0 torn=0 half=0 stopped=0 ended=0
for ((i = 0; i < count; i++)); do
    # Every run begins with a setpoint and a calibration that it will move.
    "$program" setpoint set FragmentTune 175 >/dev/null 2>&1
    "$program" calibration set -A 0.450009 --t0 0.02 >/dev/null 2>&1
    before=$(state)
    stops=(INT TERM HUP ABORT KILL)
    stop=${stops[i % 5]}
    set -m
    "$program" tune recipe.json >/dev/null 2>"$folder/talk" &
    set +m
    wait_ms=$((RANDOM % span))
    sleep "$((wait_ms / 1000)).$(printf %03d $((wait_ms % 1000)))"
    if [ "$stop" = ABORT ]; then "$program" abort request >/dev/null; else kill -"$stop" $! 2>/dev/null; fi
    wait $! 2>/dev/null
    [ $? -eq 0 ] && ended=$((ended + 1)) || stopped=$((stopped + 1))
    "$program" abort reset >/dev/null
    after=$(state)
    [ "$stop" = KILL ] && [ "$after" != "$before" ] && [ "$after" != "$(recorded)" ] && put_right "$before" && after=$(state)
    if [ "$after" != "$before" ] && [ "$after" != "$(recorded)" ]; then
        moved=$((moved + 1)) && echo "$stop: neither as before nor as recorded: $(cat talk)" && diff <(echo "$before") <(echo "$after")
    fi
    rm -f base/korvane_search.json
    [ ! -f base/TuneHistory.sqlite ] || "$program" history show last --json >/dev/null 2>talk ||
        { torn=$((torn + 1)) && echo "$stop: history: $(cat talk)"; }
    for report in base/Logfiles/*.html; do
        [ ! -f "$report" ] || [ "$(tail -n 1 "$report")" = "</html>" ] || half=$((half + 1))
    done
    rm -f base/Logfiles/*
done
echo "$count stops of a tune: $stopped stopped it, $ended came after its end; neither as before nor as recorded $moved," \
     "histories not whole $torn, half reports $half"
[ $((moved + torn + half)) -eq 0 ] && [ "$stopped" -gt $((count / 4)) ]
