#!/usr/bin/env bash
# Builds the packages into build/packages and tries them as a user would. Arguments: deb (Debian packages, installed
# into a bare Debian 12 root, used there by each face, and removed without a trace), tree (an installation that is
# moved); all when there are none. deb is run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
packages=$PWD/build/packages
mkdir -p "$packages"

# What a user does with an installation: the command, a C++ program by pkg-config and by CMake.
try_faces='
set -e
cd "$(mktemp -d)"
korvane init tune
korvane measure --base tune | grep 1382.73
korvane verify --base tune
sed -n "/^\`\`\`cpp/,/^\`\`\`/{/^\`\`\`/!p;/^\`\`\`\$/q}" "$README" > example.cpp
c++ -std=c++20 example.cpp -o example $(pkg-config --cflags --libs korvane)
KORVANE_BASE=$PWD/tune ./example
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
    cp README.md "$root/tmp"
    mkdir "$root/tmp/packages"
    cp "$packages"/*.deb "$root/tmp/packages"
    in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive "$@"; }
    in_root apt-get install -y -qq --no-install-recommends g++ pkgconf >/dev/null
    files() { in_root find /usr /etc /var/lib -xdev -not -path '/var/lib/dpkg/*' -not -path '/var/lib/apt/*' | sort; }
    files >"$packages/before"
    in_root sh -c 'apt-get install -y -qq --no-install-recommends /tmp/packages/*.deb' >/dev/null
    in_root env README=/tmp/README.md sh -c "$try_faces"
    in_root sh -c 'apt-get purge -y -qq korvane libkorvane-dev "libkorvane0*" && apt-get autoremove --purge -y -qq' >/dev/null
    files >"$packages/after"
    if ! diff "$packages/before" "$packages/after"; then
        echo "$0: the packages leave something behind" >&2
        exit 1
    fi
}

tree() {
    scripts/bootstrap.sh native package
    local tree=$packages/moved
    cmake --preset release -DKORVANE_TESTS=OFF >/dev/null
    cmake --build --preset release >/dev/null
    rm -rf "$tree" "$packages/installed"
    cmake --install build/release --prefix "$packages/installed" >/dev/null
    mv "$packages/installed" "$tree"
    env README="$PWD/README.md" PATH="$tree/bin:$PATH" LD_LIBRARY_PATH="$tree/lib" \
        PKG_CONFIG_PATH="$tree/lib/pkgconfig" sh -c "$try_faces"
    local page
    for page in "$tree"/share/man/man1/*.1; do
        man --warnings -l "$page" 2>&1 >/dev/null | { ! grep . ; }
    done
}

[ $# -gt 0 ] || set -- tree deb
for which in "$@"; do
    case $which in
        deb | tree) echo "== $which"; "$which" ;;
        *) echo "usage: $0 [tree] [deb]" >&2; exit 2 ;;
    esac
done
