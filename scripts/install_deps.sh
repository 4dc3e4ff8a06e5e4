#!/bin/bash
# Installs the Debian packages that are missing: what the build needs, with "test" what the tests need too, with "fuzz"
# what fuzzing needs too, with "bench" what the benchmark compares with, and with "cross" what builds for arm64.
# "libraries" prints the names of what is linked, or is there as headers.
# Usage: scripts/install_deps.sh [build|test|fuzz|bench|cross|libraries]
set -euo pipefail

libraries=(
    libnl-3-dev libnl-route-3-dev libcurl4-openssl-dev libssl-dev libcrypt-dev
    libmosquitto-dev libedit-dev libsqlite3-dev libdtl-dev nlohmann-json3-dev libboost-dev
)
build_packages=(
    g++ cmake ninja-build pkg-config ccache
    "${libraries[@]}"
    libgtest-dev libgmock-dev
    tzdata
    python3 dpkg-dev
)
test_packages=(
    mosquitto mosquitto-clients python3 python3-pytest python3-paho-mqtt iproute2 strace socat openssl systemd
    python3-jsonschema python3-prometheus-client
    chromium chromium-driver python3-selenium
    zsh fish lintian
)
fuzz_packages=(clang libclang-rt-14-dev)
bench_packages=(redis-server)
cross_packages=(g++-aarch64-linux-gnu mmdebstrap qemu-user)

case "${1:-test}" in
build) wanted=("${build_packages[@]}") ;;
test) wanted=("${build_packages[@]}" "${test_packages[@]}") ;;
fuzz) wanted=("${build_packages[@]}" "${test_packages[@]}" "${fuzz_packages[@]}") ;;
bench) wanted=("${build_packages[@]}" "${test_packages[@]}" "${bench_packages[@]}") ;;
cross) wanted=("${build_packages[@]}" "${cross_packages[@]}") ;;
libraries)
    echo "${libraries[@]}"
    exit 0
    ;;
*)
    echo "usage: $0 [build|test|fuzz|bench|cross|libraries]" >&2
    exit 2
    ;;
esac

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Abbrev}' "$1" 2>/dev/null | cut -c1-2)" = ii ]
}

# The checker of metrics is one file of a package that is a service, and large.
install_promtool() {
    local folder
    folder=$(mktemp -d)
    (cd "$folder" && apt-get -qq -o APT::Sandbox::User=root download prometheus && dpkg-deb --fsys-tarfile prometheus_*.deb |
        tar x ./usr/bin/promtool && "${as_root[@]}" install usr/bin/promtool /usr/local/bin/) >/dev/null 2>&1 ||
        echo "$0: no promtool, which checks the metrics in one test" >&2
    rm -rf "$folder"
}

missing=()
for package in "${wanted[@]}"; do
    is_installed "$package" || missing+=("$package")
done
wants_promtool=$([[ " ${wanted[*]} " != *" chromium "* ]] || command -v promtool >/dev/null || echo yes)
[ ${#missing[@]} -eq 0 ] && [ -z "$wants_promtool" ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null; then
    as_root=(sudo)
else
    echo "$0: missing packages, and neither root nor sudo: ${missing[*]}" >&2
    exit 1
fi

# The broker and the key-value store are for tests, which start their own: no service must come up by being installed.
policy=/usr/sbin/policy-rc.d
if [ ! -e $policy ]; then
    trap '"${as_root[@]}" rm -f $policy' EXIT
    printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee $policy >/dev/null
    "${as_root[@]}" chmod 755 $policy
fi

echo "installing: ${missing[*]:-promtool}"
log=$(mktemp)
apt() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0 "$@" >"$log" 2>&1
}
if ! { apt update && apt install -y --no-install-recommends "${missing[@]}"; }; then
    tail -n 20 "$log" >&2
    echo "$0: apt-get failed, its output is in $log" >&2
    exit 1
fi
rm -f "$log"
[ -z "$wants_promtool" ] || install_promtool
