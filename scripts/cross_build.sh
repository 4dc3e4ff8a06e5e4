#!/bin/bash
# Builds for arm64 with Debian's cross compiler, and lets the result work under qemu-user: qvcd on the shipped appliance, and
# qvc with one value over the socket. What it needs is installed by "install_deps.sh cross"; no foreign architecture is
# added to this machine: headers and libraries are unpacked into build/arm64-sysroot (300 MB, made again when the list of libraries is another).
# Usage: scripts/cross_build.sh
set -euo pipefail
cd "$(dirname "$0")/.."

sysroot=$PWD/build/arm64-sysroot
make_sysroot() {
    local wanted
    wanted="libc6-dev libstdc++-12-dev $(scripts/install_deps.sh libraries)"
    [ "$(cat "$sysroot/holds" 2>/dev/null)" = "$wanted" ] && return
    rm -rf "$sysroot" "$sysroot.new"
    mmdebstrap --quiet --variant=extract --architectures=arm64 --include="${wanted// /,}" bookworm "$sysroot.new"
    echo "$wanted" >"$sysroot.new/holds"
    mv "$sysroot.new" "$sysroot"
}

build() {
    cmake --preset release -B build/arm64 --toolchain cmake/aarch64-linux-gnu.cmake \
        -D QVCD_SYSROOT="$sysroot" -D QVCD_TESTS=OFF -D CMAKE_INSTALL_PREFIX=/usr
    cmake --build build/arm64 -j "$(nproc)"
}

# on_arm64 PROGRAM ARGUMENT...
on_arm64() {
    local program=$1
    shift
    timeout 60 qemu-aarch64 -L "$sysroot" "build/arm64/bin/$program" "$@"
}

fail() {
    echo "cross_build: $*" >&2
    [ ! -s "$QV_SYSROOT/stderr" ] || cat "$QV_SYSROOT/stderr" >&2
    exit 1
}

clean_up() {
    [ -z "${daemon:-}" ] || kill -INT "$daemon" 2>/dev/null || true
    wait
    rm -rf "$QV_SYSROOT"
}

try_it() {
    QV_SYSROOT=$(mktemp -d /tmp/qvcd-arm64.XXXXXX)
    export QV_SYSROOT
    trap clean_up EXIT
    cp -a share/root/. "$QV_SYSROOT"
    mkdir -p "$QV_SYSROOT/usr/share/qvapi"
    cp build/arm64/share/apimeta.hdf "$QV_SYSROOT/usr/share/qvapi/"
    qemu-aarch64 -L "$sysroot" build/arm64/bin/qvcd -g -w -p "$QV_SYSROOT/var/run/qvcd.pid" 2>"$QV_SYSROOT/stderr" &
    daemon=$!
    for _ in {1..300}; do
        [ ! -S "$QV_SYSROOT/var/run/qv/qvcd.sock" ] || break
        kill -0 "$daemon" 2>/dev/null || fail "qvcd has ended"
        sleep 0.1
    done
    [ "$(on_arm64 qvc get Services.HTTP.port)" = "Services.HTTP.port=80" ] || fail "get"
    on_arm64 qvc set Services.HTTP.port=8088 >/dev/null || fail "set"
    on_arm64 qvc save Services >/dev/null || fail "save"
    grep -q '^port=8088$' "$QV_SYSROOT/etc/httpd.conf" || fail "the file was not written"
    on_arm64 qvmeta check --root share/root share/model/*.hdf || fail "qvmeta"
    kill -INT "$daemon"
    wait "$daemon" || fail "qvcd did not end well"
    daemon=
}

make_sysroot
build
try_it
echo "build/arm64: built, and tried under qemu-user"
