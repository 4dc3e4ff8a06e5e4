#!/bin/bash
# Builds and runs the tests, on a fresh Debian 12 too.
# Usage: ./test.sh [PART ...]     default: format release faults asan tsan, and fuzz for 5 s a target where clang is
#
# release     the whole suite, optimised
# asan        the whole suite under the address and undefined behaviour sanitizers
# tsan        the concurrent tests (ctest label "concurrent") under the thread sanitizer
# faults      a sample of the runs on a disk that fails, tests/faults/run.py
# faults-all  all of them: some minutes
# fuzz        the fuzz targets of tests/fuzz for FUZZ_SECONDS each (20); installs clang
# bench       the benchmark of tests/bench, in release, and qvc fleet over 5,000 simulated appliances; installs
#             redis-server, which it compares with
# cross       builds for arm64 and lets it work under qemu-user, scripts/cross_build.sh: some minutes; installs both
# format      clang-format over our sources, where clang-format 14 is installed
set -uo pipefail
cd "$(dirname "$0")" || exit 1

jobs=$(nproc)
logs=build/test-logs
export ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

results=()

# step NAME COMMAND...: runs it and notes how it ended; fails as it fails.
step() {
    local name=$1 started=$SECONDS
    shift
    echo "== $name"
    if "$@"; then
        results+=("ok      $name ($((SECONDS - started)) s)")
    else
        results+=("FAILED  $name ($((SECONDS - started)) s)")
        return 1
    fi
}

# build PRESET [TARGET...]: quiet unless it fails.
build() {
    local preset=$1 log=$logs/build-$1.log
    shift
    { cmake --preset "$preset" && cmake --build --preset "$preset" -j "$jobs" --target "${@:-all}"; } >"$log" 2>&1 && return
    grep -E 'error|FAILED|undefined reference' -A 3 "$log" | head -n 60
    echo "the whole output is in $log"
    return 1
}

run_tests() {
    local preset=$1 fixed_addresses=() together=$((jobs * 2))
    shift
    # The thread sanitizer of GCC 12 cannot live with the address randomisation of newer kernels.
    if [ "$preset" = tsan ] && setarch -R true 2>/dev/null; then
        fixed_addresses=(setarch -R)
    fi
    # Most tests wait for the daemon's time limits rather than for the processor; under a sanitizer, fewer do.
    [ "$preset" = release ] && together=$((jobs * 3))
    "${fixed_addresses[@]}" ctest --preset "$preset" -j "$together" --no-tests=error --timeout 300 "$@"
}

check_format() {
    if ! clang-format --version 2>/dev/null | grep -q 'version 14\.'; then
        echo "skipped: needs clang-format 14"
        return 0
    fi
    git ls-files -z 'src/*.cpp' 'src/*.h' 'tests/*.cpp' 'tests/*.h' | xargs -0 clang-format --dry-run -Werror
}

can_fuzz() {
    echo 'extern "C" int LLVMFuzzerTestOneInput(const char *, unsigned long) { return 0; }' |
        clang++ -x c++ -fsanitize=fuzzer -o /dev/null - 2>/dev/null
}

fuzz() {
    build fuzz fuzz_targets && /usr/bin/python3 tests/fuzz/run.py
}

cross() {
    scripts/cross_build.sh >"$logs/cross.log" 2>&1 && return
    tail -n 40 "$logs/cross.log"
    return 1
}

run_part() {
    case $1 in
    format) step "format" check_format ;;
    release | asan) step "build $1" build "$1" && step "tests $1" run_tests "$1" ;;
    tsan) step "build tsan" build tsan qvcd qvc concurrent_tests && step "concurrent tests tsan" run_tests tsan -L concurrent ;;
    faults) step "build release" build release && step "faults" /usr/bin/python3 tests/faults/run.py ;;
    faults-all) step "build release" build release && step "all faults" /usr/bin/python3 tests/faults/run.py --all ;;
    fuzz) step "fuzz" fuzz ;;
    cross) step "cross" cross ;;
    bench)
        step "build release" build release qvcd_bench fleet_simulated &&
            step "benchmark" cmake --build --preset release --target bench &&
            step "fleet of 5,000" /usr/bin/python3 tests/fleet/scale.py
        ;;
    esac
}

parts=("$@")
for part in "${parts[@]}"; do
    case $part in
    format | release | asan | tsan | faults | faults-all) ;;
    fuzz | bench | cross) scripts/install_deps.sh "$part" || exit 1 ;;
    *)
        echo "usage: $0 [format|release|asan|tsan|faults|faults-all|fuzz|bench|cross ...]" >&2
        exit 2
        ;;
    esac
done
if [ $# -eq 0 ]; then
    parts=(format release faults asan tsan)
    if can_fuzz; then
        parts+=(fuzz)
        export FUZZ_SECONDS=${FUZZ_SECONDS:-5}
    else
        results+=("skipped fuzz: needs clang (./test.sh fuzz installs it)")
    fi
fi

scripts/install_deps.sh test || exit 1
mkdir -p "$logs"
failed=0
for part in "${parts[@]}"; do
    run_part "$part" || failed=1
done

echo
echo "== summary"
printf '%s\n' "${results[@]}"
[ $failed -eq 0 ] && echo "all passed" || echo "there are failures"
exit $failed
