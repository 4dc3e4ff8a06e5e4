#!/usr/bin/python3
"""Runs the fuzz targets on their inputs, and on new ones for a while.

    tests/fuzz/run.py [TARGET ...]            checks: FUZZ_SECONDS (20) of new inputs a target
    tests/fuzz/run.py --record [TARGET ...]   keeps the inputs that reach more, and notes how much is reached

For each target, corpus/TARGET holds a few inputs and corpus/TARGET.floor the lowest coverage that they may have: a
target whose inputs reach less than they did is broken, however quietly it runs. Checked is that, then that no input
known or new crashes it, hangs or leaks. An input that does is kept in build/fuzz/found.

Exit status 1 when a target failed.
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
BUILD = HERE.parents[1] / "build/fuzz"
FOUND = BUILD / "found"
SECONDS = int(os.environ.get("FUZZ_SECONDS", "20"))
# What another compiler's version or a log-in's drawn number may cost.
FLOOR_PERCENT = 95
# Leaks are looked for once, at the end: for each input that keeps something it takes most of the time.
LIMITS = ["-timeout=20", "-rss_limit_mb=2048", "-max_len=4096", "-detect_leaks=0"]
COVERAGE = re.compile(r"\bcov: (\d+)")


def program(target):
    return BUILD / f"bin/fuzz_{target}"


def corpus(target):
    return HERE / "corpus" / target


def floor_file(target):
    return HERE / "corpus" / f"{target}.floor"


def run(target, *arguments):
    """(exit code, output). Temporary files go with it."""
    place = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="qvfuzz", dir=place) as folder:
        done = subprocess.run(
            [program(target), *LIMITS, f"-artifact_prefix={FOUND}/{target}-", *map(str, arguments)],
            env={**os.environ, "TMPDIR": folder},
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
        )
    return done.returncode, done.stdout.decode(errors="replace")


def coverage(target):
    """Of the kept inputs: (edges, or None where one of them fails; what it says)."""
    inputs = corpus(target)
    if not inputs.is_dir() or not any(inputs.iterdir()):
        return None, f"{inputs} holds no inputs"
    code, output = run(target, "-runs=0", inputs)
    found = COVERAGE.findall(output)
    return (int(found[-1]), output) if code == 0 and found else (None, output)


def check(target):
    """(line for the summary, what went wrong)."""
    edges, output = coverage(target)
    if edges is None:
        return f"{target}: a kept input fails", output
    try:
        floor = int(floor_file(target).read_text())
    except (OSError, ValueError) as error:
        return f"{target}: no floor", str(error)
    if edges < floor:
        return f"{target}: coverage {edges} is below its floor {floor}", ""
    with tempfile.TemporaryDirectory() as new:
        code, output = run(target, f"-max_total_time={SECONDS}", new, corpus(target))
    runs = re.findall(r"Done (\d+) runs", output)
    if code != 0 or not runs:
        return f"{target}: fails", output
    return f"{target}: coverage {edges} (floor {floor}), {runs[-1]} runs in {SECONDS} s", None


def record(target):
    """Tries new inputs, and adds the fewest that reach all the new lines."""
    inputs = corpus(target)
    inputs.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as new:
        code, output = run(target, f"-max_total_time={SECONDS}", new, inputs)
        if code == 0:
            code, output = run(target, "-use_counters=0", "-set_cover_merge=1", inputs, new)
        if code != 0:
            return f"{target}: fails", output
    edges, output = coverage(target)
    if edges is None:
        return f"{target}: a kept input fails", output
    floor = edges * FLOOR_PERCENT // 100
    floor_file(target).write_text(f"{floor}\n")
    return f"{target}: coverage {edges}, floor {floor}, {len(list(inputs.iterdir()))} inputs", None


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--record", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("targets", nargs="*")
    arguments = parser.parse_args()
    sources = sorted(p.stem for p in HERE.glob("*.cpp"))
    targets = arguments.targets or sources
    unbuilt = [t for t in targets if not program(t).exists()]
    if unbuilt:
        sys.exit(f"not built: {', '.join(unbuilt)} (cmake --preset fuzz && cmake --build --preset fuzz --target fuzz_targets)")
    FOUND.mkdir(exist_ok=True)
    failed = False
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for line, trouble in pool.map(record if arguments.record else check, targets):
            print(line, flush=True)
            if trouble is not None:
                failed = True
                print("    " + trouble[-6000:].replace("\n", "\n    "))
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
