"""Kills at any moment, full disks and folders that cannot be written: files stay whole."""

import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import threading
import time

import pytest

from appliance import Reply, die_with_us, metadata, user_file, wait_until

KILLS = 200

META = metadata("""
A: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/a.conf; shadow = /etc/shadow.d/a.conf
A.first: attr = first; default = 0
A.second: attr = second; default = 0
B: perm = 7777; read = quotedkv_rfunc; write = quotedkv_wfunc; file = /etc/b.conf
B.only: attr = only; default = 0
""")
FILLER = "".join(f"# line {i} of somebody else's settings\n" for i in range(400))
APIS = ("A.first", "A.second", "B.only")


def texts(n):
    """The files as they are after the change to n."""
    a = f"first={n}\n{FILLER}second={n}\n"
    return {"/etc/a.conf": a, "/etc/shadow.d/a.conf": a, "/etc/b.conf": f'{FILLER}only="{n}"\n'}


def users(n):
    return user_file({1: 777}, {"admin": (1, f"p{n}")})


@pytest.fixture
def a(appliance):
    return appliance(META, {**texts(0), "/etc/user.conf": (users(0), 0o600)})


def number_in(text):
    match = re.search(r"(?:first=|second=|only=\"|passwd = p)(\d+)", text)
    assert match, f"torn: {text[-200:]!r}"
    return int(match.group(1))


def check_files(a, lowest, highest):
    """Each file is whole and holds a value from acknowledged to sent; returns the values by file."""
    values = {}
    for name in texts(0):
        text = a.read(name)
        values[name] = number_in(text)
        assert text == texts(values[name])[name], f"{name} is torn"
    text = a.read("/etc/user.conf")
    values["/etc/user.conf"] = number_in(text)
    assert text == users(values["/etc/user.conf"]), "the user file is torn"
    assert a.path("/etc/user.conf").stat().st_mode & 0o777 == 0o600
    assert all(lowest <= n <= highest for n in values.values()), (lowest, values, highest)
    return values


def check_start(a, lowest, highest):
    """The next start complains of nothing, finishes a save that was cut off, and shows what the files hold."""
    a.start(level=1)
    assert a.log() == a.stderr() == ""
    values = check_files(a, lowest, highest)
    user = values.pop("/etc/user.conf")
    assert len(set(values.values())) == 1, f"a part of a save: {values}"
    assert [a.get(api) for api in APIS] == 3 * [str(values["/etc/a.conf"])]
    assert a.login("admin", f"p{user}")


class Changer(threading.Thread):
    """Changes everything, again and again, until the daemon is gone."""

    def __init__(self, a, first):
        super().__init__(daemon=True)
        self.a = a
        self.sent = self.acknowledged = first - 1

    def run(self):
        while True:
            n = self.sent + 1
            self.sent = n
            try:
                reply = self.a.talk(["update " + " ".join(f"{api}={n}" for api in APIS), f"user.passwd admin p{n}"])
            except OSError:
                return
            if not reply.endswith(b"@\n0\n"):
                return
            self.acknowledged = n


def test_kills_at_random_moments(a):
    seed = random.randrange(1 << 32)
    chance = random.Random(seed)
    print("seed", seed)  # shown when the test fails
    a.start(level=1)
    changes = 0
    for _ in range(KILLS):
        changer = Changer(a, changes + 1)
        changer.start()
        time.sleep(chance.uniform(0, 0.03))  # the moment is what is drawn here
        a.kill()
        changer.join()
        # A lost acknowledgement may be of a change that is on disk already.
        check_files(a, changer.acknowledged, changer.sent)
        changes = changer.sent
        check_start(a, changer.acknowledged, changes)
        assert a.command("sets " + " ".join(f"{api}={changes}" for api in APIS)).code == 0
        a.talk(["save", f"user.passwd admin p{changes}"])
        check_files(a, changes, changes)
    assert changes > KILLS / 4
    # What a kill leaves behind does not pile up among the configuration files.
    assert set(os.listdir(a.path("/etc"))) == {"a.conf", "b.conf", "profiles", "shadow.d", "user.conf"}
    assert os.listdir(a.path("/etc/shadow.d")) == ["a.conf"]


# ---- At every system call of one save ----


