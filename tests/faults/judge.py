"""One scenario on a good disk, with a fault and with a power cut, and what of the promises (run.py) it kept."""

import dataclasses
import functools
import hashlib
import os
import random
import re
import typing

import history
from box import Box, is_refusal, not_flushed, history_files, settings_in, wait_for, workshop
from disk import CHOICES, Disk, File, Link, RandomChoice, differences
from history import History
from scenarios import (
    ANSWERS, HISTORY_QUESTION, JOURNAL, LIVE_ANSWERS, SPARE, TEMPORARY, UNDO, UNDONE)
from shim import FAIL, FAIL_FROM_THERE, FAULTS, HALF, Shim

RANDOM = re.compile(r"power-random:(\d+)")


# ---- What is to be ----


@dataclasses.dataclass
class State:
    """The disk, and how a daemon that is started on it answers."""

    tree: dict  # without the history
    answers: dict
    left: list = dataclasses.field(default_factory=list, compare=False)  # what is no file of the appliance's
    history: History = dataclasses.field(default_factory=History, compare=False)
    applied: dict = dataclasses.field(default_factory=dict, compare=False)  # what the actions took from the files


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

    def attempted(self):
        return [entry for state in self.states for entry in state.history.entries]


class Shortfall(typing.NamedTuple):
    promise: str
    text: str


settled = {}


def settle(tree, applied=None):
    """The state after a start on these files, on a good disk, when nothing is left to be undone."""
    found = history.read(tree, workshop / f"{os.getpid()}-history")
    known = (sorted(history.without(tree).items()), sorted((applied or {}).items()), found.same())
    key = hashlib.sha256(repr(known).encode()).digest()
    if key not in settled:
        settled[key] = start_on(tree, applied)
    return dataclasses.replace(settled[key])


def start_on(tree, applied):
    with Box(tree, applied) as box:
        if box.start():
            box.wait_for_undoing()
            answers = box.ask(ANSWERS)
            box.command(HISTORY_QUESTION)
        else:
            answers = {"start": box.log()}
        box.kill()
        tree = box.tree()
        applied = box.applied()
    found = history.without(tree)
    left = [path for path in found if path in (JOURNAL, UNDO) or TEMPORARY in path]
    found = {p: e for p, e in found.items() if p not in left}
    return State(found, answers, left, history.read(tree, workshop / f"{os.getpid()}-history"), applied)


@functools.cache
def tree_of(scenario):
    """Where it begins."""
    tree = {**scenario.tree(), **history_files(scenario.history)}
    if scenario.killed_after:
        with Box(tree) as box:
            assert box.start(), box.log()
            for command in scenario.killed_after:
                reply = box.command(command)
                assert not is_refusal(reply), reply
            box.kill()
            tree = {**box.tree(), **scenario.then}
    return {path: entry for path, entry in tree.items() if entry is not None}


def run_clean(scenario):
    with Box(tree_of(scenario)) as box:
        start = box.everything()
        trees = [box.tree()]
        applied = [box.applied()]
        acknowledged = []

        def note():
            trees.append(box.tree())
            applied.append(box.applied())
            acknowledged.append(box.shim.calls_so_far())

        if scenario.is_start:
            box.shim.arm()
            assert box.start(), box.log()
            assert not is_refusal(box.wait_for_undoing()), box.log()
            note()
        else:
            assert box.start(), box.log()
            prepare(box, scenario)
            start = box.everything()
            trees = [box.tree()]
            applied = [box.applied()]
            box.shim.arm()
        for command in scenario.commands:
            reply = box.command(command)
            refused = scenario.fails and command == scenario.commands[-1]
            assert reply and is_refusal(reply) == refused, f"{scenario.name}: {command}: {reply}\n{box.log()}"
            note()
        box.shim.disarm()
        lines = box.shim.lines()
        clean = Clean(str(box.root), Shim.calls(lines), Shim.changes(lines), start, [], acknowledged)
        # What the model of the disk says must be what is there: a call that goes by the library would be missed.
        disk = disk_after(clean, len(clean.calls))
        model = settings_in(disk.after_cut(CHOICES["power-kept"], SPARE))
        assert model == trees[-1], f"{scenario.name}: the model lost track:\n{differences(model, trees[-1])}"
        live = box.ask(LIVE_ANSWERS)
    # Without a daemon in the way: all work at one place.
    for tree, taken in zip(trees, applied):
        state = settle(tree, taken)
        if UNDO not in tree and not (scenario.is_start and tree is trees[0]):
            files = history.without(tree)
            assert state.tree == files and not state.left, f"{scenario.name} is not settled: {differences(state.tree, files)}"
        clean.states.append(state)
    assert clean.calls, f"{scenario.name}: no file calls were seen"
    if scenario.atomic:
        fell = answer_differences(live, in_force(trees[-1], applied[-1]).answers)
        assert not fell, f"{scenario.name}: live: {fell}"
        fell = check_applied(in_force(trees[-1], applied[-1]))
        assert not fell, f"{scenario.name}: {fell}"
    return clean


