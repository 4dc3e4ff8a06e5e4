"""The wire, byte for byte."""

import pytest

from appliance import Appliance, metadata

MIB = 1 << 20
META = metadata("""
A: perm = 7777; read = kv_rfunc; file = /etc/a.conf
A.b: attr = b; default = 1
A.c: attr = c; default = 2
""")


@pytest.fixture(scope="module", params=["local", "tcp"])
def wire(request):
    with Appliance(META) as a:
        a.start(tcp=True)
        a.over_tcp = request.param == "tcp"
        yield a


# What a client sends before it ends sending, and the whole answer.
TRANSCRIPTS = {
    "ping": (b"?\n", b"!\n"),
    "ping with more on the line": (b"?anything 1 2\nget A.b\n\n", b"!\n"),
    "ping without a newline": (b"?", b"!\n"),
    "one command": (b"me 0 0\nget A.b\n\n", b"A.b=1\n@\n0\n"),
    "any word and any third number": (b"\xff\x00\x01x 0 -77\nget A.b\n\n", b"@\n1\n"),
    "an empty line at once": (b"me 0 0\n\n", b"@\n0\n"),
    "what follows the empty line is not read": (b"me 0 0\n\nget A.b\n\n", b"@\n0\n"),
    "the code is the last command's": (b"me 0 0\nget X\nget A.b\n\n", b"X=##Parameter not found#\nA.b=1\n@\n0\n"),
    "comment": (b"me 0 0\nget A.b\n# get A.c\n\n", b"A.b=1\n@\n1\n"),
    "separators only": (b"me 0 0\nget X\n , ,\n\n", b"X=##Parameter not found#\n@\n0\n"),
    "carriage return only": (b"me 0 0\n\r\n\n", b"@\n1\n"),
    "lines with carriage returns": (b"me 0 0\r\nget A.b\r\n\n", b"A.b=1\n@\n0\n"),
    "unknown command": (b"me 0 0\nnonsense a b\n\n", b"@\n0\n"),
    "binary command": (b"me 0 0\n\x80\xfe\x01\x02 \xff\n\n", b"@\n0\n"),
    "binary name is given back": (b"me 0 0\nget \x80\xfe\n\n", b"\x80\xfe=##Parameter not found#\n@\n1\n"),
    "a NUL ends the line": (b"me 0 0\nget A.b\0 A.c\n\n", b"A.b=1\n@\n0\n"),
    "a NUL begins the line": (b"me 0 0\n\0get A.b\n\n", b"@\n1\n"),
    "first line has two fields": (b"me 0\nget A.b\n\n", b"@\n1\n"),
    "nothing at all": (b"", b"@\n1\n"),
    "end of input instead of an empty line": (b"me 0 0\nget A.b\n", b"A.b=1\n@\n0\n"),
    "end of input within a line": (b"me 0 0\nget X\nget A.b", b"X=##Parameter not found#\nA.b=1\n@\n0\n"),
    "end of input after the first line": (b"me 0 0", b"@\n0\n"),
    # 255 bytes count as the first line, the rest of a longer one is a command.
    "first line of 255 bytes with its newline": (b"me 0 0".ljust(254) + b"\nget A.b\n\n", b"A.b=1\n@\n0\n"),
    "first line of 255 bytes without it": (b"me 0 0".ljust(255) + b"\nget A.b\n\n", b"@\n0\n"),
    "first line of 256 bytes and more": (b"me 0 0".ljust(255) + b"get A.c\nget A.b\n\n", b"A.c=2\nA.b=1\n@\n0\n"),
    "first line without an end": (b"me 0 0".ljust(255) + b"get A.c" + 5000 * b" ", b"A.c=2\n@\n0\n"),
    "a line of 1 MiB": (b"me 0 0\nget A.b".ljust(7 + MIB) + b"\nget A.c\n\n", b"A.b=1\nA.c=2\n@\n0\n"),
    "a line of 1 MiB and a byte ends the connection": (
        b"me 0 0\nget A.b\nget A.b".ljust(15 + MIB + 1) + b"\nget A.c\n\n",
        b"A.b=1\n@\n1\n",
    ),
    "a line without an end": (b"me 0 0\nget A.b\n" + 3 * MIB * b"x", b"A.b=1\n@\n1\n"),
    "99 arguments at most": (
        b"me 0 0\nget " + b",".join([b"A.b"] * 98 + [b"A.c"] * 60) + b"\n\n",
        98 * b"A.b=1\n" + b"A.c=2\n@\n0\n",
    ),
}


@pytest.mark.parametrize("name", TRANSCRIPTS)
def test_transcript(wire, name):
    sent, expected = TRANSCRIPTS[name]
    assert wire.exchange(sent, wire.over_tcp) == expected


def test_answers_come_before_the_request_ends(wire):
    with wire.connect(wire.over_tcp, "me 0 0\nget A.b\n") as c:
        assert c.read_lines(1) == b"A.b=1\n"
        c.send("get A")
        c.send(".c\nget X\n")
        assert c.read_lines(2) == b"A.c=2\nX=##Parameter not found#\n"
        c.send("\n")
        assert c.read_all() == b"@\n1\n"


def test_pipelined_batch(wire):
    lines = [f"get {name}" for _ in range(5000) for name in ("A.b", "X", "A.c")]
    answer = b"A.b=1\nX=##Parameter not found#\nA.c=2\n" * 5000
    assert wire.talk(lines, tcp=wire.over_tcp) == answer + b"@\n0\n"


def test_vanished_clients_leave_their_places(wire):
    for sent in (b"", b"?", b"me", b"me 0 0\n", b"me 0 0\nget A", b"me 0 0\n" + 3000 * b"get A\n"):
        for _ in range(12):  # more than there are places
            c = wire.connect(wire.over_tcp, sent)
            c.vanish()
    assert wire.exchange(b"me 0 0\nget A.b\n\n", wire.over_tcp) == b"A.b=1\n@\n0\n"


def test_without_session_checking_any_first_line_will_do(appliance):
    a = appliance(META.replace("perm = 7777", "perm = f000") + "A.private = true\n").start("-c")
    for first in (b"\n", b"x\n", b"me 77 0\n", b"\0\xff\n", b"nobody knows me\n"):
        assert a.exchange(first + b"get A.b\n\n") == b"A.b=1\n@\n0\n"
    assert a.exchange(b"?\n") == b"!\n"
    assert a.exchange(b"x\nget_session 12\n\n") == b"session=1\n@\n0\n"
    assert a.read("/tmp/current_sessions") == "0\n"
