#!/bin/sh
# manual_pages.sh PROGRAM FOLDER: makes the program's manual pages of what it tells of itself, a page a command.
set -eu
program=$1 folder=$2
version=$("$program" --version | cut -d' ' -f2)

page() {  # description, the command's words
    description=$1
    shift
    name=$(echo korvane "$@" | tr ' ' -)
    help2man --no-info --version-string="$version" --help-option="$* --help" --name="$description" "$program" |
        sed -e "s/^\.TH KORVANE /.TH $(echo "$name" | tr a-z A-Z) /" -e "s/^korvane \\\\- /$name \\\\- /" >"$folder/$name.1"
    # A group's commands stand in its help, each with its description.
    "$program" "$@" --help | sed -n 's/^  \([a-z][a-z]*\)   *\(.*\)/\1 \2/p' | while read -r command description; do
        [ "$command" = help ] || (page "$description" "$@" "$command" </dev/null)
    done
}

rm -rf "$folder"
mkdir -p "$folder"
page "measure and adjust a tune"
