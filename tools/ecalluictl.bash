# Completion of ecalluictl for bash. The program itself knows its commands, options and parameters.

_ecalluictl() {
    local candidates
    mapfile -t candidates < <("${COMP_WORDS[0]}" complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
    COMPREPLY=()
    if [ "${candidates[0]:-}" = "@files" ]; then
        compopt -o default 2>/dev/null # fails outside of a completion
        return
    fi
    COMPREPLY=("${candidates[@]}")
}

complete -F _ecalluictl ecalluictl
