# Read by the attacks, with the program as their first argument: a folder that goes with them, to work in, and a base
# folder in it.
program=$(realpath "$1")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export KORVANE_BASE=$folder/base
cd "$folder" || exit 1
"$program" init base >/dev/null
