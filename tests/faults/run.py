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
  lives   the daemon goes on, and loses no descriptor

Exit status 1 when a run fell short.
"""

import argparse
import dataclasses
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
from box import LIBRARY, Box, is_refusal, settings_in, wait_for, workshop
from disk import CHOICES, Disk, File, Link, RandomChoice, differences
from scenarios import ANSWERS, JOURNAL, SCENARIOS, SPARE, TEMPORARY
from shim import FAIL, FAIL_FROM_THERE, FAULTS, HALF, Shim

RANDOM_CUTS = 1000  # with --all
SAMPLE = {"faults": 20, "cuts": 4, "random cuts": 60, "memory": 40}  # else: of a scenario, and in all
RANDOM = re.compile(r"power-random:(\d+)")


# ---- What is to be ----


@dataclasses.dataclass
class State:
    """The disk, and how a daemon that is started on it answers."""

    tree: dict
    answers: dict
    left: list = dataclasses.field(default_factory=list, compare=False)  # what is no file of the appliance's


class Clean(typing.NamedTuple):
    """A scenario on a good disk."""

    root: str  # where it was
    calls: list
    changes: list
    start: dict  # all files at the first call
    states: list  # before, and after each command
    acknowledged: list  # how many calls had been made at each command's reply

    def last(self):
        return self.states[-1]


class Shortfall(typing.NamedTuple):
    promise: str
    text: str


settled = {}


def settle(tree):
    """The state after a start on these files, on a good disk."""
    key = hashlib.sha256(repr(sorted(tree.items())).encode()).digest()
    if key not in settled:
        with Box(tree) as box:
            answers = box.ask(ANSWERS) if box.start() else {"start": box.log()}
            found = box.tree()
        left = [path for path in found if path == JOURNAL or TEMPORARY in path]
        settled[key] = State({p: e for p, e in found.items() if p not in left}, answers, left)
    return settled[key]


def run_clean(scenario):
    with Box(scenario.tree()) as box:
        start = box.everything()
        trees = [box.tree()]
        acknowledged = []
        if scenario.is_start:
            box.shim.arm()
            assert box.start(), box.log()
            trees.append(box.tree())
            acknowledged.append(box.shim.calls_so_far())
        else:
            assert box.start(), box.log()
            prepare(box, scenario)
            start = box.everything()
            trees = [box.tree()]
            box.shim.arm()
        for command in scenario.commands:
            reply = box.command(command)
            assert not is_refusal(reply), f"{scenario.name}: {command}: {reply}\n{box.log()}"
            trees.append(box.tree())
            acknowledged.append(box.shim.calls_so_far())
        box.shim.disarm()
        lines = box.shim.lines()
        clean = Clean(str(box.root), Shim.calls(lines), Shim.changes(lines), start, [], acknowledged)
        # What the model of the disk says must be what is there: a call that goes by the library would be missed.
        disk = disk_after(clean, len(clean.calls))
        model = settings_in(disk.after_cut(CHOICES["power-kept"], SPARE))
        assert model == trees[-1], f"{scenario.name}: the model lost track:\n{differences(model, trees[-1])}"
    # Without a daemon in the way: all work at one place.
    for tree in trees:
        state = settle(tree)
        if not (scenario.is_start and tree is trees[0]):
            assert state.tree == tree and not state.left, f"{scenario.name} is not settled: {differences(state.tree, tree)}"
        clean.states.append(State(tree, state.answers))
    assert clean.calls, f"{scenario.name}: no file calls were seen"
    return clean


def prepare(box, scenario):
    for command in scenario.before:
        assert not is_refusal(box.command(command)), command


def disk_after(clean, point):
    """Just behind that call."""
    disk = Disk(clean.root, clean.start)
    for number, words in clean.changes:
        if number <= point:
            disk.follow(*words)
    return disk


# ---- One run with a fault ----


def lines_between(tree, old, new):
    """Of a start: the files whose lines are not all old or new ones, or that lost one which both have."""
    bad = []
    for path in {*tree, *old, *new}:
        have, was, will = ((t.get(path) or File(b"", 0)) for t in (tree, old, new))
        if have == was or have == will:
            continue
        if isinstance(have, Link) or have.mode not in (was.mode, will.mode):
            bad.append(path)
            continue
        have, was, will = (f.data.splitlines(keepends=True) for f in (have, was, will))
        if not set(was) & set(will) <= set(have) <= set(was) | set(will):
            bad.append(path)
    return bad


def neither(tree, states):
    """The files that are as in none of these states."""
    return [p for p in {*tree, *(q for s in states for q in s.tree)} if tree.get(p) not in [s.tree.get(p) for s in states]]


def check_tidy(scenario, found):
    return [Shortfall("tidy", f"left over: {found.left}")] if found.left and scenario.tidy else []


def check_files(scenario, clean, found):
    """After a fault that the daemon outlived, and a start."""
    tree = found.tree
    if scenario.by_line:
        bad = lines_between(tree, clean.states[0].tree, clean.last().tree)
    else:
        bad = neither(tree, clean.states)
    if not bad:
        return check_tidy(scenario, found)
    text = [line for line in differences(tree, clean.states[0].tree) if line.split()[0] in bad]
    return [Shortfall("whole", "neither old nor new: " + "; ".join(text)), *check_tidy(scenario, found)]


def answer_differences(found, wanted):
    """For people: what is answered otherwise."""
    lines = []
    for question, answer in found.items():
        other = wanted.get(question)
        if answer == other:
            continue
        a, b = (x.lines if hasattr(x, "lines") else [x] for x in (answer, other))
        lines.append(f"{question}: {[x for x in a if x not in b]}, not {[x for x in b if x not in a]}")
    return lines


def state_differences(found, wanted):
    return "; ".join(differences(found.tree, wanted.tree) + answer_differences(found.answers, wanted.answers))


def check_crash(scenario, clean, found, replies):
    """After the end of everything behind that many replies, and a start."""
    allowed = [clean.last()] if scenario.is_start else clean.states[replies:replies + 2]
    fell = check_tidy(scenario, found)
    if scenario.whole and found not in allowed:
        fell.append(Shortfall("whole", "\nor ".join(state_differences(found, state) for state in allowed)))
    elif not scenario.whole and neither(found.tree, allowed):
        fell.append(Shortfall("whole", "\nor ".join(state_differences(found, state) for state in allowed)))
    return fell


class Outcome(typing.NamedTuple):
    """What a run with a fault left."""

    up: bool  # the daemon outlived it
    code: int  # or ended with this
    refused: bool
    replies: list
    log: str
    tree: dict
    live: dict  # answers of the daemon that goes on
    again: list  # replies to asking again
    tree_again: dict
    lost: int  # descriptors
    flushed: dict = None  # what a power cut leaves, when the last command said it is done


def meet_fault(scenario, point, fault, tell):
    """None when the daemon did not come to that point."""
    with Box(scenario.tree()) as box:
        refused = False
        replies = []
        descriptors = before = 0
        start = {}
        if scenario.is_start:
            box.shim.arm(fault, point)
            up = box.start()
        else:
            assert box.start(), box.log()
            prepare(box, scenario)
            descriptors = box.descriptors()
            before = len(box.log())
            start = box.everything()
            box.shim.arm(fault, point)
            for command in scenario.commands:
                replies.append(box.command(command))
                refused = is_refusal(replies[-1])
                if refused:
                    break
            up = not wait_for(box.has_ended, 5) if replies[-1] is None else not box.has_ended()
        lines = box.shim.lines()
        dealt = [c for c in Shim.calls(lines) if c.dealt]
        box.shim.disarm()
        if tell:
            tell(box, dealt, replies)
        if not dealt:
            return None
        log = box.log()[before:]
        tree = box.tree()
        if not up:
            return Outcome(False, box.process.returncode, refused, replies, log, tree, {}, [], {}, 0)
        live = box.ask(ANSWERS if scenario.is_start else scenario.agrees if refused else [])
        wanted = ["save"] if scenario.is_start else (scenario.again or scenario.commands) if refused else []
        if not scenario.is_start:
            box.shim.arm()
        again = [box.command(c) for c in wanted]
        lines += box.shim.lines()
        tree_again = box.tree()
        if box.has_ended():
            return Outcome(False, box.process.returncode, refused, replies, box.log(), tree, {}, [], {}, 0)
        lost = 0
        if descriptors and not wait_for(lambda: box.descriptors() <= descriptors, 5):
            lost = box.descriptors() - descriptors
        flushed = None
        if not scenario.is_start and not is_refusal([*replies, *again][-1]):
            disk = Disk(box.root, start)
            for _, words in Shim.changes(lines):
                disk.follow(*words)
            flushed = disk.after_cut(CHOICES["power-lost"], SPARE)
        return Outcome(True, 0, refused, replies, log, tree, live, again, tree_again, lost, flushed)


def says_why(log, fault):
    return os.strerror(fault.error) in log


def judge_start(scenario, clean, fault, outcome):
    """A start whose call failed. It may end when it says why; whatever it does, no good value is lost."""
    last = clean.last()
    found = settle(outcome.tree)
    fell = check_files(scenario, clean, found)
    if not outcome.up and (outcome.code < 0 or not says_why(outcome.log, fault)):
        fell.append(Shortfall("lives", f"the start ended with {outcome.code}:\n{outcome.log}"))
    if outcome.up and outcome.live != last.answers and not says_why(outcome.log, fault):
        fell.append(Shortfall("told", f"the log does not say {os.strerror(fault.error)!r}; " + "; ".join(
            answer_differences(outcome.live, last.answers)) + "\n" + outcome.log))
    if found != last and not (outcome.up and settle(outcome.tree_again) == last):
        fell.append(Shortfall("again", "the next start: " + state_differences(found, last)))
    return fell


def judge(scenario, clean, fault, outcome):
    """A daemon whose call failed, and whose disk was good again afterwards."""
    last = clean.last()
    found = settle(outcome.tree)
    fell = check_files(scenario, clean, found)
    if not outcome.up:
        return [*fell, Shortfall("lives", f"the daemon ended with {outcome.code}\n{outcome.log}")]
    if outcome.lost:
        fell.append(Shortfall("lives", f"{outcome.lost} descriptors more than before"))
    if outcome.flushed is not None and settle(outcome.flushed) != last:
        fell.append(Shortfall("stays", "after a power cut: " + state_differences(settle(outcome.flushed), last)))
    if not outcome.refused:
        if found != last:
            fell.append(Shortfall("told", "it said done; after a restart: " + state_differences(found, last)))
        return fell
    if not says_why(outcome.log, fault):
        fell.append(Shortfall("told", f"the log does not say {os.strerror(fault.error)!r}:\n{outcome.log}"))
    restarted = {question: found.answers.get(question) for question in outcome.live}
    if outcome.live != restarted:
        fell.append(Shortfall("agrees", "; ".join(answer_differences(outcome.live, restarted)) + " after a restart"))
    again = settle(outcome.tree_again)
    if again != last:
        fell.append(Shortfall("again", f"asked again ({outcome.again}): {state_differences(again, last)}"))
    return fell


def run_fault(scenario, clean, point, name, tell=None):
    """None when the daemon did not come to that point, else the shortfalls."""
    fault = FAULTS[name]
    outcome = meet_fault(scenario, point, fault, tell)
    if outcome is None:
        return None
    if fault.action in (FAIL, FAIL_FROM_THERE, HALF):
        return (judge_start if scenario.is_start else judge)(scenario, clean, fault, outcome)
    if outcome.up:
        return [Shortfall("whole", "the daemon was to be killed, but lives")]
    return check_crash(scenario, clean, settle(outcome.tree), sum(1 for r in outcome.replies if not is_refusal(r)))


def run_cut(scenario, clean, point, name, tell=None):
    random_cut = RANDOM.fullmatch(name)
    choice = RandomChoice(random.Random(int(random_cut[1]))) if random_cut else CHOICES[name]
    tree = disk_after(clean, point).after_cut(choice, SPARE)
    replies = sum(1 for count in clean.acknowledged if count <= point)
    found = settle(tree)
    if tell:
        print("after the cut:", *differences(tree, clean.states[0].tree), sep="\n    ")
        print("after the start:", *differences(found.tree, clean.states[0].tree), sep="\n    ")
    return check_crash(scenario, clean, found, replies)


# ---- Which runs ----


class Run(typing.NamedTuple):
    scenario: int
    point: int
    fault: str


def rank(run):
    """An order that looks drawn and is always the same."""
    return hashlib.sha256(repr(run).encode()).digest()


def runs_of(index, clean, everything):
    faults = [Run(index, call.number, name) for call in clean.calls for name, fault in FAULTS.items() if fault.meets(call)]
    cuts = [Run(index, point, name) for point in range(len(clean.calls) + 1) for name in CHOICES]
    if everything:
        return faults + cuts
    # One of each kind of call and fault at most, before any other of the same.
    kinds = {}
    for run in sorted(faults, key=rank):
        call = clean.calls[run.point - 1]
        kinds.setdefault((call.kind, run.fault), []).append(run)
    first = sorted((runs[0] for runs in kinds.values()), key=rank)
    return sorted(first[:SAMPLE["faults"]] + sorted(cuts, key=rank)[:SAMPLE["cuts"]])


def random_cuts(scenarios, count):
    runs = []
    for seed in range(count if scenarios else 0):
        draw = random.Random(seed)
        index = draw.choice(scenarios)
        runs.append(Run(index, draw.randint(1, len(clean_of(index).calls)), f"power-random:{seed}"))
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
    points = memory.good_run()[0]
    runs = [run for i in chosen for run in runs_of(i, clean_of(i), arguments.all)]
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
        rows.append((SCENARIOS[i].name, len(clean_of(i).calls), len(mine), missed, bad))
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
