# Bash completion of qvc: commands, settings, values and other names, as the daemon lists them. What is no file for
# qvc is none here.
# For one shell: eval "$(qvc completion bash)"

_qvc()
{
    local candidate
    COMPREPLY=()
    while IFS= read -r candidate; do
        COMPREPLY+=("$candidate")
        [[ $candidate == *[.=/] ]] && compopt -o nospace
    done < <("$1" completion line "${COMP_LINE:0:COMP_POINT}" "$2" 2>/dev/null)
}
complete -F _qvc qvc
