#!/usr/bin/env bash
# stops.sh PROGRAM [COUNT]: stops commands of the program at random moments, by signals, by the abort flag, and a tune by a
# kill, too; counts where the instrument is neither as before, nor as the record of the tune says, nor (killed) as the
# marks of the base folder explain; where a log or a report is half or the history not whole; and where the exit code is
# not as documented.
set -uo pipefail
count=${2:-300}
. "$(dirname "$0")/world.sh"
echo '{"instrument": {"spectrum_period_ms": 20}}' >base/scene.json
echo '{"adjust": [{"setpoint": "FragmentTune", "mz": 566.8885, "target": 110000, "around_percent": 40}],
       "fit_spectra": 3, "masses": [158.964, 566.8885]}' >recipe.json
commands=("tune recipe.json" "measure" "adjust FragmentTune --mz 566.8885 --target 50000" "record run.mzML -n 20"
          "calibration show --repeat 10" "adjust QuadAMU --mz 566.8885 --target 50000 --raise-to-reduce --fast" "verify")
stops=(KILL INT ABORT TERM HUP PIPE)
declare -A codes=([INT]=130 [TERM]=143 [HUP]=129 [PIPE]=141 [ABORT]=6 [KILL]=137)

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
# Every run begins with a setpoint and a calibration that a tune will move.
begin() {
    "$program" setpoint set FragmentTune 175 >/dev/null 2>&1
    "$program" calibration set -A 0.4500005 --t0 0.02 >/dev/null 2>&1
}

# Stops come within the time that the whole command takes here.
spans=()
for command in "${commands[@]}"; do
    begin
    begun=$(date +%s%3N)
    # shellcheck disable=SC2086
    "$program" $command >/dev/null 2>&1
    spans+=($(($(date +%s%3N) - begun + 20)))
done

RANDOM=1
stopped=0 ended=0 moved=0 torn=0 wrong=0
for ((i = 0; i < count; i++)); do
    number=$((i % ${#commands[@]})) stop=${stops[(i % ${#commands[@]} + i / ${#commands[@]}) % 6]}
    command=${commands[number]}
    [ "$stop" = KILL ] && [ $number -ne 0 ] && stop=INT
    rm -f base/Logfiles/*
    begin
    before=$(state)
    # A background job ignores Ctrl-C unless job control is on.
    set -m
    # shellcheck disable=SC2086
    "$program" $command >/dev/null 2>talk &
    set +m
    wait_ms=$((RANDOM % spans[number]))
    sleep "$((wait_ms / 1000)).$(printf %03d $((wait_ms % 1000)))"
    if [ "$stop" = ABORT ]; then "$program" abort request >/dev/null; else kill -"$stop" $! 2>/dev/null; fi
    wait $! 2>/dev/null
    code=$?
    "$program" abort reset >/dev/null
    case $code in
        "${codes[$stop]}") stopped=$((stopped + 1)) ;;
        0) ended=$((ended + 1)) ;;
        *) wrong=$((wrong + 1)) && echo "$command, $stop: exit code $code: $(cat talk)" ;;
    esac
    after=$(state)
    [ "$stop" = KILL ] && [ "$after" != "$before" ] && [ "$after" != "$(recorded)" ] && put_right "$before" && after=$(state)
    if [ "$after" != "$before" ] && { [ $number -ne 0 ] || [ "$after" != "$(recorded)" ]; }; then
        moved=$((moved + 1)) && echo "$command, $stop: neither as before nor as recorded: $(cat talk)"
        diff <(echo "$before") <(echo "$after")
    fi
    rm -f base/korvane_search.json
    [ ! -f base/TuneHistory.sqlite ] || "$program" history show last --json >/dev/null 2>talk ||
        { torn=$((torn + 1)) && echo "$command, $stop: history: $(cat talk)"; }
    for file in base/Logfiles/*; do
        [[ ! -f $file || ( $file != *.html && -z "$(tail -c 1 "$file")" ) || "$(tail -n 1 "$file")" = "</html>" ]] ||
            { torn=$((torn + 1)) && echo "$command, $stop: half: $file"; }
    done
done
echo "$count stops: $stopped stopped the command, $ended came after its end; neither as before nor as recorded $moved," \
     "half files or histories $torn, wrong exit codes $wrong"
[ $((moved + torn + wrong)) -eq 0 ] && [ "$stopped" -gt $((count / 4)) ]
