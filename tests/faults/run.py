#!/usr/bin/python3
"""Runs every scenario with its disk failing at every call, and says what fell short of what the daemon promises.

    tests/faults/run.py [--all]                          the sample of ./test.sh, or every point and kind
    tests/faults/run.py --scenario save --point 7 --fault EIO     one run, told in full

For each scenario a first run counts its N file calls. Then, for each call and each fault that it can meet (shim.py),
the daemon runs it again and meets the fault there; and for each call the power fails behind it (disk.py). Promised is:

  whole   each file is byte for byte what it was or what it was to become, also in mode and owner; after a crash all
          files of a command are old or all are new
  tidy    after the next start nothing is left over
  told    a client that was not refused (an error text, a result other than 0, a connection that broke off) finds
          the new state after a restart; the log says what the system said
  agrees  a daemon that refused a change of users, profiles or presets answers as it does after a restart
  again   asking once more when the cause is gone brings the new state
  stays   what a command said it has done outlives a power failure behind its reply
  history is readable and in step: what has happened has one entry, what was undone says so, nothing else has one;
          where it cannot be written the reply and the log say so, and nothing is refused for it
  applied the actions saw last what the files say
  lives   the daemon goes on, and loses no descriptor

Exit status 1 when a run fell short.
"""

import argparse
import functools
import hashlib
import multiprocessing
import os
import random
import re
import shutil
import sys
import time
import traceback
import typing

import memory
from box import LIBRARY, history_files, workshop
from disk import CHOICES
from judge import RANDOM, Shortfall, run_clean, run_cut, run_fault
from scenarios import HISTORY, SCENARIOS
from shim import FAULTS

RANDOM_CUTS = 1000  # with --all
SAMPLE = {"faults": 12, "cuts": 3, "random cuts": 60, "memory": 40}  # else: of a scenario, and in all


# ---- Which runs ----


class Run(typing.NamedTuple):
    scenario: int
    point: int
    fault: str


def rank(run):
    """An order that looks drawn and is always the same."""
    return hashlib.sha256(repr(run).encode()).digest()


def calls_of(index):
    """The calls of a scenario that are looked at."""
    scenario = SCENARIOS[index]
    calls = clean_of(index).calls
    if scenario.points == "all":
        return calls
    return [call for call in calls if (HISTORY in call.path) == (scenario.points == "history")]


def first_of_each(runs, kind_of):
    kinds = {}
    for run in runs:
        kinds.setdefault(kind_of(run), run)
    return list(kinds.values())


def runs_of(index, everything):
    calls = {call.number: call for call in calls_of(index)}
    faults = [Run(index, n, name) for n, call in calls.items() for name, fault in FAULTS.items() if fault.meets(call)]
    changing = {n for n, (what, *_) in clean_of(index).changes if what != "open"}
    cuts = [Run(index, point, name) for point in [0, *changing.intersection(calls)] for name in CHOICES]
    if everything and SCENARIOS[index].thorough:
        return faults + cuts
    if everything:
        return first_of_each(faults, lambda run: (*calls[run.point].what(), run.fault)) + cuts
    # One of each kind of call and fault at most, before any other of the same.
    first = first_of_each(sorted(faults, key=rank), lambda run: (calls[run.point].kind, run.fault))
    return sorted(sorted(first, key=rank)[:SAMPLE["faults"]] + sorted(cuts, key=rank)[:SAMPLE["cuts"]])


def random_cuts(scenarios, count):
    runs = []
    for seed in range(count if scenarios else 0):
        draw = random.Random(seed)
        index = draw.choice(scenarios)
        runs.append(Run(index, draw.choice(calls_of(index)).number, f"power-random:{seed}"))
    return runs


@functools.cache
def clean_of(index):
    """Each process has its own: files may name the place where it works."""
    return run_clean(SCENARIOS[index])


def execute(run, tell=None):
    try:
        one = run_cut if run.fault.startswith("power") else run_fault
        return run, one(SCENARIOS[run.scenario], clean_of(run.scenario), run.point, run.fault, tell)
    except Exception:  # what goes wrong here must be seen, not lost with the worker
        return run, [Shortfall("lives", traceback.format_exc())]


def execute_memory(number):
    try:
        return number, memory.run(number)
    except Exception:
        return number, ["error", traceback.format_exc()]


# ---- Telling ----


def show(run, fell):
    scenario = SCENARIOS[run.scenario]
    calls = clean_of(run.scenario).calls
    where = calls[run.point - 1] if run.point else "before the first call"
    root = clean_of(run.scenario).root
    print(f"\n{scenario.name}, {str(where).replace(root, '')}, {run.fault}")
    for promise, text in fell:
        print(f"  {promise}: " + text.strip().replace("\n", "\n      ")[:1500])
    print(f"  to repeat: tests/faults/run.py --scenario '{scenario.name}' --point {run.point} --fault {run.fault}")


