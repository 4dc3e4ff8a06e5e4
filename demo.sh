#!/bin/bash
# Builds qvcd, starts the shipped appliance in a folder of its own, and shows the life of one setting: get, set,
# save, apply, and the events of it. Works on a fresh Debian 12, as root or with sudo. With a terminal it leaves
# you in qvc afterwards. Ends with 0 only if everything that it showed was right.
# Usage: ./demo.sh        ./demo.sh web: the appliance with its web console, until Ctrl-C
#        ./demo.sh fleet: ten appliances at a broker (scripts/demo_fleet.sh)
set -uo pipefail
cd "$(dirname "$0")" || exit 1
. scripts/demo_tools.sh

# The folder is the "/" of the appliance. Its path is part of socket addresses, so it is short.
start_appliance() {
    QV_SYSROOT=$(mktemp -d /tmp/qvcd-demo.XXXXXX) || exit 1
    export QV_SYSROOT
    cp -a share/root/. "$QV_SYSROOT" &&
        mkdir -p "$QV_SYSROOT/usr/share/qvapi" &&
        cp build/release/share/apimeta.hdf "$QV_SYSROOT/usr/share/qvapi/" || exit 1
    port=$(free_port)
    # It goes into the background, out of reach of the terminal's Ctrl-C, and returns when it serves.
    qvcd -w -P "$port" -p "$QV_SYSROOT/var/run/qvcd.pid" -l "$QV_SYSROOT/var/log/qvcd.log"
    daemon=$(cat "$QV_SYSROOT/var/run/qvcd.pid") || give_up "the daemon did not start"
}

stop_appliance() {
    stop_watching
    if [ -n "${gateway:-}" ] && kill -TERM "$gateway" 2>/dev/null; then
        wait "$gateway"
    fi
    if [ -n "${daemon:-}" ] && kill -INT "$daemon" 2>/dev/null; then
        wait_until daemon_is_gone
    fi
    [ -n "${QV_SYSROOT:-}" ] && rm -rf "$QV_SYSROOT"
}

daemon_is_gone() {
    ! kill -0 "$daemon"
}

give_up() {
    echo "demo: $*" >&2
    [ -s "$QV_SYSROOT/var/log/qvcd.log" ] && tail -n 20 "$QV_SYSROOT/var/log/qvcd.log" >&2
    exit 1
}

# Events are only seen from when the daemon has taken the subscriber in: a login tells.
start_watching() {
    qvc watch >"$QV_SYSROOT/events" &
    watcher=$!
    wait_until sees_login || give_up "no events arrive"
}

stop_watching() {
    [ -n "${watcher:-}" ] && kill -INT "$watcher" 2>/dev/null
    watcher=
}

sees_login() {
    local session
    session=$(qvc login admin kelpo) && qvc logout "${session#Session=}" && grep -q '^login ' "$QV_SYSROOT/events"
}

# show EXPECTED COMMAND...: runs it before the viewer's eyes; its output must be EXPECTED.
show() {
    local expected=$1 shown
    shift
    echo "  \$ $*"
    shown=$("$@" 2>&1)
    sed 's/^/  /' <<<"$shown"
    if [ "$shown" != "$expected" ]; then
        echo "  ^ WRONG, expected: $expected"
        failed=1
    fi
}

demonstrate() {
    say "The web server's port, as its configuration file has it. Locally, and over TCP:"
    show "Services.HTTP.port=80" qvc get Services.HTTP.port
    show "Services.HTTP.port=80" qvc -H "127.0.0.1:$port" get Services.HTTP.port
    say "Values are checked:"
    show "Services.HTTP.port=##Invalid integer format#: http
qvc: Services.HTTP.port takes a port, 0 to 65535" qvc set Services.HTTP.port=http
    say "Set: the value is in the settings tree, not in the file."
    show "Services.HTTP.port=8088" qvc set Services.HTTP.port=8088
    show "port=80" grep ^port= "$QV_SYSROOT/etc/httpd.conf"
    say "Save: the value is in the file and in its shadow copy."
    show "Services.HTTP.port=8088" qvc save Services
    show "port=8088" grep ^port= "$QV_SYSROOT/etc/httpd.conf"
    show "port=8088" grep ^port= "$QV_SYSROOT/etc/shadow.d/httpd.conf"
    say "Apply, over TCP: the web server is started again (here its init script writes a line)."
    show "Services.HTTP.port=8088" qvc -H "127.0.0.1:$port" apply Services
    show "httpd restart 8088" tail -n 1 "$QV_SYSROOT/var/log/services.log"
    say "What qvc watch saw meanwhile:"
    wait_until grep -q '^apply ' "$QV_SYSROOT/events"
    show "set Services.HTTP.port=8088
save Services.HTTP.port=8088
apply Services.HTTP.port=8088" grep HTTP "$QV_SYSROOT/events"
}

# Without TLS: a browser would ask about the certificate, and it is this machine alone that can ask.
show_web() {
    qvweb --plain --debug --listen "127.0.0.1:$(free_port)" --files share/web >"$QV_SYSROOT/address" &
    gateway=$!
    wait_until test -s "$QV_SYSROOT/address" || give_up "the gateway did not start"
    echo "The appliance is at $(cat "$QV_SYSROOT/address") until Ctrl-C."
    echo "Log in as admin, password kelpo; or as operator or viewer, whose passwords are their names."
    wait "$gateway"
}

needed=build
[ "${1:-}" = fleet ] && needed=test # a broker
scripts/install_deps.sh $needed || exit 1
targets=(qvcd qvc apimeta)
[ "${1:-}" = web ] && targets+=(qvweb)
echo "building (the whole output is in build/demo.log) ..."
mkdir -p build
if ! { cmake --preset release && cmake --build --preset release -j "$(nproc)" --target "${targets[@]}"; } >build/demo.log 2>&1; then
    tail -n 40 build/demo.log >&2
    exit 1
fi
PATH=$PWD/build/release/bin:$PATH
[ "${1:-}" = fleet ] && exec scripts/demo_fleet.sh

failed=0
trap stop_appliance EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
start_appliance
if [ "${1:-}" = web ]; then
    show_web
    exit 0
fi
start_watching
demonstrate
echo
if [ $failed -ne 0 ]; then
    echo "demo: not everything was right"
    exit 1
fi
if [ -t 0 ] && [ -t 1 ]; then
    echo "The appliance runs in $QV_SYSROOT until you leave. Try: help, get System, set Network.hostname=studio"
    stop_watching
    trap : INT
    qvc
fi
exit 0
