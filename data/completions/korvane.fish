# Completion of korvane for fish: the program itself says what may stand next.
function __korvane_words
    set -l words (commandline -opc) (commandline -ct)
    set -l found ($words[1] complete $words[2..-1] 2>/dev/null)
    if contains -- '*files' $found
        __fish_complete_path (commandline -ct)
    else
        printf '%s\n' $found
    end
end
complete -c korvane -f -a '(__korvane_words)'
