"""The real daemon on a tree of files, under the preload library."""

import contextlib
import functools
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))
from appliance import BIN_DIR, PATIENCE, QVCD, Connection, Reply, wait_until  # noqa: E402

from disk import File, read_tree, write_tree  # noqa: E402
from history import MAX_ENTRIES, PROBLEM, filled, only  # noqa: E402
from scenarios import BASE, HISTORY, JOURNAL, MODEL, RUNNING, SPARE, UNDO, UNDONE  # noqa: E402
from shim import Shim  # noqa: E402

LIBRARY = BIN_DIR / "libfaults_preload.so"
# Flushes are not carried out and no run outlives its folder: memory will do, where there is such a place.
PLACE = "/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp"


NOT_FLUSHED = "##Changed, but not known to be on the disk#"
NOT_UNDONE = "Can not undo commit "  # in the log


def settings_in(tree):
    if JOURNAL in tree and not tree[JOURNAL].data:
        del tree[JOURNAL]
    return tree


# Of the process that made it and of those that it forks.
workshop = pathlib.Path(tempfile.mkdtemp(prefix="qf", dir=PLACE))


class Box:
    """One at a time, and always at the same place: what the daemon keeps on its disk may name it."""

    def __init__(self, tree, applied=None):
        """applied: what the actions took from the files, {name: bytes}."""
        self.folder = workshop / str(os.getpid())
        self.root = self.folder / "r"
        self.services = self.root / "var/run/applied"
        self.process = None
        self.folder.mkdir()
        for name in ("tmp", "var/run/applied", "usr/share/qvapi", "etc"):
            (self.root / name).mkdir(parents=True)
        (self.root / "usr/share/qvapi/apimeta.hdf").write_text(MODEL)
        write_tree(self.root, tree)
        for name, data in (applied or {}).items():
            (self.services / name).write_bytes(data)
        self.shim = Shim(self.folder, LIBRARY, RUNNING)

    def close(self):
        if self.process and not self.has_ended():
            self.kill()
        self.shim.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def tree(self):
        """The files that count."""
        return settings_in(read_tree(self.root, SPARE))

    def everything(self):
        return read_tree(self.root, RUNNING, with_folders=True)

    def applied(self):
        return {path.name: path.read_bytes() for path in self.services.iterdir()}

    # ---- The process ----

    def start(self):
        """False when it ended instead of answering."""
        kept = {k: v for k, v in os.environ.items() if not k.startswith(("NOTIFY_", "WATCHDOG_"))}
        with open(self.folder / "stderr", "wb") as stderr:
            self.process = subprocess.Popen(
                [QVCD, "-g", "-w", "-v2", "-l", self.folder / "log"],
                stdin=subprocess.DEVNULL,
                stdout=stderr,
                stderr=stderr,
                env={**kept, "QV_SYSROOT": str(self.root), **self.shim.environment()},
                start_new_session=True,
            )
        wait_until(lambda: self.has_ended() or self.answers(), "the daemon's first answer")
        return not self.has_ended()

    def has_ended(self):
        return self.process.poll() is not None

    def kill(self):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()

    def log(self):
        return "".join((self.folder / name).read_text(errors="replace") for name in ("log", "stderr")
                       if (self.folder / name).exists())

    def descriptors(self):
        """Without those of the history, which stays open, once."""
        folder = pathlib.Path(f"/proc/{self.process.pid}/fd")
        found = []
        for name in folder.iterdir():
            with contextlib.suppress(OSError):
                found.append(os.readlink(name))
        return len(found) - len({path for path in found if HISTORY in path})

    # ---- Talking ----

    def exchange(self, data):
        with Connection(str(self.root / "var/run/qv/qvcd.sock"), PATIENCE) as c:
            c.send_all_and_end(data)
            return c.read_all()

    def answers(self):
        with contextlib.suppress(OSError):
            return self.exchange(b"?\n") == b"!\n"
        return False

    def command(self, line):
        """None when the connection broke off."""
        if line == UNDONE:
            return self.wait_for_undoing()
        try:
            lines = self.exchange(f"faults 0 0\n{line}\n\n".encode()).decode(errors="replace").split("\n")
        except OSError:
            return None
        if len(lines) < 3 or lines[-3] != "@":
            return None
        return Reply(lines[:-3], int(lines[-2]))

    def wait_for_undoing(self):
        """Until it has ended, as a reply; one that failed is tried again later."""
        record = self.root / UNDO[1:]
        wait_until(lambda: self.has_ended() or not record.exists() or NOT_UNDONE in self.log(), "the undoing to end")
        if self.has_ended():
            return None
        return Reply(["##It is not undone#"], 1) if record.exists() else Reply([], 0)

    def ask(self, questions):
        """{question: answer}; of a log-in only whether it succeeds, since the number of a session is drawn."""
        answers = {}
        for question in questions:
            reply = self.command(question)
            answers[question] = reply.code if reply and question.startswith("login") else reply
        return answers


@functools.cache
def history_files(kind):
    """"none"; "ready": after a few commands and a crash; "full": the next one makes the oldest go; "damaged"."""
    if kind == "none":
        return {}
    if kind == "damaged":
        return {HISTORY: File(b"no database\n" * 1000, 0o640)}
    if kind == "full":
        return filled(history_files("ready"), workshop / f"{os.getpid()}-full", MAX_ENTRIES)
    with Box(BASE) as box:
        assert box.start(), box.log()
        for command in ("update B.only=one", "update B.only=zero"):
            assert box.command(command).code == 0
        box.kill()
        return only(box.tree())


def is_refusal(reply):
    """What the history says of itself is none."""
    return reply is None or reply.code != 0 or any("##" in line for line in reply.lines if not line.startswith(PROBLEM))


def not_flushed(reply):
    """It said that it has happened and may not last."""
    return reply is not None and any(NOT_FLUSHED in line for line in reply.lines)


def wait_for(condition, seconds):
    """Whether it comes true in that time."""
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.002)
    return True
