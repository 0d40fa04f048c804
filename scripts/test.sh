#!/usr/bin/env bash
# Builds and runs the tests; installs what is missing. Arguments: format (the sources are as .clang-format has them),
# native (the release build), sanitizers (the same tests under them), windows (cross-built, under Wine), or all, as every
# change is checked before it lands. Without arguments format and native.
set -euo pipefail
cd "$(dirname "$0")/.."

format() {
    scripts/bootstrap.sh format
    echo "== format"
    git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror
}

tests_of() {  # tests_of PRESET
    echo "== $1"
    cmake --preset "$1" -DKORVANE_TESTS=ON >/dev/null
    cmake --build --preset "$1"
    ctest --preset "$1" --no-tests=error -j2
}

native() {
    scripts/bootstrap.sh native python abi
    tests_of release
}

sanitizers() {
    scripts/bootstrap.sh native
    tests_of asan
}

windows() {
    scripts/bootstrap.sh native windows
    . scripts/wine.sh
    # What the programs for Windows do is compared with what the native one does.
    cmake --preset release >/dev/null
    cmake --build --preset release --target korvane_program
    tests_of windows64
    # The decimal separator is the user's setting there: once more with a comma.
    local setting=('HKCU\Control Panel\International' /v sDecimal /f) passed=yes
    wine reg add "${setting[@]}" /d , >/dev/null 2>&1 </dev/null
    wine build/windows64/bin/test_apps.exe --gtest_brief=1 '--gtest_filter=*DecimalComma*' </dev/null || passed=no
    wine reg add "${setting[@]}" /d . >/dev/null 2>&1 </dev/null
    [ $passed = yes ]
    echo "== windows32"
    # There is no 32-bit Wine to run it on: it is built, and its imports are looked at.
    cmake --preset windows32 >/dev/null
    cmake --build --preset windows32 --target korvane_server korvane_program
    cmake "-DFILES=build/windows32/bin/Korvane.dll;build/windows32/bin/korvane.exe" \
          -DOBJDUMP=i686-w64-mingw32-objdump -P tests/windows/imports.cmake
}

[ $# -gt 0 ] || set -- format native
[ "$*" != all ] || set -- format native sanitizers windows
for part in "$@"; do
    case $part in
        format | native | sanitizers | windows) "$part" ;;
        *) echo "usage: $0 [all | [format] [native] [sanitizers] [windows]]" >&2; exit 2 ;;
    esac
done
