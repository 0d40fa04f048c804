# Completion of korvane for bash: the program itself says what may stand next.
_korvane() {
    local begun=${COMP_WORDS[COMP_CWORD]} word
    COMPREPLY=()
    while IFS= read -r word; do
        if [ "$word" = '*files' ]; then
            compopt -o filenames
            while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -f -- "$begun")
        else
            COMPREPLY+=("$word")
        fi
    done < <("${COMP_WORDS[0]}" complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -F _korvane korvane
