#!/usr/bin/env bash
# same_bytes.sh WORK NATIVE PROGRAM...: runs the same commands with the same seed by the program of the building system
# and by the one for Windows (with its emulator before it), each in its folder below WORK, and compares everything
# printed and every file written, byte for byte. Taken out before: carriage returns, because lines end as is usual on
# each system; times; the folder's name.
set -euo pipefail
work=$1 native=$2
[ -x "$native" ] ||
    { echo "$native is not there: build it first (cmake --build --preset release --target korvane_program)"; exit 1; }

comparable() {
    sed -E 's#\r##g; s#\\\\#/#g; s#\\#/#g; s#(Z:)?'"$PWD"'#FOLDER#g
            s#[0-9]+/[0-9]+/[0-9]{4} [0-9]+:[0-9]{2}:[0-9]{2} [AP]M#TIME#g
            s#20[0-9]{2}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}#TIME#g; s#_20[0-9]+_[0-9]+\.txt#_TIME.txt#g'
}
run_all() {  # run_all COMMAND...: in the folder that is the working one
    local run code
    while read -r run; do
        code=0
        # shellcheck disable=SC2086
        "$@" $run ${base[@]:+"${base[@]}"} </dev/null >out 2>err || code=$?
        # 1: a target that is never reached
        [ $code -le 1 ] || { echo "korvane $run: exit code $code: $(cat err)" >&2; return 1; }
        echo "== korvane $run: $code" && comparable <out
        base=(--base base --seed 11)
    done
    # Names with a time sort in the order of writing; runs within one second share a file.
    echo "== tune logs" && cat base/Logfiles/TuneLog_* | comparable
    for file in base/TuneParams.xml base/TunePreferences.xml base/instrument.json recording.mzML; do
        echo "== $file" && comparable <"$file"
    done
}
side() {  # side NAME COMMAND...
    rm -rf "${work:?}/$1" && mkdir -p "$work/$1" && cd "$work/$1"
    base=()
    run_all "${@:2}" >"../$1.txt" <<'RUNS'
init base
measure
measure --json
verify
peak 566.8885 --json
adjust FragmentTune --mz 566.8885 --target 50000 --max 250 --apply --no-progress
adjust QuadAMU --mz 566.8885 --target 50000 --fast --no-progress
measure
masslist show
params list
setpoint list --json
record recording.mzML
measure --replay recording.mzML
RUNS
}
side native "$native"
side windows "${@:3}"
log_lines=$(grep -c "AUTOTUNE LOG" ../native.txt)
[ "$log_lines" -ge 100 ] || { echo "only $log_lines lines of tune logs were compared"; exit 1; }
diff ../native.txt ../windows.txt || { echo "the systems differ"; exit 1; }
echo "$(wc -c <../native.txt) bytes are the same, $log_lines lines of tune logs among them"
