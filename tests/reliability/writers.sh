#!/usr/bin/env bash
# writers.sh PROGRAM [COUNT]: two processes write preferences of their own COUNT times each, into the same file, while a third
# requests and resets aborts there as often. Counts what another's save has undone. PROGRAM may be Windows' own, under Wine.
set -uo pipefail
count=${2:-1000}
. "$(dirname "$0")/world.sh"

# What each call answers, a line a call, is known, and stands behind it.
edits() {
    for ((i = 1; i <= count; i++)); do
        printf '%s\t%s\n' "clsTunePrefsXML.WriteTunePreference $1 $i" '{"result":null}' \
               "clsTunePrefsXML.GetTunePreference $1 true" "{\"result\":\"$i\"}"
    done
}
aborts() {
    for ((i = 1; i <= count; i++)); do
        printf '%s\t%s\n' "AbortHelper.TriggerAbort" '{"result":null}' "AbortHelper.UserHasClickedAbort" '{"result":true}' \
               "AbortHelper.Reset" '{"result":null}' "AbortHelper.UserHasClickedAbort" '{"result":false}'
    done
}
edits AIC_RunFastVersion >"$folder/first"
edits LogSetpointTraffic >"$folder/second"
aborts >"$folder/third"
for writer in first second third; do
    cut -f1 "$folder/$writer" | run call - 2>"$folder/$writer.talk" | tr -d '\r' >"$folder/$writer.answers" &
done
wait
lost=0
for writer in first second third; do
    wrong=$(paste <(cut -f2 "$folder/$writer") "$folder/$writer.answers" | awk -F'\t' '$1 != $2' | tee "$folder/wrong" | wc -l)
    [ "$wrong" -eq 0 ] || { echo "$writer: $wrong of its answers are others, the first:" && head -3 "$folder/wrong"; }
    lost=$((lost + wrong))
done
left=$(find "$folder/base" -name '.*' -type f | wc -l)
echo "two processes of $count writes beside $count abort requests: lost $lost, files left behind $left"
[ "$lost" -eq 0 ] && [ "$left" -eq 0 ]
