# Bash completion of qvc: commands, sub-commands and setting names, as the daemon lists them.
# For one shell: eval "$(qvc completion bash)"

_qvc()
{
    local line=${COMP_LINE:0:COMP_POINT} words current candidate
    read -r -a words <<<"$line"
    [[ $line == *[[:blank:]] ]] && words+=("")
    current=${words[-1]}
    COMPREPLY=()
    while IFS= read -r candidate; do
        # Bash completes only what follows the last of its word breaks.
        COMPREPLY+=("${candidate:$((${#current} - ${#2}))}")
        [[ $candidate == *[.=] ]] && compopt -o nospace
    done < <("${words[0]}" completion words "${words[@]:1}" 2>/dev/null)
}
complete -o default -F _qvc qvc
