#!/usr/bin/env bash
# Fetches the source of pugixml, the very version of the system's package, into a folder: fetch_pugixml.sh FOLDER.
# Debian has no pugixml for the Windows cross compilers. The machine's own source lines are used, signed as always, from
# a private list: nothing of the system changes.
set -euo pipefail
folder=${1:?usage: $0 FOLDER}
[ -f "$folder/src/pugixml.cpp" ] && exit 0
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
version=$(dpkg-query -W -f '${source:Version}' libpugixml-dev)
cd "$work"
apt-get "${options[@]}" update || true  # a foreign list without sources is no harm
apt-get "${options[@]}" source --download-only "pugixml=$version"
tar xf pugixml_*.orig.tar.* -C "$folder" --strip-components=1 --wildcards '*/src/*' '*/LICENSE.md'
