# Read by the attacks, with the program as their first argument: a folder that goes with them, to work in, and a base
# folder in it.
program=$(realpath "$1")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export KORVANE_BASE=$folder/base
cd "$folder" || exit 1
run() { "$program" "$@"; }
if [[ $program = *.exe ]]; then  # within a session of scripts/wine.sh
    run() { wine "$program" "$@"; }
    KORVANE_BASE=$(winepath -w "$KORVANE_BASE" 2>/dev/null </dev/null | tr -d '\r')
fi
run init base >/dev/null </dev/null
