# What the demonstrations share; they source it.

say() {
    printf '\n%s\n' "$*"
}

# A TCP port of this machine that nobody listens on.
free_port() {
    local port
    for port in $(shuf -i 20000-32000 -n 50); do
        if ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
            echo "$port"
            return
        fi
    done
}

# wait_until COMMAND...: tries for ten seconds.
wait_until() {
    local try
    for try in {1..100}; do
        "$@" >/dev/null 2>&1 && return
        sleep 0.1
    done
    return 1
}