def in_force(tree, applied):
    """What stands in the files, whether it is confirmed or not."""
    return settle({path: entry for path, entry in tree.items() if path != UNDO}, applied)


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


# ---- What became of it ----


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


def check_applied(found):
    """The services must have what the files say."""
    fell = []
    for name, data in found.applied.items():
        file = found.tree.get(f"/etc/{name}")
        if data != (file.data if file else b""):
            fell.append(Shortfall("applied", f"{name}: the action saw {data}, the file is {file}"))
    return fell


def check_history(scenario, clean, found, allowed, is_told=False):
    fell = history.shortfalls(found.history, [state.history for state in allowed], clean.attempted(), is_told,
                              scenario.history == "damaged")
    return [Shortfall("history", text) for text in fell]


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


def check_state(scenario, clean, found, allowed):
    """One of these as a whole, also in its history."""
    if scenario.whole:
        good = [state for state in allowed if state == found]
    else:
        good = allowed if not neither(found.tree, allowed) else []
    if not good:
        return [Shortfall("whole", "\nor ".join(state_differences(found, state) for state in allowed))]
    return []


def check_crash(scenario, clean, found, replies):
    """After the end of everything behind that many replies, and a start."""
    allowed = [clean.last()] if scenario.is_start else clean.states[replies:replies + 2]
    fell = [*check_tidy(scenario, found), *check_state(scenario, clean, found, allowed), *check_applied(found)]
    told = [state for state in allowed if not scenario.whole or state == found]
    if not scenario.atomic:
        told.append(allowed[0])  # what has happened may have no entry yet
    return [*fell, *check_history(scenario, clean, found, told)]


class Outcome(typing.NamedTuple):
    """What a run with a fault left."""

    up: bool  # the daemon outlived it
    code: int  # or ended with this
    refused: bool
    replies: list
    log: str
    tree: dict
    applied: dict
    live: dict = {}  # answers of the daemon that goes on
    again: list = []  # replies to asking again
    log_again: str = ""  # all of it
    tree_again: dict = {}
    applied_again: dict = {}
    live_again: dict = {}
    lost: int = 0  # descriptors
    flushed: dict = None  # what a power cut leaves then

    def done(self):
        return sum(1 for r in self.replies if not is_refusal(r))


# ---- One run with a fault ----


def ask_again(scenario, replies, refused):
    if scenario.is_start:
        return scenario.again or ["save"]
    if not refused:
        return []
    return scenario.again or (scenario.commands[len(replies) - 1:] if scenario.atomic else scenario.commands)


