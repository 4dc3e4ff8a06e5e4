"""The n-th allocation of the daemon fails while clients get, set, save and listen to events.

It may refuse what it cannot do and go on, events included, or end in order: by SIGABRT, with a line on its log or
stderr that says why. A command that it says is done is done, and no file is torn in any case.
"""

import functools
import signal

import history
from box import Box, is_refusal, history_files, wait_for
from disk import differences
from scenarios import BASE, HISTORY_QUESTION, TEMPORARY
from appliance import Connection

# What each writes depends on nothing that another does, so that one may be refused alone. True: when it is not
# refused, the files are as after it in a good run.
COMMANDS = (
    ("get", False),
    ("introspect Cam", False),
    ("set A.first=1", False),
    ("save", False),
    ("update Linked.only=1", True),
    ("set Live.level=3", True),
    ("user.passwd op new", True),
    ("profile.save v1 Cam", True),
    ("preset.store 1", True),
    ("export stdout", False),
    ("import /home/in.hdf", False),
    ("save", False),
    ("commit Net.address=two Net.alias=x", True),
    ("commit -c 600 Net.address=three", False),
    ("confirm", True),
    ("commit -c 600 Net.address=four", False),
    ("abort", False),
    ("history", False),
)
SAYS_WHY = ("out of memory", "Out of memory", "Cannot allocate memory")
GOOD = ("went on", "ended in order", "not reached")


class Listener:
    """A subscriber of the events, which has been taken in."""

    def __init__(self, box):
        self.connection = Connection(str(box.root / "var/run/qv/notify.sock"))
        self.connection.socket.setblocking(False)
        wait_for(lambda: self.hears(box), 30)

    def hears(self, box):
        """Whether an event arrives after something happened."""
        self.read()
        box.command("login admin kelpo")
        return wait_for(self.read, 0.1)

    def read(self):
        try:
            return self.connection.socket.recv(1 << 16)
        except OSError:
            return b""

    def close(self):
        self.connection.close()


@functools.cache
def good_run():
    """How many allocations there are, and the files after each command."""
    with Box({**BASE, **history_files("ready")}) as box:
        assert box.start(), box.log()
        listener = Listener(box)
        trees = [history.without(box.tree())]
        box.shim.count_allocations()
        for command, _ in COMMANDS:
            reply = box.command(command)
            assert not is_refusal(reply), f"{command}: {reply}"
            trees.append(history.without(box.tree()))
        count = box.shim.allocations()
        listener.close()
        return count, trees


def changed(before, after):
    return [path for path in {*before, *after} if before.get(path) != after.get(path)]


def check_done(index, tree):
    """What a command that says it is done has left undone."""
    _, trees = good_run()
    command, alone = COMMANDS[index]
    undone = [p for p in changed(*trees[index:index + 2]) if alone and tree.get(p) != trees[index + 1].get(p)]
    return f"{command} said done, but {undone} are not" if undone else ""


def check_end(box):
    log = box.log()
    if box.process.returncode != -signal.SIGABRT:
        return "crashed", f"it ended with {box.process.returncode}\n{log}"
    if not any(text in log for text in SAYS_WHY):
        return "silent end", log
    return "ended in order", log


def check_alive(box, listener):
    if not box.answers():
        return "deaf", box.log()
    # One that the daemon let go may come again.
    if not listener.hears(box):
        again = Listener(box)
        heard = wait_for(lambda: again.hears(box), 5)
        again.close()
        if not heard:
            return "no more events", box.log()
    return "went on", ""


def check_files(tree):
    _, trees = good_run()
    torn = [p for p in {*tree, *trees[0]} if all(tree.get(p) != t.get(p) for t in trees)]
    if not torn:
        return None
    what = "left over" if all(TEMPORARY in p for p in torn) else "torn"
    return what, "; ".join(d for d in differences(tree, trees[0]) if d.split()[0] in torn)


def check_history(found):
    keys = [e.key for e in found.entries if e.key]
    if found.problem or found.is_aside or len(keys) != len({*keys}):
        return "history", str(found)
    return None


def run(fail_at):
    """(how it ended, details)."""
    good_run()
    with Box({**BASE, **history_files("ready")}) as box:
        assert box.start(), box.log()
        listener = Listener(box)
        box.shim.count_allocations(fail_at)
        undone = ""
        for i, (command, _) in enumerate(COMMANDS):
            reply = box.command(command)
            if not is_refusal(reply):
                undone = undone or check_done(i, history.without(box.tree()))
            elif reply is None and wait_for(box.has_ended, 0.2 if box.answers() else 5):
                break
        reached = box.shim.allocations_failed()
        box.shim.stop_allocations()
        result = ("not reached", "") if not reached else check_alive(box, listener)
        if result[0] not in GOOD and wait_for(box.has_ended, 1):
            result = check_end(box)
        listener.close()
        if not box.has_ended():
            box.kill()
        tree = box.tree()
        log = box.log()
    with Box(tree) as after:
        if not after.start():
            return "no start after it", after.log()
        after.wait_for_undoing()
        after.command(HISTORY_QUESTION)
        tree = after.tree()
        torn = check_files(history.without(tree)) or check_history(history.read(tree, f"{after.folder}-history"))
    if result[0] in GOOD and undone:
        return "not done", f"{undone}\n{log}"
    return torn or result
