#!/usr/bin/env bash
# Installs what the build and the tests need and the machine lacks, with apt. Parts: native (default), python, abi, format,
# windows, history, locale, report, bench, peers, fuzz, package.
set -euo pipefail

native=(g++ cmake ninja-build ccache git ca-certificates libexpat1-dev libpugixml-dev libfmt-dev libcli11-dev
        nlohmann-json3-dev libeigen3-dev zlib1g-dev libsqlite3-dev libpq-dev libgtest-dev libgmock-dev
        python3-jsonschema help2man)
python=(python3 python3-venv python3-pip python3-setuptools python3-wheel python3-numpy python3-pandas python3-pytest mypy)
windows=(g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix mingw-w64-tools libz-mingw-w64-dev wine wine64 libwine
         googletest dpkg-dev make tcl)

wanted=()
for part in "${@:-native}"; do
    case $part in
        native) wanted+=("${native[@]}") ;;
        python) wanted+=("${python[@]}") ;;
        abi) wanted+=(abigail-tools) ;;
        format) wanted+=(clang-format) ;;
        windows) wanted+=("${windows[@]}") ;;
        history) wanted+=(postgresql postgresql-common prometheus) ;;
        locale) wanted+=(locales) ;;
        report) wanted+=(chromium tidy libxml2-utils) ;;
        bench) wanted+=(libbenchmark-dev) ;;
        peers) wanted+=(libopenms-dev libpwiz-dev qtbase5-dev libboost-dev python3-scipy libxml2-dev) ;;
        package) wanted+=(debhelper dh-python dpkg-dev fakeroot lintian mmdebstrap nsis pkgconf man-db zip) ;;
        fuzz) wanted+=(clang-16 libclang-rt-16-dev) ;;
        *) echo "usage: $0 [native] [python] [abi] [format] [windows] [history] [locale] [report] [bench] [peers] [fuzz] [package]" >&2; exit 2 ;;
    esac
done

missing=()
for package in "${wanted[@]}"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "$0: run as root, or install sudo; missing: ${missing[*]}" >&2; exit 1; }
    as_root=(sudo)
fi
echo "installing: ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq >&2
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
