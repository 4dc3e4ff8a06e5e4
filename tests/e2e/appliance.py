"""A real qvcd on a root of its own.

    with Appliance(meta="A {\n ... }", files={"/etc/a.conf": "port=1\n"}) as a:
        a.start()
        assert a.command("get A.port") == Reply(["A.port=1"], 0)

Everything lives in one short temporary folder, so that several test programs run side by side and nothing is left
behind. Waiting is always for a condition, with a deadline.
"""

import contextlib
import ctypes
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import typing

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
BIN_DIR = pathlib.Path(os.environ.get("QVCD_BIN_DIR", REPOSITORY / "build/release/bin")).resolve()
QVCD = BIN_DIR / "qvcd"
QVC = BIN_DIR / "qvc"

PATIENCE = 30.0  # seconds until a condition that must come counts as missed; sanitizers are slow
SANITIZER_REPORT = re.compile(r"(ERROR|WARNING|SUMMARY): \w*Sanitizer|runtime error:")


# Tells that it has begun, and ends when the test has written /go.
WAIT_FOR_GO = '#!/bin/sh\necho >>"$QV_SYSROOT/started"\nwhile [ ! -e "$QV_SYSROOT/go" ]; do sleep 0.01; done\necho 42\n'

LIBC = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1


def die_with_us():
    """In a child: a test program that is killed leaves no daemon behind."""
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)


def end_session(leader):
    """Kills what a process that led a session, and is not reaped yet, has left running."""
    for pid in map(int, filter(str.isdigit, os.listdir("/proc"))):
        with contextlib.suppress(OSError):  # it may end at any moment
            rest = pathlib.Path(f"/proc/{pid}/stat").read_text(errors="replace").rpartition(")")[2].split()
            if int(rest[3]) == leader and pid != leader:
                os.kill(pid, signal.SIGKILL)


class Reply(typing.NamedTuple):
    """The reply lines of a request and its result code."""

    lines: list
    code: int


def wait_until(condition, what, patience=PATIENCE):
    """The first true result of condition()."""
    deadline = time.monotonic() + patience
    while True:
        result = condition()
        if result:
            return result
        assert time.monotonic() < deadline, f"waited in vain: {what}"
        time.sleep(0.003)


def escape(text):
    """A value as the wire needs it."""
    return "".join(c if c.isalnum() and c.isascii() else "".join(f"%{b:02X}" for b in c.encode()) for c in text)


def metadata(text):
    """Metadata from lines "API: attribute = value; attribute = value"."""
    lines = (line.strip().partition(": ") for line in text.splitlines() if line.strip())
    return "".join(f"{api}.{one.strip()}\n" for api, _, attributes in lines for one in attributes.split("; "))


def user_file(groups, users):
    """A user file as the daemon writes it. groups: {number: perm}. users: {name: (group, password, default)}."""
    lines = ["Group {"]
    for number, perm in groups.items():
        lines += [f"  {number} {{", f"    perm = {perm}", "  }"]
    lines += ["}", "User {"]
    for name, values in users.items():
        fields = zip(("group", "passwd", "default"), values)
        lines += [f"  {name} {{", *(f"    {field} = {value}" for field, value in fields), "  }"]
    return "\n".join([*lines, "}", ""])


def as_bytes(text):
    return text if isinstance(text, bytes) else text.encode()


def connect_as(user, path):
    """A connection to a Unix socket that another user made: a child connects and hands its descriptor over."""
    ours, theirs = socket.socketpair()
    child = os.fork()
    if child == 0:
        with contextlib.suppress(BaseException):
            os.setgroups([])
            os.setgid(user)
            os.setuid(user)
            connected = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            connected.connect(path)
            socket.send_fds(theirs, [b"+"], [connected.fileno()])
        os._exit(0)
    theirs.close()
    with ours:
        _, descriptors, _, _ = socket.recv_fds(ours, 1, 1)
    os.waitpid(child, 0)
    assert descriptors, f"user {user} cannot connect to {path}"
    return socket.socket(fileno=descriptors[0])


