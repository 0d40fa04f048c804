#!/usr/bin/env bash
# From a fresh clone to the report of a tune: installs what is missing, builds, verifies, tunes, looks back.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
log=$(mktemp)
if ! { cmake --preset release -DKORVANE_TESTS=OFF && cmake --build --preset release; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
rm -f "$log"

export KORVANE_BASE=$PWD/build/demo-base
export PATH=$PWD/build/release/bin:$PATH
show() { echo "\$ $*" && "$@"; }
[ -d "$KORVANE_BASE" ] || show korvane init "$KORVANE_BASE"
show korvane verify
show korvane tune
show korvane history list
show korvane report last -o build/report.html
