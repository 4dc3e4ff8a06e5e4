"""Thousands who say nothing, half a line, or too much: others are served, and what the crowd took is given back."""

import contextlib
import os
import re
import time

import pytest

from appliance import Connection, Reply, wait_until

META = "A {\n perm = 7777\n read = no_rfunc\n b {\n attr = b\n default = 1\n }\n}\n"
ANSWER = b"A.b=1\n@\n0\n"
OF_A_SOURCE = 60  # connections; 64 are let in
FLOOD = 20000 * b"get A.b,A.b,A.b,A.b\n"
MIB = 1 << 20


def resident(a):
    """Bytes of the daemon's memory; nothing under a sanitizer, which keeps what is freed."""
    status = open(f"/proc/{a.process.pid}/maps").read()
    if "libasan" in status or "libtsan" in status:
        return 0
    return int(open(f"/proc/{a.process.pid}/statm").read().split()[1]) * os.sysconf("SC_PAGESIZE")


def entries(a, folder):
    return len(os.listdir(f"/proc/{a.process.pid}/{folder}"))


class Crowd:
    """Connections over both endpoints; over TCP from as many addresses as it takes."""

    def __init__(self, a, network=1):
        self.a = a
        self.network = network
        self.connections = []

    def source(self):
        return f"127.0.{self.network}.{1 + len(self.connections) // 2 // OF_A_SOURCE}"

    def add(self, count, greeting, answer=b""):
        for i in range(count):
            if i % 2:
                c = Connection(self.a.address(True), source=self.source())
            else:
                c = Connection(self.a.address())
            self.connections.append(c)
            c.send(greeting)
        for c in self.connections[-count:]:
            assert c.read_lines(answer.count(b"\n")) == answer

    def close(self):
        for c in self.connections:
            c.close()


def flood(a, count):
    """Those that say all they can and never read."""
    crowd = Crowd(a, network=2)
    crowd.add(count, b"me 0 0\n")
    for c in crowd.connections:
        c.send_all_and_end(FLOOD)
    return contextlib.closing(crowd)


@pytest.fixture
def crowded(appliance):
    a = appliance(META).start("--connections=4096", tcp=True, level=1)
    for over_tcp in (False, True):
        assert a.talk("get A.b", tcp=over_tcp) == ANSWER
    return a


def serves(a, requests):
    """An ordinary client on either endpoint; tells what it took."""
    for over_tcp in (False, True):
        times = []
        for _ in range(requests):
            started = time.monotonic()
            assert a.talk("get A.b", tcp=over_tcp) == ANSWER
            times.append(time.monotonic() - started)
        times.sort()
        name = "tcp" if over_tcp else "local"
        print(f"{name}: median {1e3 * times[requests // 2]:.2f} ms, most {1e3 * times[-1]:.2f} ms")


def test_idle_half_open_and_flooding(crowded):
    a = crowded
    before, descriptors, threads = resident(a), entries(a, "fd"), entries(a, "task")
    with contextlib.ExitStack() as stack:
        quiet = stack.enter_context(contextlib.closing(Crowd(a)))
        quiet.add(1000, b"me 0 0\nget A.b\n", b"A.b=1\n")
        quiet.add(500, b"me 0")
        quiet.add(500, b"me 0 0\nget A.b\nget A.", b"A.b=1\n")
        assert entries(a, "fd") == descriptors + 2000
        calm = resident(a)
        stack.enter_context(flood(a, 100))
        serves(a, 100)
        busy = resident(a)
        print(f"resident: {before >> 10} KiB, {calm - before >> 10} more for 2,000, {busy - before >> 10} with the floods")
        assert calm - before < 2000 * 2048
        assert busy - before < 64 * MIB
        for c in quiet.connections[:1000:100]:  # nobody lost his place
            c.send("get A.b\n\n")
            assert c.read_all() == ANSWER
    wait_until(lambda: entries(a, "fd") == descriptors, "descriptors given back")
    wait_until(lambda: entries(a, "task") <= threads + 1, "threads that end")
    if before:
        print(f"resident afterwards: {resident(a) - before >> 10} KiB more")
        wait_until(lambda: resident(a) - before < 4 * MIB, "memory given back")
    serves(a, 1)


def test_a_stop_with_all_of_them(crowded):
    a = crowded
    with contextlib.closing(Crowd(a)) as quiet, flood(a, 40):
        quiet.add(200, b"me 0")
        a.stop()
        for c in quiet.connections:
            assert c.read_all() == b""
    assert "did not end in time" not in a.log()


def test_places_of_an_ordinary_user(appliance):
    """One who is no administrator takes 64 of them, and what he says wrong fills no log."""
    if os.geteuid() != 0:
        pytest.skip("only root can become somebody else")
    a = appliance(META)
    a.root.chmod(0o755)
    a.start("--connections=100", level=2)
    path = a.address()
    with contextlib.ExitStack() as stack:
        mine = [stack.enter_context(Connection(path, user=65534)) for _ in range(64)]
        for c in mine[:-1]:
            c.send("me 0 0\n")
        with Connection(path, user=65534) as one_more:
            assert one_more.read_all() == b""
        with Connection(path, user=65533) as other:
            other.send("?\n")
            assert other.read_all() == b"!\n"
        mine[-1].send("me 0 0\n")  # the last to have said something
        root = [stack.enter_context(a.connect(greeting="me 0 0\nget A.b\n")) for _ in range(70)]
        assert all(c.read_lines(1) == b"A.b=1\n" for c in root)
        assert mine[0].read_all() == b"@\n0\n"  # idle for longest, it made room, and was told
        mine[-1].send(1000 * "nonsense\n" + "\n")
        assert mine[-1].read_all().endswith(b"@\n1\n")
    a.talk(1000 * ["nonsense"])
    assert a.command("get A.b") == Reply(["A.b=1"], 0)
    a.stop()
    log = a.log().splitlines()
    assert "user 65534 has 64 connections, further ones are closed" in log
    assert log.count("Invalid command: nonsense") <= 100
    for who, what in (("user 65534", "lines"), (f"user {os.getuid()}", "errors")):
        assert f"{who}: further {what} are left out for some seconds" in log
        assert any(re.fullmatch(rf"{who}: \d+ {what} were left out", line) for line in log)
