"""The real daemon on a tree of files, under the preload library."""

import contextlib
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

from disk import read_tree, write_tree  # noqa: E402
from scenarios import JOURNAL, MODEL, RUNNING, SPARE  # noqa: E402
from shim import Shim  # noqa: E402

LIBRARY = BIN_DIR / "libfaults_preload.so"
# Flushes are not carried out and no run outlives its folder: memory will do, where there is such a place.
PLACE = "/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp"


def settings_in(tree):
    if JOURNAL in tree and not tree[JOURNAL].data:
        del tree[JOURNAL]
    return tree


# Of the process that made it and of those that it forks.
workshop = pathlib.Path(tempfile.mkdtemp(prefix="qf", dir=PLACE))


class Box:
    """One at a time, and always at the same place: what the daemon keeps on its disk may name it."""

    def __init__(self, tree):
        self.folder = workshop / str(os.getpid())
        self.root = self.folder / "r"
        self.process = None
        self.folder.mkdir()
        for name in ("tmp", "var/run", "usr/share/qvapi", "etc"):
            (self.root / name).mkdir(parents=True)
        (self.root / "usr/share/qvapi/apimeta.hdf").write_text(MODEL)
        write_tree(self.root, tree)
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
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

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
        try:
            lines = self.exchange(f"faults 0 0\n{line}\n\n".encode()).decode(errors="replace").split("\n")
        except OSError:
            return None
        if len(lines) < 3 or lines[-3] != "@":
            return None
        return Reply(lines[:-3], int(lines[-2]))

    def ask(self, questions):
        """{question: answer}; of a log-in only whether it succeeds, since the number of a session is drawn."""
        answers = {}
        for question in questions:
            reply = self.command(question)
            answers[question] = reply.code if reply and question.startswith("login") else reply
        return answers


def is_refusal(reply):
    return reply is None or reply.code != 0 or any("##" in line for line in reply.lines)


def wait_for(condition, seconds):
    """Whether it comes true in that time."""
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.002)
    return True
