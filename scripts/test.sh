#!/usr/bin/env bash
# Builds and runs the tests, in release and under the sanitizers. Installs what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh native
for preset in release asan; do
    echo "== $preset"
    cmake --preset "$preset" -DKORVANE_TESTS=ON >/dev/null
    cmake --build --preset "$preset"
    ctest --preset "$preset" --no-tests=error -j2
done