class Connection:
    """One connection to the daemon, for what talk() cannot do: waiting, dribbling, vanishing."""

    def __init__(self, address, patience=PATIENCE, source=None, user=None):
        """source: the address of this machine to come from. user: the local user to be, without groups; needs root."""
        if user is not None:
            self.socket = connect_as(user, address)
        else:
            family = socket.AF_INET if isinstance(address, tuple) else socket.AF_UNIX
            self.socket = socket.socket(family, socket.SOCK_STREAM)
        self.socket.settimeout(patience)
        if source:
            self.socket.bind((source, 0))
        if user is None:
            self.socket.connect(address)
        self.received = b""

    def send(self, data):
        self.socket.sendall(as_bytes(data))

    def send_all_and_end(self, data):
        """Sends, from a thread of its own when the daemon may have to wait for us to read."""

        def run():
            with contextlib.suppress(OSError):  # the daemon may close while we send
                self.send(data)
                self.end_sending()

        if len(data) < 1 << 16:
            run()
        else:
            threading.Thread(target=run, daemon=True).start()

    def end_sending(self):
        self.socket.shutdown(socket.SHUT_WR)

    def read_lines(self, count):
        """The next lines, each with its newline."""
        while self.received.count(b"\n") < count:
            data = self.socket.recv(65536)
            assert data, f"the daemon closed the connection after {self.received!r}"
            self.received += data
        lines = self.received.split(b"\n")
        self.received = b"\n".join(lines[count:])
        return b"".join(line + b"\n" for line in lines[:count])

    def read_all(self):
        chunks = [self.received]
        self.received = b""
        while True:
            try:
                data = self.socket.recv(1 << 16)
            except ConnectionResetError:
                data = b""
            if not data:
                return b"".join(chunks)
            chunks.append(data)

    def silent_for(self, seconds):
        """True when nothing comes in that time."""
        self.socket.settimeout(seconds)
        try:
            self.received += self.socket.recv(65536)
            return False
        except TimeoutError:
            return True
        finally:
            self.socket.settimeout(PATIENCE)

    def close(self):
        self.socket.close()

    def vanish(self):
        """Closes with unread input thrown away: over TCP the daemon gets a reset."""
        with contextlib.suppress(OSError):
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
        self.socket.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Talker:
    """Sends requests over connections that open(tcp) makes."""

    def exchange(self, data, tcp=False):
        """Sends bytes as they are, ends sending and returns everything that comes back."""
        with self.open(tcp) as c:
            c.send_all_and_end(as_bytes(data))
            return c.read_all()

    def talk(self, lines, session=0, tcp=False):
        """A whole request: the raw reply to the command lines."""
        lines = [lines] if isinstance(lines, (str, bytes)) else lines
        return self.exchange(b"".join([b"e2e %d 0\n" % session, *(as_bytes(x) + b"\n" for x in lines), b"\n"]), tcp)

    def command(self, line, session=0, tcp=False):
        lines = self.talk(line, session, tcp).decode(errors="surrogateescape").split("\n")
        assert lines[-3] == "@" and lines[-1] == "", f"{line}: {lines}"
        return Reply(lines[:-3], int(lines[-2]))

    def get(self, api, session=0):
        reply = self.command(f"get {api}", session)
        assert reply.code == 0 and len(reply.lines) == 1, reply
        name, value = reply.lines[0].split("=", 1)
        assert name == api
        return value

    def login(self, user, password, *more, tcp=False):
        reply = self.command(" ".join(["login", escape(user), escape(password), *more]), tcp=tcp)
        assert reply.code == 0, reply
        return int(reply.lines[0].removeprefix("Session="))


