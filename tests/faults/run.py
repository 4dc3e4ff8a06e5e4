#!/usr/bin/python3
"""Runs every scenario with its disk failing at every call, and says what fell short of what the daemon promises.

    tests/faults/run.py [--all]                          the sample of ./test.sh, or every point and kind
    tests/faults/run.py --scenario save --point 7 --fault EIO     one run, told in full

For each scenario a first run counts its N file calls. Then, for each call and each fault that it can meet (shim.py),
the daemon runs it again and meets the fault there; and for each call the power fails behind it (disk.py). Promised is:

  whole   each file is byte for byte what it was or what it was to become, also in mode and owner, and nothing is
          left over after the next start; after a crash all files of a command are old or all are new
  told    a client that was not refused (an error text, a result other than 0, a connection that broke off) finds
          the new state after a restart; the log says what the system said
  agrees  a daemon that refused a change of users, profiles or presets answers as it does after a restart
  again   asking once more when the cause is gone brings the new state
  lives   the daemon goes on, and loses no descriptor

Exit status 1 when a run fell short.
"""

import argparse
import hashlib
import multiprocessing
import os
import random
import re
import sys
import time
import traceback
import typing

import memory
from box import LIBRARY, Box, is_refusal, wait_for
from disk import CHOICES, Disk, File, Link, RandomChoice, differences
from scenarios import ANSWERS, SCENARIOS, SPARE
from shim import FAIL, FAIL_FROM_THERE, FAULTS, HALF, KILL_AFTER, KILL_BEFORE, Shim

RANDOM_CUTS = 1000  # with --all
SAMPLE = {"faults": 16, "cuts": 4, "random cuts": 40, "memory": 40}  # else: of a scenario, and in all
RANDOM = re.compile(r"power-random:(\d+)")


# ---- What is to be ----


class State(typing.NamedTuple):
    """The disk, and how a daemon that is started on it answers."""

    tree: dict
    answers: dict


class Clean(typing.NamedTuple):
    """A scenario on a good disk."""

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
            settled[key] = State(box.tree(), box.ask(ANSWERS) if box.start() else {"start": box.log()})
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
        clean = Clean(Shim.calls(lines), Shim.changes(lines), start, [], acknowledged)
        # What the model of the disk says must be what is there: a call that goes by the library would be missed.
        disk = disk_after(clean, len(clean.calls), box.root)
        model = disk.after_cut(CHOICES["power-kept"], SPARE)
        assert model == trees[-1], f"{scenario.name}: the model lost track:\n{differences(model, trees[-1])}"
    for tree in trees:
        state = settle(tree)
        if not (scenario.is_start and tree is trees[0]):
            assert state.tree == tree, f"{scenario.name} is not settled: {differences(state.tree, tree)}"
        clean.states.append(State(tree, state.answers))
    assert clean.calls, f"{scenario.name}: no file calls were seen"
    return clean


def prepare(box, scenario):
    for command in scenario.before:
        assert not is_refusal(box.command(command)), command


def disk_after(clean, point, root="/root"):
    """Just behind that call."""
    disk = Disk(root, clean.start)
    for number, words in clean.changes:
        if number <= point:
            disk.follow(*[w.replace(str(disk_root(clean)), disk.root, 1) if w.startswith("/") else w for w in words])
    return disk


def disk_root(clean):
    """Where the clean run was."""
    return re.match(r"/[^/]+(?:/[^/]+)*?/qf\w+/r", clean.calls[0].path).group()


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


def check_files(scenario, clean, tree):
    """After a fault that the daemon outlived, and a start."""
    if scenario.by_line:
        bad = lines_between(tree, clean.states[0].tree, clean.last().tree)
    else:
        bad = neither(tree, clean.states)
    if not bad:
        return []
    text = [line for line in differences(tree, clean.states[0].tree) if line.split()[0] in bad]
    return [Shortfall("whole", "neither old nor new: " + "; ".join(text))]


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
    allowed = clean.states[replies:replies + 2]
    if scenario.is_start:
        allowed = [clean.last()]
    if scenario.whole and not any(found == state for state in allowed):
        return [Shortfall("whole", "\nor ".join(state_differences(found, state) for state in allowed))]
    if not scenario.whole:
        bad = neither(found.tree, allowed)
        if bad:
            return [Shortfall("whole", "; ".join(differences(found.tree, allowed[0].tree)))]
    return []


def says_why(log, fault):
    return os.strerror(fault.error) in log


def run_outlived(scenario, clean, box, fault, refused, log, descriptors):
    """The promises of a daemon whose call failed. It still runs, and the disk is good again."""
    last = clean.last()
    now = box.tree()
    found = settle(now)
    fell = check_files(scenario, clean, found.tree)
    if scenario.is_start:
        live = box.ask(ANSWERS)
        if live != last.answers and not says_why(log, fault):
            fell.append(Shortfall("told", f"the log does not say {os.strerror(fault.error)!r}; " + "; ".join(
                answer_differences(live, last.answers)) + "\n" + log))
        if found != last:
            fell.append(Shortfall("again", "the next start: " + state_differences(found, last)))
    elif refused:
        live = box.ask(scenario.agrees)
        if not says_why(log, fault):
            fell.append(Shortfall("told", f"the log does not say {os.strerror(fault.error)!r}:\n{log}"))
        restarted = {q: found.answers[q] if q in found.answers else settle_answer(now, q) for q in live}
        if live != restarted:
            fell.append(Shortfall("agrees", "; ".join(answer_differences(live, restarted)) + " after a restart"))
        replies = [box.command(c) for c in (scenario.again or scenario.commands)]
        again = settle(box.tree())
        if again != last:
            fell.append(Shortfall("again", f"asked again ({replies}): {state_differences(again, last)}"))
    elif found != last:
        fell.append(Shortfall("told", "it said done; after a restart: " + state_differences(found, last)))
    if box.has_ended():
        fell.append(Shortfall("lives", f"the daemon ended: {box.process.returncode}\n{box.log()}"))
    elif descriptors and not wait_for(lambda: box.descriptors() <= descriptors, 5):
        fell.append(Shortfall("lives", f"{box.descriptors() - descriptors} descriptors more than before"))
    return fell


