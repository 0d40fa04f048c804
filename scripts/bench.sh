#!/usr/bin/env bash
# Builds and runs the benchmark program, which prints its report and the table of ratios. With --peers other peak pickers
# from Debian's packages are measured on the same spectra in the same run, and the whole table goes to
# docs/performance.md. With --windows late binding is measured under Wine, for docs/performance-windows.md. Other
# arguments go to the program; a run of a part of the benchmarks leaves the documents alone.
set -euo pipefail
cd "$(dirname "$0")/.."

native() {  # native PEERS ARGUMENTS...
    cmake --preset release -DKORVANE_BENCH=ON -DKORVANE_PEERS="$1" >/dev/null
    cmake --build --preset release --target korvane_bench >/dev/null
    build/release/bin/korvane_bench "${@:2}"
}

windows() {
    . scripts/wine.sh
    cmake --preset windows64 -DKORVANE_BENCH=ON >/dev/null
    cmake --build --preset windows64 --target korvane_bench_windows korvane_server korvane_program >/dev/null
    local base
    base=$(winepath -w "$PWD/build/bench-base" 2>/dev/null </dev/null | tr -d '\r')
    rm -rf build/bench-base
    wine build/windows64/bin/korvane.exe init "$base" >/dev/null 2>&1 </dev/null
    KORVANE_BASE=$base wine build/windows64/bin/korvane_bench_windows.exe build/windows64/bin/Korvane.dll </dev/null |
        tr -d '\r'
}

case ${1:-} in
    --windows)
        scripts/bootstrap.sh native windows
        table=$(windows)
        echo "$table"
        { cat bench/windows/performance_head.md; echo "$table"; } >docs/performance-windows.md
        ;;
    --peers)
        shift
        scripts/bootstrap.sh native bench peers
        report=$(mktemp)
        trap 'rm -f "$report"' EXIT
        native ON "$@" | tee "$report"
        if [ $# -eq 0 ]; then
            {
                cat bench/performance_head.md
                sed -n '/^| figure /,$p' "$report"
                cat bench/performance_notes.md
            } >docs/performance.md
        fi
        ;;
    *)
        scripts/bootstrap.sh native bench
        native OFF "$@"
        ;;
esac