class Events:
    """A subscriber of the notification bus: collects the events as (event, payload)."""

    def __init__(self, address):
        self.connection = Connection(address)
        self.connection.socket.settimeout(None)
        self.objects = []
        self.thread = threading.Thread(target=self._run, daemon=True)
        self.thread.start()

    def _run(self):
        with contextlib.suppress(OSError):
            for line in self.connection.socket.makefile("rb"):
                self.objects.append(json.loads(line))

    def seen(self):
        return [(o["event"], o["payload"]) for o in list(self.objects)]

    def wait_for(self, event, payload):
        wait_until(lambda: (event, payload) in self.seen(), f"event {event} {payload}")

    def close(self):
        with contextlib.suppress(OSError):
            self.connection.socket.shutdown(socket.SHUT_RDWR)
        self.thread.join(PATIENCE)
        self.connection.close()


class Reservation:
    """A free TCP port that nobody else draws, on whatever address, while we hold it. The server that is to have it must
    set SO_REUSEADDR."""

    def __init__(self):
        self.socket = socket.socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.bind(("0.0.0.0", 0))
        self.port = self.socket.getsockname()[1]

    def close(self):
        self.socket.close()


class Appliance(Talker):
    def __init__(self, meta=None, files=None, shipped=False):
        """meta: text of the metadata file. files: {path: text, bytes, or (text, mode)}. shipped: the model that ships."""
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="qe", dir="/tmp"))
        self.process = None
        self.tcp = None
        self.events = []
        self.connections = []
        self.settings = {}
        if shipped:
            shutil.copytree(REPOSITORY / "share/root", self.root, symlinks=True, dirs_exist_ok=True)
            meta = (BIN_DIR.parent / "share/apimeta.hdf").read_text()
        for folder in ("etc", "tmp", "var/run", "usr/share/qvapi"):
            (self.root / folder).mkdir(parents=True, exist_ok=True)
        if meta is not None:
            self.write("/usr/share/qvapi/apimeta.hdf", meta)
        for name, content in (files or {}).items():
            self.write(name, *content if isinstance(content, tuple) else [content])

    # ---- Files ----

    def path(self, name):
        return self.root / name.lstrip("/")

    def write(self, name, content, mode=0o644):
        path = self.path(name)
        path.parent.mkdir(parents=True, exist_ok=True)
        with open(path, "wb") as file:
            file.write(as_bytes(content))
            os.fchmod(file.fileno(), mode)  # whoever waits for it may have removed it already

    def read(self, name):
        return self.path(name).read_text()

    def read_or_empty(self, name):
        with contextlib.suppress(FileNotFoundError):
            return self.path(name).read_text(errors="replace")
        return ""

    def log(self):
        return self.read_or_empty("/log")

    def stderr(self):
        return self.read_or_empty("/stderr")

    def logged(self, line):
        return line in self.log().splitlines()

    def wait_for_log(self, line):
        wait_until(lambda: self.logged(line), f"log line {line!r}")

    # ---- The process ----

    def environment(self, **extra):
        kept = {k: v for k, v in os.environ.items() if not k.startswith(("NOTIFY_", "WATCHDOG_", "QVC_", "XDG_"))}
        return {**kept, "QV_SYSROOT": str(self.root), "HOME": str(self.root), "PATH": f"{BIN_DIR}:{kept['PATH']}", **extra}

    def start(self, *options, level=4, tcp=False, env=None, program=QVCD, wrapper=(), in_child=lambda: None):
        """Starts the daemon in the foreground with a fresh log, and waits until it answers.

        wrapper: words of a command that executes the daemon in its own place. in_child: runs before it.
        """
        assert self.process is None, "it runs already"
        for name in ("/log", "/stderr"):
            self.path(name).unlink(missing_ok=True)
        command = [*wrapper, program, "-g", "-l", self.path("/log"), f"-v{level}", *map(str, options)]
        if tcp:
            self.tcp = self.tcp or Reservation()
            command += ["-P", str(self.tcp.port)]
        with open(self.path("/stderr"), "wb") as stderr:
            self.process = subprocess.Popen(
                command,
                stdin=subprocess.DEVNULL,
                stdout=stderr,
                stderr=stderr,
                env=self.environment(**(env or {})),
                start_new_session=True,
                preexec_fn=lambda: (die_with_us(), in_child()),
            )
        for over_tcp in (False, True)[: 1 + tcp]:
            wait_until(lambda: self.has_ended() or self.answers(over_tcp), "the daemon's first answer")
        assert not self.has_ended(), f"the daemon has ended:\n{self.stderr()}\n{self.log()[-3000:]}"
        return self

    def answers(self, tcp=False):
        with contextlib.suppress(ConnectionError, FileNotFoundError):
            with self.open(tcp) as c:
                c.send("?\n")
                return c.read_all() == b"!\n"
        return False

    def has_ended(self):
        """Leaves the process to be reaped, so that its number stays its own."""
        return os.waitid(os.P_PID, self.process.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT) is not None

    def reap(self):
        """Waits for the end and ends what the daemon's commands left running. Returns the exit code."""
        try:
            wait_until(self.has_ended, f"the daemon's end; its log:\n{self.log()[-3000:]}")
        finally:
            end_session(self.process.pid)
            self.process.kill()  # without effect on one that has ended
            code = self.process.wait()
            self.process = None
        return code

    def stop(self):
        """SIGINT; the end must be an orderly one."""
        os.kill(self.process.pid, signal.SIGINT)
        code = self.reap()
        assert not SANITIZER_REPORT.search(self.stderr()), self.stderr()
        assert code == 0, f"exit status {code}:\n{self.stderr()}\n{self.log()[-3000:]}"
        assert not self.path("/var/run/qv/qvcd.sock").exists()
        assert not self.path("/var/run/qvcd.pid").exists()

    def kill(self):
        os.kill(self.process.pid, signal.SIGKILL)
        assert self.reap() == -signal.SIGKILL, self.stderr()
        assert not SANITIZER_REPORT.search(self.stderr()), self.stderr()

    def restart(self, *options, **settings):
        self.stop()
        return self.start(*options, **settings)

    def close(self):
        with contextlib.ExitStack() as stack:
            stack.callback(shutil.rmtree, self.root, ignore_errors=True)
            if self.tcp:
                stack.callback(self.tcp.close)
            if self.process is not None:
                stack.callback(self._end)
            for one in self.events + self.connections:
                stack.callback(one.close)

    def _end(self):
        try:
            self.stop()
        finally:
            if self.process is not None:
                os.kill(self.process.pid, signal.SIGKILL)
                self.reap()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    # ---- Talking ----

    def address(self, tcp=False):
        return ("127.0.0.1", self.tcp.port) if tcp else str(self.path("/var/run/qv/qvcd.sock"))

    def open(self, tcp=False):
        return Connection(self.address(tcp))

    def connect(self, tcp=False, greeting=None):
        """A connection that is closed with the appliance at the latest."""
        connection = self.open(tcp)
        self.connections.append(connection)
        if greeting:
            connection.send(greeting)
        return connection

    def subscribe(self, password="kelpo"):
        """A subscriber that has been taken in, and has nothing to read yet."""
        events = Events(str(self.path("/var/run/qv/notify.sock")))
        self.events.append(events)

        def taken_in():
            self.login("admin", password, "subscriber")
            return events.seen()

        wait_until(taken_in, "a first event")
        session = self.login("admin", password, "subscriber")
        self.command(f"logout {session}")
        events.wait_for("logout", f"session={session}")
        events.objects.clear()
        return events

    def qvc(self, *words):
        """The command-line client: (exit code, stdout)."""
        done = subprocess.run(
            [QVC, *words], env=self.environment(), stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE
        )
        return done.returncode, done.stdout.decode()


def run_qvcd(*options, env=None):
    """A daemon that is expected to end by itself: (exit code, stdout, stderr)."""
    done = subprocess.run(
        [QVCD, *map(str, options)],
        env={**os.environ, **(env or {})},
        stdin=subprocess.DEVNULL,
        capture_output=True,
        timeout=PATIENCE,
    )
    return done.returncode, done.stdout.decode(), done.stderr.decode()