def run_refused_start(clean, box, fault):
    """A daemon that does not start is in order when it says why and harms nothing."""
    fell = []
    if box.process.returncode < 0 or not says_why(box.log(), fault):
        fell.append(Shortfall("lives", f"the start ended with {box.process.returncode}:\n{box.log()}"))
    found = settle(box.tree())
    if found != clean.last():
        fell.append(Shortfall("again", "the next start: " + state_differences(found, clean.last())))
    return fell


def settle_answer(tree, question):
    """Of a question that not every start is asked."""
    with Box(tree) as box:
        return box.ask([question])[question] if box.start() else None


def run_fault(scenario, clean, point, name, tell=None):
    """None when the daemon did not come to that point, else the shortfalls."""
    fault = FAULTS[name]
    with Box(scenario.tree()) as box:
        refused = False
        replies = []
        descriptors = 0
        if scenario.is_start:
            box.shim.arm(fault, point)
            up = box.start()
        else:
            assert box.start(), box.log()
            prepare(box, scenario)
            descriptors = box.descriptors()
            before = len(box.log())
            box.shim.arm(fault, point)
            for command in scenario.commands:
                reply = box.command(command)
                refused = is_refusal(reply)
                if refused:
                    break
                replies.append(reply)
            up = not wait_for(box.has_ended, 5) if refused and reply is None else not box.has_ended()
        dealt = [c for c in Shim.calls(box.shim.lines()) if c.dealt]
        box.shim.disarm()
        if tell:
            tell(box, dealt, replies if not refused else [*replies, reply])
        if not dealt:
            return None
        if fault.action not in (FAIL, FAIL_FROM_THERE, HALF):
            if up:
                return [Shortfall("whole", "the daemon was to be killed, but lives")]
            return check_crash(scenario, clean, settle(box.tree()), len(replies))
        if not up and scenario.is_start:
            return run_refused_start(clean, box, fault)
        if not up:
            return [Shortfall("lives", f"the daemon ended: {box.process.returncode}\n{box.log()}")]
        log = box.log() if scenario.is_start else box.log()[before:]
        return run_outlived(scenario, clean, box, fault, refused, log, descriptors)


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


def random_cuts(cleans, count):
    runs = []
    for seed in range(count):
        draw = random.Random(seed)
        index = draw.randrange(len(cleans))
        runs.append(Run(index, draw.randint(1, len(cleans[index].calls)), f"power-random:{seed}"))
    return runs


CLEANS = []  # of the scenarios; the workers are forked with it


def execute(run, tell=None):
    scenario = SCENARIOS[run.scenario]
    try:
        one = run_cut if run.fault.startswith("power") else run_fault
        return run, one(scenario, CLEANS[run.scenario], run.point, run.fault, tell)
    except Exception:  # what goes wrong here must be seen, not lost with the worker
        return run, [Shortfall("lives", traceback.format_exc())]


def count_allocations():
    return memory.good_run()[0]


def execute_memory(number):
    try:
        return number, memory.run(number)
    except Exception:
        return number, ["error", traceback.format_exc()]


# ---- Telling ----


def show(run, fell):
    scenario = SCENARIOS[run.scenario]
    calls = CLEANS[run.scenario].calls
    where = calls[run.point - 1] if run.point else "before the first call"
    root = disk_root(CLEANS[run.scenario])
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
    CLEANS.extend(run_clean(s) if i == index else None for i, s in enumerate(SCENARIOS))
    for call in CLEANS[index].calls:
        print(f"{call.kind:10} {call}".replace(disk_root(CLEANS[index]), ""))
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
    with multiprocessing.Pool(arguments.jobs) as pool:
        CLEANS.extend(pool.map(run_clean, SCENARIOS, chunksize=1))
        points = pool.apply(count_allocations)
    runs = [run for i in chosen for run in runs_of(i, CLEANS[i], arguments.all)]
    cuts = random_cuts(CLEANS, RANDOM_CUTS if arguments.all else SAMPLE["random cuts"])
    runs += [run for run in cuts if run.scenario in chosen]
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
        rows.append((SCENARIOS[i].name, len(CLEANS[i].calls), len(mine), missed, bad))
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
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--scenario", help="one run; without --fault its calls")
    parser.add_argument("--point", type=int, default=0)
    parser.add_argument("--fault", help=", ".join([*FAULTS, *CHOICES, "power-random:SEED"]))
    arguments = parser.parse_args()
    if not LIBRARY.exists():
        sys.exit(f"{LIBRARY} is not built")
    sys.exit(one_run(arguments) if arguments.scenario else all_runs(arguments))


if __name__ == "__main__":
    main()