def meet_fault(scenario, point, fault, tell):
    """None when the daemon did not come to that point."""
    with Box(tree_of(scenario)) as box:
        refused = False
        replies = []
        descriptors = before = 0
        start = {}
        if scenario.is_start:
            start = box.everything()
            box.shim.arm(fault, point)
            up = box.start() and box.wait_for_undoing() is not None
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
        box.shim.arm()  # the disk is good again
        if tell:
            tell(box, dealt, replies)
        if not dealt:
            return None
        ended = Outcome(up, box.process.returncode, refused, replies, box.log()[before:], box.tree(), box.applied())
        if not up:
            return ended
        live = box.ask(ANSWERS if scenario.is_start else scenario.agrees if refused else [])
        again = [box.command(c) for c in ask_again(scenario, replies, refused)]
        lines += box.shim.lines()
        if box.has_ended():
            return ended._replace(up=False, code=box.process.returncode, log=box.log())
        lost = 0
        if descriptors and not wait_for(lambda: box.descriptors() <= descriptors, 5):
            lost = box.descriptors() - descriptors
        flushed = None
        if not scenario.is_start and (scenario.atomic or not is_refusal([*replies, *again][-1])):
            disk = Disk(box.root, start)
            for _, words in Shim.changes(lines):
                disk.follow(*words)
            flushed = disk.after_cut(CHOICES["power-lost"], SPARE)
        return ended._replace(
            live=live, again=again, log_again=box.log()[before:], tree_again=box.tree(), applied_again=box.applied(),
            live_again=box.ask(LIVE_ANSWERS) if scenario.atomic else {}, lost=lost, flushed=flushed)


def says_why(log, fault):
    return os.strerror(fault.error) in log


def judge_end(scenario, outcome, fault):
    """Of a daemon that did not outlive it: a start may end when it says why."""
    if scenario.is_start and outcome.code >= 0 and says_why(outcome.log, fault):
        return []
    return [Shortfall("lives", f"the daemon ended with {outcome.code}\n{outcome.log}")]


def judge_start(scenario, clean, fault, outcome):
    """A start whose call failed. Whatever it does, no good value is lost."""
    last = clean.last()
    found = settle(outcome.tree)
    fell = [*check_files(scenario, clean, found), *check_history(scenario, clean, found, [last])]
    if not outcome.up:
        fell += judge_end(scenario, outcome, fault)
    elif outcome.live != last.answers and not says_why(outcome.log, fault):
        fell.append(Shortfall("told", f"the log does not say {os.strerror(fault.error)!r}; " + "; ".join(
            answer_differences(outcome.live, last.answers)) + "\n" + outcome.log))
    if found != last and not (outcome.up and settle(outcome.tree_again) == last):
        fell.append(Shortfall("again", "the next start: " + state_differences(found, last)))
    return fell


def history_is_told(scenario, outcome):
    """Whether it was said that the history cannot be written, and whether it was said as it should be."""
    lines = [line for reply in [*outcome.replies, *outcome.again] if reply for line in reply.lines]
    in_reply = any(line.startswith(history.PROBLEM) or text in line for line in lines for text in history.LOGGED)
    log = outcome.log_again or outcome.log
    in_log = any(text in log for text in history.LOGGED)
    fell = []
    by_itself = scenario.is_start or UNDONE in scenario.commands
    if in_reply and not in_log or in_log and not in_reply and not by_itself:
        fell.append(Shortfall("told", f"of the history in the log: {in_log}, in the reply: {in_reply} {lines}\n{log}"))
    return in_reply or in_log, fell


def judge_refusal(fault, outcome, found):
    fell = []
    if not says_why(outcome.log, fault):
        fell.append(Shortfall("told", f"the log does not say {os.strerror(fault.error)!r}:\n{outcome.log}"))
    restarted = {question: found.answers.get(question) for question in outcome.live}
    if outcome.live != restarted:
        fell.append(Shortfall("agrees", "; ".join(answer_differences(outcome.live, restarted)) + " after a restart"))
    return fell