def table(rows):
    width = max(len(row[0]) for row in rows)
    for row in rows:
        print(row[0].ljust(width), *(str(cell).rjust(12) for cell in row[1:]))


def one_run(arguments):
    if arguments.scenario == "memory":
        print(*execute_memory(arguments.point)[1], sep="\n")
        return 0
    index = next((i for i, s in enumerate(SCENARIOS) if s.name == arguments.scenario), None)
    if index is None:
        sys.exit("no such scenario; there are: " + ", ".join(s.name for s in SCENARIOS))
    clean = clean_of(index)
    for call in clean.calls:
        print(f"{call.kind:10} {call}".replace(clean.root, ""))
    if not arguments.fault:
        return 0

    def tell(box, dealt, replies):
        print("dealt:", *[str(c).replace(str(box.root), "") for c in dealt], sep="\n    ")
        print("replies:", *replies, sep="\n    ")
        print("log:", *box.log().splitlines(), sep="\n    ")

    run, fell = execute(Run(index, arguments.point, arguments.fault), tell)
    if fell is None:
        print("the daemon did not come to that point")
    elif fell:
        show(run, fell)
    else:
        print("nothing fell short")
    return 1 if fell else 0


def all_runs(arguments):
    started = time.monotonic()
    chosen = [i for i, s in enumerate(SCENARIOS) if re.search(arguments.only, s.name)]
    rows = [("scenario", "N calls", "runs", "not reached", "fell short")]
    shortfalls = 0
    for kind in ("ready", "full"):  # once for all processes
        history_files(kind)
    points = memory.good_run()[0]
    runs = [run for i in chosen for run in runs_of(i, arguments.all)]
    runs += random_cuts(chosen, RANDOM_CUTS if arguments.all else SAMPLE["random cuts"])
    allocations = range(1, points + 1)
    if not arguments.all:
        allocations = sorted(random.Random(0).sample(allocations, SAMPLE["memory"]))
    with multiprocessing.Pool(arguments.jobs) as pool:
        results = pool.map(execute, runs, chunksize=8)
        memories = pool.map(execute_memory, allocations, chunksize=8) if re.search(arguments.only, "memory") else []
    kinds = {}
    for run, fell in results:
        if fell:
            show(run, fell)
            for promise, _ in fell:
                kinds[promise] = kinds.get(promise, 0) + 1
    bad_memories = [(n, what) for n, what in memories if what[0] not in memory.GOOD]
    for number, (what, text) in bad_memories:
        print(f"\nmemory, allocation {number}: {what}\n  {text[:2500]}\n  to repeat: tests/faults/run.py --scenario memory --point {number}")
    print()
    for i in chosen:
        mine = [fell for run, fell in results if run.scenario == i]
        bad = sum(1 for fell in mine if fell)
        missed = sum(1 for fell in mine if fell is None)
        shortfalls += bad
        rows.append((SCENARIOS[i].name, len(calls_of(i)), len(mine), missed, bad))
    if memories:
        rows.append(("out of memory (allocations)", points, len(memories), sum(1 for _, w in memories if w[0] == "not reached"),
                     len(bad_memories)))
        shortfalls += len(bad_memories)
    rows.append(("all", *(sum(row[i] for row in rows[1:]) for i in range(1, 5))))
    table(rows)
    cut_count = sum(1 for run, _ in results if RANDOM.fullmatch(run.fault))
    print(f"\n{cut_count} of the runs are random power cuts.", end=" ")
    if memories:
        ends = {}
        for _, what in memories:
            ends[what[0]] = ends.get(what[0], 0) + 1
        print("Out of memory:", ", ".join(f"{v} {k}" for k, v in sorted(ends.items())) + ".", end=" ")
    if kinds:
        print("Fell short by promise:", ", ".join(f"{v} {k}" for k, v in sorted(kinds.items())) + ".", end=" ")
    print(f"{time.monotonic() - started:.0f} s.")
    print(f"{shortfalls} fell short of {rows[-1][2]}")
    return 1 if shortfalls else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--all", action="store_true", help="every point and kind, and 1,000 random power cuts")
    parser.add_argument("--only", default="", help="scenarios whose name matches this expression")
    parser.add_argument("--jobs", type=int, default=2 * os.cpu_count(), help="they wait as much as they work")
    parser.add_argument("--scenario", help="one run; without --fault its calls")
    parser.add_argument("--point", type=int, default=0)
    parser.add_argument("--fault", help=", ".join([*FAULTS, *CHOICES, "power-random:SEED"]))
    arguments = parser.parse_args()
    if not LIBRARY.exists():
        sys.exit(f"{LIBRARY} is not built")
    try:
        sys.exit(one_run(arguments) if arguments.scenario else all_runs(arguments))
    finally:
        shutil.rmtree(workshop, ignore_errors=True)


if __name__ == "__main__":
    main()
