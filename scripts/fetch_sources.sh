#!/usr/bin/env bash
# Fetches the sources of Debian packages, each into a folder of its name: fetch_sources.sh FOLDER SOURCE=INSTALLED...
# where INSTALLED is the binary package whose version is wanted; when the archive no longer has it, the release's is taken.
# Debian has some libraries not for the Windows cross compilers. The machine's own source lines are used, signed as
# always, from a private list: nothing of the system changes.
set -euo pipefail
folder=${1:?usage: $0 FOLDER SOURCE=INSTALLED...}
shift
wanted=()
for pair in "$@"; do
    [ -d "$folder/${pair%%=*}" ] || wanted+=("$pair")
done
[ ${#wanted[@]} -eq 0 ] && exit 0
mkdir -p "$folder"
folder=$(cd "$folder" && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/parts" "$work/lists/partial" "$work/cache"
for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -f "$list" ] && sed -n 's/^deb /deb-src /p' "$list" >>"$work/src.list"
done
touch "$work/src.list"
for list in /etc/apt/sources.list.d/*.sources; do
    [ -f "$list" ] && sed 's/^Types:.*/Types: deb-src/' "$list" >"$work/parts/$(basename "$list")"
done
options=(-o "Dir::Etc::sourcelist=$work/src.list" -o "Dir::Etc::sourceparts=$work/parts"
         -o "Dir::State::lists=$work/lists" -o "Dir::Cache=$work/cache" -o APT::Sandbox::User=root -qq)
cd "$work"
apt-get "${options[@]}" update || true  # a foreign list without sources is no harm
for pair in "${wanted[@]}"; do
    source=${pair%%=*}
    version=$(dpkg-query -W -f '${source:Version}' "${pair#*=}")
    apt-get "${options[@]}" source --download-only "$source=$version" ||
        apt-get "${options[@]}" source --download-only "$source/$(. /etc/os-release && echo "$VERSION_CODENAME")"
    # Complete or not there at all.
    mkdir "$source.part"
    tar xf "$source"_*.orig.tar.* -C "$source.part" --strip-components=1
    # Debian's changes to the release, of which its fixes are part.
    mkdir "$source.debian"
    tar xf "$source"_*.debian.tar.* -C "$source.debian"
    if [ -f "$source.debian/debian/patches/series" ]; then
        while read -r patch _; do
            case $patch in '' | '#'*) continue ;; esac
            patch -s -p1 -d "$source.part" <"$source.debian/debian/patches/$patch"
        done <"$source.debian/debian/patches/series"
    fi
    mv "$source.part" "$folder/$source"
done