def judge(scenario, clean, fault, outcome):
    """A daemon whose call failed, and whose disk was good again afterwards."""
    last = clean.last()
    found = settle(outcome.tree)
    fell = check_files(scenario, clean, found)
    if not outcome.up:
        return [*fell, *judge_end(scenario, outcome, fault)]
    if outcome.lost:
        fell.append(Shortfall("lives", f"{outcome.lost} descriptors more than before"))
    is_told, more = history_is_told(scenario, outcome)
    fell += more
    if outcome.flushed is not None:
        flushed = settle(outcome.flushed)
        if flushed != last:
            fell.append(Shortfall("stays", "after a power cut: " + state_differences(flushed, last)))
    if not outcome.refused:
        if found != last:
            fell.append(Shortfall("told", "it said done; after a restart: " + state_differences(found, last)))
        for state in [found] + [flushed] * (outcome.flushed is not None):
            fell += check_history(scenario, clean, state, [last], is_told)
        return fell
    fell += judge_refusal(fault, outcome, found)
    # What was refused may have happened in part, and has an entry then.
    known = clean.states[outcome.done()]
    if len(found.history.told()) == len(known.history.told()) + 1:
        found.history = found.history._replace(entries=found.history.entries[:-1])
    fell += check_history(scenario, clean, found, [known], is_told)
    again = settle(outcome.tree_again)
    if again != last:
        fell.append(Shortfall("again", f"asked again ({outcome.again}): {state_differences(again, last)}"))
    return fell


def judge_atomic(scenario, clean, fault, outcome):
    """The same for commits, which are old or new as a whole, history included; and for the start that undoes one."""
    found = settle(outcome.tree, outcome.applied)
    is_told, fell = history_is_told(scenario, outcome)
    done = outcome.done()
    if scenario.is_start or not outcome.refused:
        allowed = [clean.last()]
    else:
        allowed = clean.states[done:done + 2] if not_flushed(outcome.replies[-1]) else [clean.states[done]]
    check = functools.partial(check_whole, scenario, clean, is_told)
    fell += check(found, allowed)
    if not outcome.up:
        return [*fell, *judge_end(scenario, outcome, fault)]
    if outcome.lost:
        fell.append(Shortfall("lives", f"{outcome.lost} descriptors more than before"))
    if scenario.fails and not outcome.refused:
        fell.append(Shortfall("told", "it said done"))
    elif outcome.refused and not scenario.fails:
        fell += judge_refusal(fault, outcome, found)
    if not_flushed(outcome.replies[-1] if outcome.replies else None):
        final = allowed
    else:
        final = [clean.last()]
    fell += [Shortfall("again", f"{outcome.again}: {text}") for _, text in
             check(settle(outcome.tree_again, outcome.applied_again), final)]
    if outcome.flushed is not None:
        fell += [Shortfall("stays", f"{outcome.again}: {text}") for _, text in check(settle(outcome.flushed), final)]
    live = in_force(outcome.tree_again, outcome.applied_again).answers
    different = answer_differences(outcome.live_again, live)
    if different and not (scenario.is_start and says_why(outcome.log, fault)):
        fell.append(Shortfall("agrees", f"{different} after {outcome.again}"))
    return fell


def check_whole(scenario, clean, is_told, found, allowed):
    return [*check_tidy(scenario, found), *check_state(scenario, clean, found, allowed), *check_applied(found),
            *check_history(scenario, clean, found, [s for s in allowed if s == found] or allowed, is_told)]


def run_fault(scenario, clean, point, name, tell=None):
    """None when the daemon did not come to that point, else the shortfalls."""
    fault = FAULTS[name]
    outcome = meet_fault(scenario, point, fault, tell)
    if outcome is None:
        return None
    if fault.action in (FAIL, FAIL_FROM_THERE, HALF):
        one = judge_atomic if scenario.atomic else judge_start if scenario.is_start else judge
        return one(scenario, clean, fault, outcome)
    if outcome.up:
        return [Shortfall("whole", "the daemon was to be killed, but lives")]
    return check_crash(scenario, clean, settle(outcome.tree, outcome.applied), outcome.done())


def run_cut(scenario, clean, point, name, tell=None):
    random_cut = RANDOM.fullmatch(name)
    choice = RandomChoice(random.Random(int(random_cut[1]))) if random_cut else CHOICES[name]
    tree = disk_after(clean, point).after_cut(choice, SPARE)
    replies = sum(1 for count in clean.acknowledged if count <= point)
    found = settle(tree)
    if tell:
        print("after the cut:", *differences(tree, clean.states[0].tree), sep="\n    ")
        print("after the start:", *differences(found.tree, clean.states[0].tree), *found.history.entries, sep="\n    ")
    return check_crash(scenario, clean, found, replies)
