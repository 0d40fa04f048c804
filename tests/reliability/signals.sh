#!/usr/bin/env bash
# signals.sh PROGRAM [COUNT]: stops commands of the program by signals at random moments, and counts where the setpoints
# are not those before, where a log is torn, and where the exit code is not as documented.
set -uo pipefail
count=${2:-300}
. "$(dirname "$0")/world.sh"
echo '{"instrument": {"spectrum_period_ms": 20}}' >base/scene.json
"$program" setpoint set FragmentTune 180 >/dev/null
commands=("measure" "adjust FragmentTune --mz 566.8885 --target 50000" "record run.mzML -n 20"
          "calibration show --repeat 10" "adjust QuadAMU --mz 566.8885 --target 50000 --raise-to-reduce --fast" "verify")
declare -A codes=([INT]=130 [TERM]=143 [HUP]=129 [PIPE]=141)
RANDOM=1
before=$("$program" setpoint list)
stopped=0 ended=0 moved=0 torn=0 wrong=0
for ((i = 0; i < count; i++)); do
    command=${commands[i % ${#commands[@]}]}
    signals=(INT TERM HUP PIPE)
    signal=${signals[i / ${#commands[@]} % 4]}
    # A background job ignores Ctrl-C unless job control is on.
    set -m
    # shellcheck disable=SC2086
    "$program" $command >/dev/null 2>"$folder/talk" &
    set +m
    sleep "0.$(printf %03d $((RANDOM % 300)))"
    kill -"$signal" $! 2>/dev/null
    wait $!
    code=$?
    case $code in
        "${codes[$signal]}") stopped=$((stopped + 1)) ;;
        0) ended=$((ended + 1)) ;;
        *) wrong=$((wrong + 1)) && echo "$command, $signal: exit code $code: $(cat talk)" ;;
    esac
    if [ "$("$program" setpoint list)" != "$before" ]; then
        moved=$((moved + 1)) && echo "$command, $signal: setpoints are not as before: $(cat talk)"
        "$program" setpoint list | diff - <(echo "$before")
        before=$("$program" setpoint list)
    fi
    for log in base/Logfiles/*; do
        [ -z "$(tail -c 1 "$log")" ] || torn=$((torn + 1))
    done
done
echo "$count signals: $stopped stopped the command, $ended came after its end; setpoints not as before $moved," \
     "torn logs $torn, wrong exit codes $wrong"
[ $((moved + torn + wrong)) -eq 0 ] && [ "$stopped" -gt $((count / 4)) ]
