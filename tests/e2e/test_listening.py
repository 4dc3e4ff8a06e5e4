"""Events over the command socket and TCP: who gets what, what a listener costs, and how a stream ends."""

import json
import re
import select
import signal
import subprocess

import pytest

from appliance import PATIENCE, QVC, die_with_us, metadata, user_file, wait_until

META = metadata("""
Web: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/web.conf; apply = no_apply
Web.port: attr = port; type = portnumber; default = 80
Web.text: attr = text; default =
Web.password: attr = password; type = password 1 64; default = initial
Web.own: attr = own; default = x; perm = 0700
Web.hidden: attr = hidden; default = x; private = true
Box: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/box.conf; apply = no_apply
Box.one: attr = one; default = 1
""")
USERS = user_file({1: 777, 2: 77, 3: 22}, {"admin": (1, "kelpo"), "op": (2, "oper"), "dumb": (3, "w")})


@pytest.fixture
def a(appliance):
    files = {"template": "Web.port\n", "preset.conf": "Preset.current=2", "preset1": "Config.name=one\nWeb.port=10\n"}
    presets = {f"/etc/presets/{name}": text for name, text in files.items()}
    return appliance(META, {"/etc/user.conf": (USERS, 0o600), **presets}).start(tcp=True)


class Listener:
    def __init__(self, a, words="", session=0, tcp=False):
        self.connection = a.connect(tcp, b"e2e %d 0\nevents %s\n" % (session, words.encode()))
        self.first = self.read()

    def read(self):
        return json.loads(self.connection.read_lines(1))

    def seen(self, count):
        events = [self.read() for _ in range(count)]
        return [(e["event"], e["payload"], e["old"]) if "old" in e else (e["event"], e["payload"]) for e in events]


def test_everybody_gets_what_he_may_see(a):
    admin, operator = a.login("admin", "kelpo"), a.login("op", "oper")
    elsewhere = a.login("x:op", "oper", tcp=True)
    root, over_tcp = Listener(a), Listener(a, session=elsewhere, tcp=True)
    some = Listener(a, "-e set -e revert *.po*t Bo?", operator)
    assert root.first["event"] == "listening" and root.first["payload"].endswith("entry=0")
    commands = ["update Web.port=81", "set Web.password=hush Web.own=y Web.hidden=z Box.one=2", "revert Web.own Box", "default Web.port"]
    for command in commands:
        a.command(command)
    change = [("set", "Web.port=81", "80"), ("save", "Web.port=81", "80"), ("apply", "Web.port=81", "80")]
    assert root.seen(10) == [*change, ("set", "Web.password=*******"), ("set", "Web.own=y", "x"), ("set", "Web.hidden=z", "x"),
                             ("set", "Box.one=2", "1"), ("revert", "Web.own=x", "y"), ("revert", "Box.one=1", "2"),
                             ("default", "Web.port=80", "81")]  # fmt: skip
    assert over_tcp.seen(7) == [*change, ("set", "Web.password=*******"), ("set", "Box.one=2", "1"),
                                ("revert", "Box.one=1", "2"), ("default", "Web.port=80", "81")]  # fmt: skip
    assert some.seen(3) == [("set", "Web.port=81", "80"), ("set", "Box.one=2", "1"), ("revert", "Box.one=1", "2")]
    assert a.command("events", a.login("dumb", "w")).lines == ["##Invalid permission#"]
    assert a.command("events -e").code == a.command("events " + "x" * 1100).code == 1
    # Users, profiles and presets are the administrators' business, and so are numbers of sessions.
    boss = Listener(a, "-e user -e profile -e preset -e login -e factory_reset", admin)
    again = a.login("admin", "kelpo", "elsewhere")
    for command in ("user.passwd op new", "user.mod op 3", "user.rem dumb", "profile.save p", "profile.copy p q",
                    "profile.load p", "profile.remove q", "preset.store 1", "preset.load 1", "factory_reset"):  # fmt: skip
        a.command(command, again)
    assert boss.seen(13) == [
        ("login", "admin=*******"), ("user", "User.op.passwd=*******"), ("user", "User.op.group=3", "2"),
        ("user", "User.dumb.group=", "3"), ("user", "User.dumb.passwd=*******"), ("profile", "p=save"),
        ("profile", "q=save"), ("profile", "p=load"), ("profile", "q=remove"), ("preset", "Preset.1=save"),
        ("preset", "Preset.current=1", "2"), ("preset", "Preset.1=load"), ("factory_reset", "admin=all"),
    ]  # fmt: skip


def test_ends_of_streams(a):
    session = a.login("admin", "kelpo")
    mine, ended, gone = Listener(a, session=session), Listener(a, session=session, tcp=True), Listener(a)
    gone.connection.vanish()
    # A line ends the stream; the request goes on.
    mine.connection.send("get Web.port\n\n")
    assert mine.connection.read_all() == b"Web.port=80\n@\n0\n"
    half = Listener(a)
    half.connection.end_sending()
    assert half.connection.read_all() == b"@\n0\n"
    a.command(f"logout {session}")
    assert ended.connection.read_all() == b"##The session has ended, or its rights have changed#\n@\n1\n"
    # Who got other rights before he listens has them, and keeps his stream.
    operator = a.login("op", "oper")
    a.command("user.mod op 1")
    regraded = Listener(a, "Box", session=operator)
    a.command("set Box.one=6")
    assert regraded.seen(1) == [("set", "Box.one=6", "1")]
    regraded.connection.close()
    # Places are limited, and come back.
    many = [Listener(a) for _ in range(64)]
    wait_until(lambda: a.command("events").lines == ["##Too many listen to events#"], "no place")
    for listener in many:
        listener.connection.close()
    wait_until(lambda: a.command("set Web.text=x") and a.command("events").code == 0, "a place")


def test_who_does_not_read_is_dropped_and_told(a):
    slow, quick = Listener(a, "Web.text"), Listener(a, "Box")
    a.talk([f"set Web.text={'x' * 900}{n}" for n in range(3000)])
    a.command("set Box.one=5")
    assert quick.seen(1) == [("set", "Box.one=5", "1")]
    last = slow.connection.read_all()
    assert last.endswith(b"\n##Events were lost: too many came, or the client did not read them#\n@\n1\n")
    assert all(line.startswith(b'{"identity"') and line.endswith(b"}") for line in last.splitlines()[:-3])


def test_watch_comes_back_and_says_what_was_missed(a):
    words = [QVC, "-H", f"127.0.0.1:{a.tcp.port}", "watch", "-t", "-e", "set,default", "Web"]
    with subprocess.Popen(
        words, env=a.environment(TZ="UTC"), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        text=True, preexec_fn=die_with_us,
    ) as watch:  # fmt: skip

        def changes_until_seen():
            a.command("default Web.port")
            a.command("set Web.port=81 Box.one=7")
            return select.select([watch.stdout], [], [], 0.1)[0]

        wait_until(changes_until_seen, "a line of the client")
        assert re.fullmatch(r"20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} set Web.port=81\n|.* default Web.port=80\n", watch.stdout.readline())
        a.restart(tcp=True)
        assert watch.stderr.readline().endswith("; trying again\n")
        assert re.fullmatch("qvc: listening again; missed is what happened from .* to .*: the daemon was restarted\n", watch.stderr.readline())
        a.command("set Web.text=new")
        while not watch.stdout.readline().endswith("set Web.text=new\n"):
            pass
        watch.send_signal(signal.SIGINT)
        assert watch.wait(PATIENCE) == 0
    assert a.qvc("-s", "4711", "watch")[0] == 124 and a.qvc("watch", "-x")[0] == 2
