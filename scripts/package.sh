#!/usr/bin/env bash
# Builds the packages into build/packages and tries them as a user would. Arguments: deb (Debian packages, installed
# into a bare Debian 12 root, used there by each face, and removed without a trace), tree (an installation that is
# moved), windows (a zip and an installer, installed, used and removed under Wine); all when there are none. deb is run
# as root.
set -euo pipefail
cd "$(dirname "$0")/.."
packages=$PWD/build/packages
mkdir -p "$packages"

# What a user does with an installation: the command, a C++ and a C program by pkg-config, Python.
try_faces='
set -e
cd "$(mktemp -d)"
example() { sed -n "/^\`\`\`$1\$/,/^\`\`\`/{/^\`\`\`/!p;/^\`\`\`\$/q}" "$DOCUMENTS/$2"; }
korvane init tune
korvane measure --base tune | grep 1382.73
korvane tune --base tune --from fit -o report.html
tail -n 1 report.html
example cpp README.md > example.cpp
c++ -std=c++20 example.cpp -o example $(pkg-config --cflags --libs korvane)
KORVANE_BASE=$PWD/tune ./example
example c docs/c-interface.md > example.c
cc -std=c99 example.c -o example_c $(pkg-config --cflags --libs korvane)
./example_c tune
example python README.md > example.py
/usr/bin/python3 example.py
'

deb() {
    scripts/bootstrap.sh native package
    local source=$packages/source root=$packages/root
    rm -rf "$packages"
    mkdir -p "$source"
    git archive HEAD | tar -x -C "$source"
    echo "== building"
    (cd "$source" && dpkg-buildpackage -b -us -uc) >"$packages/build.log" 2>&1 || { tail -40 "$packages/build.log"; exit 1; }
    rm -rf "$source"
    echo "== lintian"
    lintian --fail-on error "$packages"/*.changes
    echo "== installing into a bare root"
    mmdebstrap --variant=apt bookworm "$root" >"$packages/root.log" 2>&1 || { tail -20 "$packages/root.log"; exit 1; }
    trap 'rm -rf "$packages/root"' EXIT
    mkdir "$root/tmp/docs"
    cp README.md "$root/tmp"
    cp docs/c-interface.md "$root/tmp/docs"
    mkdir "$root/tmp/packages"
    cp "$packages"/*.deb "$root/tmp/packages"
    in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive "$@"; }
    cp /etc/resolv.conf "$root/etc"
    in_root apt-get update -qq
    in_root apt-get install -y -qq --no-install-recommends g++ pkgconf >/dev/null
    files() { in_root find /usr /etc /var/lib -xdev -not -path '/var/lib/dpkg/*' -not -path '/var/lib/apt/*' | sort; }
    files >"$packages/before"
    in_root sh -c 'apt-get install -y -qq --no-install-recommends /tmp/packages/*.deb' >/dev/null
    in_root env DOCUMENTS=/tmp sh -c "$try_faces"
    in_root sh -c 'apt-get purge -y -qq korvane python3-korvane libkorvane-dev "libkorvane0*" && apt-get autoremove --purge -y -qq' >/dev/null
    files >"$packages/after"
    if ! diff "$packages/before" "$packages/after"; then
        echo "$0: the packages leave something behind" >&2
        exit 1
    fi
}

tree() {
    scripts/bootstrap.sh native python package
    local tree=$packages/moved
    cmake --preset release -DKORVANE_TESTS=OFF >/dev/null
    cmake --build --preset release >/dev/null
    rm -rf "$tree" "$packages/installed"
    cmake --install build/release --prefix "$packages/installed" >/dev/null
    mv "$packages/installed" "$tree"
    env DOCUMENTS="$PWD" PATH="$tree/bin:$PATH" LD_LIBRARY_PATH="$tree/lib" PYTHONPATH="$PWD/python" \
        PKG_CONFIG_PATH="$tree/lib/pkgconfig" sh -c "$try_faces"
    local page
    for page in "$tree"/share/man/man1/*.1; do
        man --warnings -l "$page" 2>&1 >/dev/null | { ! grep . ; }
    done
}

# What is linked into the programs for Windows, with its licence.
notices() {
    local package
    echo "Korvane: its owner has not chosen a licence yet; all rights are reserved."
    echo "These libraries are part of the programs for Windows:"
    for package in libexpat1 libpugixml1v5 libfmt-dev libcli11-dev nlohmann-json3-dev libeigen3-dev libsqlite3-0 \
                   libz-mingw-w64-dev mingw-w64-x86-64-dev g++-mingw-w64-x86-64-posix; do
        printf '\n==== %s\n\n' "$package"
        cat "/usr/share/doc/$package/copyright"
    done
}

windows() {
    scripts/bootstrap.sh native windows package
    . scripts/wine.sh
    local tree=$packages/windows name preset
    for preset in windows64 windows32; do
        cmake --preset "$preset" -DKORVANE_TESTS=OFF >/dev/null
        cmake --build --preset "$preset" >/dev/null
    done
    rm -rf "$tree"
    cmake --install build/windows64 --prefix "$tree" >/dev/null
    mkdir -p "$tree/bin32" "$tree/include/korvane"
    cp build/windows32/bin/Korvane.dll "$tree/bin32"
    cmake "-DFILES=$tree/bin32/Korvane.dll;$tree/bin/Korvane.dll;$tree/bin/korvane.exe" \
          -DOBJDUMP=x86_64-w64-mingw32-objdump -P tests/windows/imports.cmake
    cp build/windows64/typelib/korvane.tlb "$tree/bin"
    cp include/korvane/korvane_c*.h "$tree/include/korvane"
    notices >"$tree/NOTICES.txt"
    name=korvane-$(sed -n 's/^project(korvane VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)-windows
    rm -f "$packages/$name".*
    (cd "$tree" && zip -qr "$packages/$name.zip" .)
    makensis -V2 -DVERSION="${name//[a-z-]/}" -DTREE="$tree" -DOUTPUT="$packages/$name.exe" packaging/windows/korvane.nsi

    echo "== installing under Wine"
    local work=$packages/wine installed
    rm -rf "$work"
    mkdir -p "$work"
    scripts/registry.sh "$work/before"
    wine "$packages/$name.exe" /S </dev/null
    installed=$WINEPREFIX/drive_c/Program\ Files/Korvane
    KORVANE_BASE=$(winepath -w "$work/base" | tr -d '\r')
    export KORVANE_BASE
    wine "$installed/bin/korvane.exe" init "$KORVANE_BASE" </dev/null >/dev/null
    wine "$installed/bin/korvane.exe" measure </dev/null | tr -d '\r' | grep 1382.73
    wine cscript //nologo "$(winepath -w tests/automation/com/scripts/acceptance.vbs | tr -d '\r')" "$KORVANE_BASE" \
        </dev/null | tr -d '\r' >"$work/script"
    grep -q DONE "$work/script"
    ! grep FAIL "$work/script"
    wine "$installed/uninstall.exe" /S '_?=C:\Program Files\Korvane' </dev/null
    scripts/registry.sh "$work/after"
    diff "$work/before" "$work/after"
    rm -f "$installed/uninstall.exe"  # which does not remove itself when it is waited for
    rmdir "$installed" 2>/dev/null || [ ! -e "$installed" ]
}

[ $# -gt 0 ] || set -- tree deb windows
for which in "$@"; do
    case $which in
        deb | tree | windows) echo "== $which"; "$which" ;;
        *) echo "usage: $0 [tree] [deb] [windows]" >&2; exit 2 ;;
    esac
done
