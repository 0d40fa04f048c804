#!/usr/bin/env bash
# Builds and runs the benchmark program; prints its report and the table of ratios, which also goes to
# docs/performance.md. With --peers other peak pickers from Debian's packages are measured on the same spectra in the
# same run. Other arguments go to the program; a run of a part of the benchmarks leaves the document alone.
set -euo pipefail
cd "$(dirname "$0")/.."

peers=OFF
if [ "${1:-}" = --peers ]; then
    peers=ON
    shift
    scripts/bootstrap.sh native bench peers
else
    scripts/bootstrap.sh native bench
fi
cmake --preset release -DKORVANE_BENCH=ON -DKORVANE_PEERS=$peers >/dev/null
cmake --build --preset release --target korvane_bench >/dev/null
report=$(mktemp)
build/release/bin/korvane_bench "$@" | tee "$report"
if [ $# -eq 0 ]; then
    {
        cat bench/performance_head.md
        sed -n '/^| figure /,$p' "$report"
    } >docs/performance.md
fi
rm -f "$report"