class Tracer:
    """strace on the running daemon."""

    def __init__(self, a, *options):
        self.output = a.path("/trace")
        self.messages = a.path("/trace.messages")
        with open(self.messages, "wb") as messages:
            self.process = subprocess.Popen(
                ["strace", "-f", "-qqq", "-s", "64", "-o", self.output, *options, "-p", str(a.process.pid)],
                stdin=subprocess.DEVNULL,
                stderr=messages,
                env={**os.environ, "ASAN_OPTIONS": ""},
                preexec_fn=die_with_us,
            )
        wait_until(lambda: self.holds_all(a.process.pid), "strace to hold every thread")

    def holds_all(self, pid):
        assert self.process.poll() is None, self.messages.read_text()
        tasks = f"/proc/{pid}/task"
        return all(
            f"TracerPid:\t{self.process.pid}\n" in open(f"{tasks}/{task}/status").read() for task in os.listdir(tasks)
        )

    def stop(self):
        """Lets the daemon go. Returns what was traced."""
        self.process.send_signal(signal.SIGINT)
        self.process.wait()
        return self.output.read_text(errors="replace").splitlines()


def require_strace():
    if not shutil.which("strace"):
        pytest.skip("strace is not installed")
    if subprocess.run(["strace", "-o", "/dev/null", "true"], capture_output=True).returncode != 0:
        pytest.skip("ptrace is not allowed here")


def set_all(a, n):
    assert a.command("sets " + " ".join(f"{api}={n}" for api in APIS)).code == 0


# ---- Files that cannot be written ----

PAIR = metadata("""
Full: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /full/etc/full.conf
Full.value: attr = value; default =
Other: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/other.conf
Other.value: attr = value; default =
""")
BIG_FILLER = "".join(f"# {i:04} {'x' * 92}\n" for i in range(160))  # 16,000 bytes
OLD = BIG_FILLER + "value=old\n"
LIMIT = 16384  # not enough for the old text and a new value of 900 bytes
NEW = 900 * "n"


def can_mount():
    return subprocess.run(["unshare", "-rm", "true"], capture_output=True).returncode == 0


class SmallDisk:
    """The daemon's own view of a folder of its root: a small file system, later full or read-only."""

    def __init__(self, a, folder):
        if not can_mount():
            pytest.skip("name spaces are not allowed here")
        self.a = a
        self.folder = a.path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)

    def wrapper(self, and_then="true"):
        fill = f'mkdir -p "$0/etc" && cp "$QV_SYSROOT/old" "$0/etc/full.conf" && {and_then}'
        script = f'mount -t tmpfs -o size=64k tmpfs "$0" && {fill} && exec "$@"'
        return ["unshare", "-rm", "sh", "-c", script, str(self.folder)]

    def path(self, name):
        """As the daemon sees it."""
        return pathlib.Path(f"/proc/{self.a.process.pid}/root{self.folder}/{name}")

    def fill(self):
        with open(self.path("filler"), "wb", buffering=0) as filler:
            try:
                while True:
                    filler.write(4096 * b"x")
            except OSError:
                pass


def refuse_save(a, why):
    """A save that must fail for Full, by name and with a reason, and go well for Other. Full stays modified."""
    a.command(f"set Full.value={NEW} Other.value=1")
    assert a.command("save") == Reply(["Other.value=1", "Full.value=##Save failed#"], 1)
    assert a.read("/etc/other.conf") == "value=1\n"
    assert a.logged(f"Can not save /full/etc/full.conf: {why}")
    assert a.command("checkmod") == Reply([f"Full.value={NEW}"], 0)


def test_full_disk(appliance):
    a = appliance(PAIR, {"/old": OLD, "/etc/other.conf": "value=0\n"})
    disk = SmallDisk(a, "/full")
    a.start(wrapper=disk.wrapper())
    disk.fill()
    refuse_save(a, "No space left on device")
    assert disk.path("etc/full.conf").read_text() == OLD
    assert os.listdir(disk.path("etc")) == ["full.conf"]
    disk.path("filler").unlink()
    assert a.command("save") == Reply([f"Full.value={NEW}"], 0)
    assert disk.path("etc/full.conf").read_text() == BIG_FILLER + f"value={NEW}\n"


def test_shadow_that_cannot_be_written(a):
    shutil.rmtree(a.path("/etc/shadow.d"))
    a.write("/etc/shadow.d", "in the way\n")
    a.start()
    set_all(a, 1)
    failed = ["A.first=##Save failed#", "A.second=##Save failed#"]
    assert a.command("save") == Reply(["B.only=1", *failed], 1)
    assert a.logged("Can not save /etc/shadow.d/a.conf: Not a directory")
    # Nor is the file that it follows: it could not follow any more.
    assert a.read("/etc/a.conf") == texts(0)["/etc/a.conf"]
    assert a.read("/etc/shadow.d") == "in the way\n"
    a.path("/etc/shadow.d").unlink()
    a.path("/etc/shadow.d").mkdir()
    assert a.command("save") == Reply(["A.first=1", "A.second=1"], 0)
    assert {name: a.read(name) for name in texts(1)} == texts(1)
