#!/usr/bin/env bash
# Runs every fuzz target for the given number of seconds (default 60), starting from the seed corpus and what earlier
# runs found. A crasher ends the run and is put into fuzz/crashers/<target>, from where a test replays it for good.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

scripts/bootstrap.sh native fuzz
cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-16 \
      -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link -DKORVANE_SANITIZE=address,undefined -DKORVANE_FUZZ=ON >/dev/null
cmake --build build/fuzz --target fuzz_programs
# Memory that a run leaves behind on purpose (what it has looked up once) makes the leak check of every single run slow;
# the check at the end of the program stays.
for program in build/fuzz/bin/fuzz_*; do
    target=${program##*/fuzz_}
    mkdir -p "build/fuzz/corpus/$target" "fuzz/crashers/$target"
    echo "== $target, $seconds s"
    "$program" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 -verbosity=0 \
               -print_funcs=0 -detect_leaks=0 -artifact_prefix="fuzz/crashers/$target/" \
               "build/fuzz/corpus/$target" "fuzz/corpus/$target"
done
