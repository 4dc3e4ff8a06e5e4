# Fish completion of qvc: commands, settings, values and other names, as the daemon lists them.
# For one shell: qvc completion fish | source

function __qvc_candidates
    set -l program (commandline -opc)[1]
    set -l line (commandline -cp)
    set -l word (commandline -ct)
    $program completion line "$line" "$word" 2>/dev/null
end

complete -c qvc -f -a '(__qvc_candidates)'
