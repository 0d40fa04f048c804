#!/usr/bin/env bash
# A million simulated acquisitions (or as many as given) with an instrument that goes wrong once in a thousand calls:
# memory and handles must stay as they are, and every result be explained. Arguments: [ACQUISITIONS] [SEED].
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh native
cmake --preset release -DKORVANE_TESTS=ON >/dev/null
cmake --build --preset release --target test_reliability >/dev/null
# Log files by the thousand: in memory where there is such a folder.
[ -d /dev/shm ] && export TMPDIR=/dev/shm
export KORVANE_SOAK=${1:-1000000} KORVANE_SOAK_SEED=${2:-1}
time build/release/bin/test_reliability --gtest_filter='Soak*'
