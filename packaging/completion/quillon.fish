# Completion of quillon's command lines in fish. The program itself knows the words; without any, the
# names of files are offered.
function __quillon_words
    set -l words (commandline --tokenize --cut-at-cursor --current-process)
    set -l last (commandline --current-token --cut-at-cursor)
    set -l rows ($words[1] __complete $words[2..] "$last" 2>/dev/null)
    if set -q rows[1]
        printf '%s\n' $rows
    else
        __fish_complete_path "$last"
    end
end
complete --command quillon --no-files --arguments '(__quillon_words)'
