#!/usr/bin/env bash
# history.sh PROGRAM SCHEMA [KILLS [RECORDS]]: kills "measure --keep" at random moments, lets two processes write RECORDS
# each, and puts a history where none can be: no record is lost or half, no measurement is lost, and the fault is told.
# The mzQC that is written is checked by SCHEMA.
set -uo pipefail
schema=$(realpath "$2") kills=${3:-300} records=${4:-1000}
. "$(dirname "$0")/world.sh"
# A short spectrum: most of the time is the record's.
echo '{"instrument": {"spectrum_duration_ns": 60000}}' >base/scene.json
measure=(measure --mass 158.964 --mass 566.8885)
faults=0
fail() { faults=$((faults + 1)); echo "FAULT: $*"; }
ids() { "$program" history list -n 1000000 --csv | tail -n +2 | cut -d, -f1; }

"$program" "${measure[@]}" --keep >/dev/null 2>talk || fail "the first record: $(cat talk)"
begin=$(date +%s%N)
for i in 1 2 3; do "$program" "${measure[@]}" --keep >/dev/null 2>&1; done
run_ms=$((($(date +%s%N) - begin) / 3000000))
RANDOM=1
told=4 untold=0
for ((i = 0; i < kills; i++)); do
    "$program" "${measure[@]}" --keep >/dev/null 2>talk &
    # In the second half of a run, where the record is written, or a little after.
    sleep "$(printf %d.%03d 0 $(((run_ms / 2 + RANDOM % (run_ms * 7 / 10)) % 1000)))"
    kill -KILL $! 2>/dev/null
    wait $! 2>/dev/null
    if grep -q '^record ' talk; then told=$((told + 1)); else untold=$((untold + 1)); fi
done
kept=$(ids | wc -l)
if [ "$kept" -lt $told ] || [ "$kept" -gt $((told + untold)) ]; then fail "$kept records, $told of them told"; fi
"$program" history export --json all.json >/dev/null || fail "a record is not whole"
python3 - "$kept" <<'P' || fail "a record is not whole"
import json, sys
records = json.load(open("all.json"))
sys.exit(len(records) != int(sys.argv[1]) or not all(len(r["calibrants"]) == 2 and r["verdict"] for r in records))
P
echo "killed $kills times: $kept records, $told told, none half"

for writer in 1 2; do
    for ((i = 0; i < records; i++)); do
        "$program" "${measure[@]}" --keep --seed $i --note "writer $writer" >/dev/null 2>>"talk$writer" || echo failed
    done >"written$writer" &
done
wait
grep -q failed written1 written2 && fail "a writer failed: $(tail -1 talk1)"
both=$(ids | wc -l)
[ "$both" -eq $((kept + 2 * records)) ] || fail "$both records after $kept and 2 x $records"
[ "$(ids | sort -n | uniq -d | wc -l)" -eq 0 ] || fail "an id twice"
echo "two processes: $((both - kept)) of $((2 * records)) records"

"$program" "${measure[@]}" >expected 2>/dev/null
spoiled() {  # what, text, command...
    "${@:3}" >result 2>talk
    local code=$?
    [ $code -eq 3 ] || fail "$1: exit code $code"
    cmp -s result expected || fail "$1: the measurement is lost"
    grep -q "no record is kept: .*$2" talk || fail "$1: $(tail -1 talk)"
    echo "$1: $(tail -1 talk | sed "s#$folder#...#g")"
}
cp base/TuneHistory.sqlite older
python3 -c 'import sqlite3; sqlite3.connect("older").executescript("DROP INDEX tune_records_by_instrument; UPDATE tune_schema SET version = 1")'
charts() { "$program" trend --record "$(ids | tail -1)" --csv --history older 2>&1; }
before=$(charts)
"$program" "${measure[@]}" --keep --history older >/dev/null 2>&1 || fail "a record in older tables"
[ "$(echo "$before" | wc -l)" -gt "$both" ] && [ "$before" = "$(charts)" ] || fail "charts of older tables: $before"

echo "this is no database, but a text that is longer than the head of one: $(seq 100)" >text
cp base/TuneHistory.sqlite future
python3 -c 'import sqlite3; d = sqlite3.connect("future"); d.execute("UPDATE tune_schema SET version = 99"); d.commit()'
spoiled "no database" "file is not a database" "$program" "${measure[@]}" --keep --history text
spoiled "tables of the future" "version 99" "$program" "${measure[@]}" --keep --history future
spoiled "a folder that cannot be written" "unable to open" "$program" "${measure[@]}" --keep --history /proc/history
spoiled "a full disk" "disk" bash -c 'ulimit -f 8; exec "$@"' - "$program" "${measure[@]}" --keep
[ "$(ids | wc -l)" -eq "$both" ] || fail "records differ after the full disk"

"$program" history export --mzqc tunes.mzqc --prometheus tune.prom --csv all.csv >/dev/null || fail "export"
python3 - "$schema" <<'P' || fail "mzQC"
import json, sys, jsonschema
jsonschema.validate(json.load(open("tunes.mzqc")), json.load(open(sys.argv[1])), format_checker=jsonschema.FormatChecker())
P
if command -v promtool >/dev/null; then
    promtool check metrics <tune.prom || fail "Prometheus"
fi
echo "faults: $faults"
[ $faults -eq 0 ]
