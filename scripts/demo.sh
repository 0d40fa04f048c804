#!/usr/bin/env bash
# From a fresh clone to the table of calibrants: installs what is missing, builds, measures.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
log=$(mktemp)
if ! { cmake --preset release -DKORVANE_TESTS=OFF && cmake --build --preset release; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
rm -f "$log"

korvane=build/release/bin/korvane
base=build/demo-base
[ -d "$base" ] || "$korvane" init "$base"
"$korvane" measure --base "$base" "$@"
