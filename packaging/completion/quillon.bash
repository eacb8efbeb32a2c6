# Completion of quillon's command lines in bash. The program itself knows the words; without any, the
# shell completes the names of files.
_quillon() {
  mapfile -t COMPREPLY < <("${COMP_WORDS[0]}" __complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
  COMPREPLY=("${COMPREPLY[@]%%$'\t'*}")
}
complete -o default -F _quillon quillon
