#!/bin/bash
# Ten appliances of the shipped model and a broker, each in a folder of its own: who is there, what differs, a rolling
# commit that meets a broken appliance and is rolled back, and the same once it is mended. ./demo.sh fleet runs it, with
# the programs in PATH. Ends with 0 only if everything that it showed was right.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
. scripts/demo_tools.sh

folder=$(mktemp -d /tmp/qvcd-fleet.XXXXXX) || exit 1
daemons=()
failed=0

stop_all() {
    local pid
    for pid in "${daemons[@]}"; do
        kill -INT "$pid" 2>/dev/null
    done
    wait 2>/dev/null
    rm -rf "$folder"
}
trap stop_all EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# show STATUS PATTERN COMMAND...: runs it before the viewer's eyes; its exit status and its output must be these.
show() {
    local status=$1 pattern=$2 shown code
    shift 2
    echo "  \$ $*"
    shown=$("$@" 2>&1)
    code=$?
    sed 's/^/  /' <<<"$shown"
    if [ $code -ne "$status" ] || ! grep -qE "$pattern" <<<"$shown"; then
        echo "  ^ WRONG, expected: $pattern, exit status $status"
        failed=1
    fi
}

# An authority, and the broker's certificate.
make_certificates() {
    local new=(openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes)
    {
        "${new[@]}" -x509 -days 2 -subj "/CN=Demo" -keyout "$folder/ca.key" -out "$folder/ca.pem" &&
            "${new[@]}" -subj "/CN=127.0.0.1" -addext "subjectAltName=IP:127.0.0.1" \
                -keyout "$folder/broker.key" -out "$folder/broker.csr" &&
            openssl x509 -req -in "$folder/broker.csr" -CA "$folder/ca.pem" -CAkey "$folder/ca.key" -CAcreateserial \
                -days 2 -copy_extensions copy -out "$folder/broker.pem"
    } 2>/dev/null
}

start_broker() {
    port=$(free_port)
    {
        echo "operator:console"
        for i in {1..10}; do echo "enc$i:unit$i"; done
    } >"$folder/passwords"
    mosquitto_passwd -U "$folder/passwords"
    sed -e "s|^listener.*|listener $port 127.0.0.1|" -e "s|/etc/mosquitto/fleet/acl|$PWD/share/fleet/acl.example|" \
        -e "s|/etc/mosquitto/fleet|$folder|" share/fleet/mosquitto.conf.example >"$folder/mosquitto.conf"
    echo "user $(id -un)" >>"$folder/mosquitto.conf"
    PATH=$PATH:/usr/sbin mosquitto -c "$folder/mosquitto.conf" >"$folder/broker.log" 2>&1 &
    daemons+=($!)
}

start_appliance() {
    local id=enc$1 root=$folder/$1
    mkdir "$root" && cp -a share/root/. "$root" && mkdir -p "$root/usr/share/qvapi" &&
        cp build/release/share/apimeta.hdf "$root/usr/share/qvapi/" && cp "$folder/ca.pem" "$root/etc/qv/ca.pem"
    printf 'host=127.0.0.1\nport=%s\nuser=%s\npassword=unit%s\nid=%s\ncafile=/etc/qv/ca.pem\ncommands=yes\n' \
        "$port" "$id" "$1" "$id" >"$root/etc/qv/notify.conf"
    sed -i "s/^LABEL=.*/LABEL=\"Hall $(($1 % 2 + 1))\"/" "$root/etc/system.conf"
    QV_SYSROOT=$root qvcd -w -g -p "$root/var/run/qvcd.pid" -l "$root/var/log/qvcd.log" &
    daemons+=($!)
}

all_are_there() {
    [ "$(qvc fleet list --json --where online=yes 2>/dev/null | wc -l)" -eq 10 ]
}

make_certificates || exit 1
start_broker
export HOME=$folder XDG_CONFIG_HOME=$folder/config XDG_STATE_HOME=$folder/state
mkdir -p "$XDG_CONFIG_HOME/qvc"
printf 'broker=mqtts://operator@127.0.0.1:%s\nbroker_password=console\ncafile=%s\nuser=operator\npassword=fleet\n' \
    "$port" "$folder/ca.pem" >"$XDG_CONFIG_HOME/qvc/fleet.conf"
chmod 600 "$XDG_CONFIG_HOME/qvc/fleet.conf"
for i in {1..10}; do start_appliance "$i"; done
for i in {1..10}; do # the built-in password is not for the network
    for try in {1..100}; do
        QV_SYSROOT=$folder/$i qvc user.add operator 1 >/dev/null 2>&1 && break
        sleep 0.1
    done
    QV_SYSROOT=$folder/$i qvc user.passwd operator fleet >/dev/null
done
for try in {1..100}; do
    all_are_there && break
    sleep 0.1
done

say "Ten appliances at a broker, with TLS, log-ins and the ACL that ships:"
show 0 '^enc10.online' qvc fleet list
say "One was changed by hand. What is not the same everywhere:"
QV_SYSROOT=$folder/7 qvc update Services.HTTP.port=8080 >/dev/null
show 0 'Services.HTTP.port.*8080' qvc fleet get --differ Services
say "On the eighth the web server does not start:"
echo 'echo "cannot bind" >&2; exit 1' >"$folder/8/etc/init.d/httpd"
say "A rolling commit, five at a time. The batch with the broken one is rolled back:"
show 1 '5 done, 1 failed, 4 rolled back' qvc fleet commit --settle 0 --batch 5 Services.HTTP.port=8088
show 0 'Services.HTTP.port' qvc fleet get Services.HTTP.port
say "It is mended. The same command goes on where it ended:"
cp share/root/etc/init.d/httpd "$folder/8/etc/init.d/httpd"
show 0 '10 done, 0 failed' qvc fleet commit --settle 0 --batch 5 Services.HTTP.port=8088
show 0 'NAME' qvc fleet get --differ Services.HTTP.port
say "One loses its power; its last will tells:"
{ kill -KILL "${daemons[3]}" && wait "${daemons[3]}"; } 2>/dev/null
for try in {1..50}; do
    [ "$(qvc fleet list --json --where online=no | wc -l)" -eq 1 ] && break
    sleep 0.1
done
show 0 '^enc3' qvc fleet list --where online=no
echo
[ $failed -eq 0 ] || echo "demo: not everything was right"
exit $failed
