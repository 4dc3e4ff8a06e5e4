"""Reading: get and its relatives, meta, metav, introspect, and the readers behind them."""

import contextlib
import re
import socket
import threading

import pytest

from appliance import WAIT_FOR_GO, Appliance, Reply, metadata

NOT_FOUND = "##Parameter not found#"
MASKED = "*******"

META = metadata("""
Plain: perm = 7777; read = kv_rfunc; file = /etc/plain.conf
Plain.kept: attr = kept; type = string; default = fallback; help = A value of the file
Plain.missing: attr = missing; type = blank,integer_range 1 10; default = 5
Plain.invalid: attr = invalid; type = integer; default = 7; write = kv_wfunc
Plain.blank: attr = blank
Plain.nodefault: attr = kept
Plain.group: default = 9
Plain.group.inner: attr = kept
Secret: perm = 7777; read = quotedkv_rfunc; file = /etc/secret.conf
Secret.long: attr = long; type = blank,password 1 64; default = standard
Secret.short: attr = short; type = password
Secret.none: attr = none; type = password
Secret.star: read = password_rfunc; attr = long
Live: perm = 7777; dynamic = true
Live.word: read = syscall_rfunc; attr = echo "  42 x"; default = never
Live.silent: read = syscall_rfunc; attr = true; default = was silent
Live.nothing: read = no_rfunc; attr = x
Live.unknown: read = misspelt_rfunc; attr = x
Live.mirror: read = model_rfunc; attr = Plain.kept
Ipc: perm = 7777; dynamic = true; file = other
Ipc.all: read = ipc_rfunc; attr = status
Ipc.rate: read = ipc_attr_rfunc; attr = status rate
Ipc.lost: read = ipc_attr_rfunc; attr = status lost
Ipc.away: read = ipc_rfunc; file = nobody; attr = status
Linked: perm = 7777
Linked.own: attr = x; default = mine; link = Plain.kept
Linked.dangling: attr = x; default = mine; link = Nowhere.at.all
Levels.maker: perm = 7000; attr = x; default = m
Levels.admin: perm = 7700; attr = x; default = a
Levels.operator: perm = 7770; attr = x; default = o
Levels.viewer: perm = 7774; attr = x; default = v
Levels.writeonly: perm = 2222; attr = x; default = w
Levels.noperm: attr = x; default = n
Levels.private: perm = 7777; private = true; attr = x; default = p
""")
FILES = {
    "/etc/plain.conf": "kept=1 2, 3\ninvalid=abc\nblank=\n",
    "/etc/secret.conf": 'long="secret word"\nshort="x"\nnone=""\n',
    "/etc/user.conf": "".join(f"Group.{n}.perm = {perm}\n" for n, perm in enumerate(["7777", "7777", "7777", "7777"]))
    + "".join(f"User.u{n}.group = {n}\nUser.u{n}.passwd = u{n}\n" for n in range(4)),
}


@pytest.fixture(scope="module")
def a():
    with Appliance(META, FILES) as a:
        yield a.start()


REPLIES = [
    ("get Plain.kept", ["Plain.kept=1 2, 3"], 0),
    ("get Plain.invalid", ["Plain.invalid=7"], 0),
    ("get Plain.blank", ["Plain.blank="], 0),
    ("getv Plain.kept", ["1 2, 3"], 0),
    ("getd Plain.kept", ["Plain.kept=fallback"], 0),
    ("getdv Plain.kept", ["fallback"], 0),
    ("getd Plain.group.inner", [], 0),  # a parent's default is not its own
    ("getd Plain", ["Plain.kept=fallback", "Plain.missing=5", "Plain.invalid=7"], 0),
    ("get Nowhere", [f"Nowhere={NOT_FOUND}"], 1),
    ("get Plain.kept,Nowhere Plain.missing", ["Plain.kept=1 2, 3", f"Nowhere={NOT_FOUND}", "Plain.missing=5"], 1),
    ("get Plain.kept.attr", [f"Plain.kept.attr={NOT_FOUND}"], 1),
    ("get plain.kept", [f"plain.kept={NOT_FOUND}"], 1),
    ("get Plain.", [f"Plain.={NOT_FOUND}"], 1),
    ("get Plain..kept", [f"Plain..kept={NOT_FOUND}"], 1),
    ("get.x", [f"x={NOT_FOUND}"], 1),
    ("getd Nowhere", [f"Nowhere={NOT_FOUND}"], 1),
    ("get Live.word,Live.silent,Live.nothing", ["Live.word=42", "Live.silent=was silent", "Live.nothing="], 0),
    ("get Live.unknown,Live.mirror", ["Live.unknown=", "Live.mirror=1 2, 3"], 0),
    ("get Linked.own", ["Linked.own=1 2, 3"], 0),
    ("get Linked.dangling", ["Linked.dangling=mine"], 0),
    ("getd Linked.own", ["Linked.own=mine"], 0),
    ("get Secret.long", [f"Secret.long={MASKED}"], 0),
    ("getv Secret.long", [MASKED], 0),
    ("get Secret.short", ["Secret.short=x"], 0),
    ("getd Secret.long", ["Secret.long=standard"], 0),
    ("get Secret.star", ["Secret.star=********"], 0),
]


def test_get(a):
    for command, lines, code in REPLIES:
        assert a.command(command) == Reply(lines, code), command


def test_whole_tree_comes_in_the_order_of_the_metadata(a):
    names = [line.split("=")[0] for line in a.command("get").lines]
    assert [n for n in names if n.startswith("Plain")] == [
        "Plain.kept", "Plain.missing", "Plain.invalid", "Plain.blank", "Plain.nodefault", "Plain.group.inner",
    ]  # fmt: skip
    assert list(dict.fromkeys(n.split(".")[0] for n in names)) == ["Plain", "Secret", "Live", "Ipc", "Linked", "Levels"]


# Which of the levels' APIs a user of each group sees in a group listing.
SEEN = {
    0: ["maker=m", "admin=a", "operator=o", "viewer=v", "private=p"],
    1: ["admin=a", "operator=o", "viewer=v"],
    2: ["operator=o", "viewer=v"],
    3: ["viewer=v"],
}


@pytest.mark.parametrize("group", SEEN)
def test_permission_masks_of_users(a, group):
    session = a.login(f"u{group}", f"u{group}")
    seen = [f"Levels.{line}" for line in SEEN[group]]
    assert a.command("get Levels", session) == Reply(seen, 0)
    assert a.command("getd Levels", session) == Reply(seen, 0)
    for name in ("maker", "admin", "operator", "viewer", "writeonly", "noperm"):
        mine = [line for line in seen if line.startswith(f"Levels.{name}=")]
        assert a.command(f"get Levels.{name}", session) == Reply(mine, 0 if mine else 1)
    assert a.command("get Levels.private", session) == Reply(["Levels.private=p"] if group == 0 else [], 0)
    assert a.command("introspect Levels.private", session) == (
        a.command("introspect Levels.private") if group == 0 else Reply([], 0)
    )
    # The metadata is for administrators.
    assert bool(a.command("meta.get Plain.kept", session).lines) == (group <= 1)
    assert a.command("meta.get Plain.kept", session).code == 0
    assert a.command("metav perm Plain.kept", session) == Reply(["7777"], 0)


def test_meta(a):
    kept = [
        "Plain.kept.attr=kept", "Plain.kept.type=string", "Plain.kept.default=fallback",
        "Plain.kept.help=A value of the file",
    ]  # fmt: skip
    for word in ("get", "dump", "nonsense"):
        assert a.command(f"meta.{word} Plain.kept") == Reply(kept, 0)
    assert a.command("meta.get Plain.kept.type,Nowhere") == Reply(["Plain.kept.type=string", f"Nowhere={NOT_FOUND}"], 0)
    menu = ["meta: This menu", "meta.get: Get the meta for an API", "meta.dump: Get the meta for an API"]
    assert a.command("meta") == a.command("meta.help") == Reply(menu, 0)
    whole = a.command("meta.dump").lines
    assert whole[0] == "Plain.perm=7777" and "Levels.private.default=p" in whole
    # "perm" comes from the grandparent here: the first look keeps a copy.
    assert a.command("get Plain.group.inner").code == 0
    assert "Plain.group.inner.perm=7777" in a.command("meta.get Plain.group").lines
    assert not any(line.startswith("Plain.kept.perm") for line in a.command("meta.get Plain").lines)


def test_metav(a):
    assert a.command("metav file Plain.kept") == Reply(["/etc/plain.conf"], 0)
    assert a.command("metav nonsense Plain.kept") == Reply([], 0)
    assert a.command("metav file Nowhere.at.all") == Reply([], 0)
    assert a.command("metav file") == Reply(['##Invalid command#: "metav file"'], -1)
    assert a.command("metav") == Reply(['##Invalid command#: "metav "'], -1)


def test_a_mirror_of_a_password_is_for_who_may_read_it(appliance):
    meta = metadata("""
        P.word: perm = 7700; type = password 1 32; attr = word; default = hush
        M.word: perm = 7774; dynamic = true; read = model_rfunc; attr = P.word
    """)
    a = appliance(meta, {"/etc/user.conf": FILES["/etc/user.conf"]}).start()
    assert [a.get("M.word", a.login(user, user)) for user in ("u1", "u2")] == ["hush", ""]


# ---- Readers that wait for others ----


class OtherDaemon:
    """Another daemon's endpoint: answers each connection with the next answer."""

    def __init__(self, path, answers):
        self.asked = []
        self.answers = answers
        path.parent.mkdir(parents=True, exist_ok=True)
        path.unlink(missing_ok=True)
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.bind(str(path))
        self.socket.listen()
        self.thread = threading.Thread(target=self.run, daemon=True)
        self.thread.start()

    def run(self):
        for answer in self.answers:
            with contextlib.suppress(OSError):
                connection, _ = self.socket.accept()
                with connection, connection.makefile("rwb") as stream:
                    self.asked.append(stream.readline() + stream.readline())
                    stream.write(answer() if callable(answer) else answer)

    def close(self):
        self.socket.close()


def test_ipc_readers(a):
    answers = [b"rate=5\nstate=up\n@\n0\n", b"rate=5", b"", b"x\nrate=7=8\nrate=9\n@\n", b"rate=5\n@\n"]
    other = OtherDaemon(a.path("/var/run/qv/other.sock"), answers)
    with contextlib.closing(other):
        assert a.command("get Ipc.all") == Reply(["Ipc.all=rate=5 state=up"], 0)  # a value is one line
        assert a.get("Ipc.all") == "rate=5"  # ends without an end mark
        assert a.get("Ipc.all") == "n/a"
        assert a.get("Ipc.rate") == "7=8"
        assert a.get("Ipc.lost") == ""
        assert a.get("Ipc.away") == "n/a"
    assert other.asked == [b"status\n\n"] * 3 + [b"status rate\n\n", b"status lost\n\n"]


def test_reader_that_waits_holds_up_nobody(appliance):
    meta = metadata("""
        W.slow: perm = 7777; dynamic = true; read = syscall_rfunc; attr = $QV_SYSROOT/slow
        I.slow: perm = 7777; dynamic = true; read = ipc_rfunc; file = other; attr = status
        Quick.a: perm = 7777; attr = a; default = 1
    """)
    a = appliance(meta, {"/slow": (WAIT_FOR_GO, 0o755)}).start()
    go = threading.Event()
    other = OtherDaemon(a.path("/var/run/qv/other.sock"), [lambda: go.wait(60) and b"done\n@\n"])
    with contextlib.closing(other):
        waiting = [a.connect(greeting=f"me 0 0\nget {name}\n\n") for name in ("W.slow", "I.slow")]
        assert a.command("get Quick.a") == Reply(["Quick.a=1"], 0)
        assert a.command("sets Quick.a=2") == Reply(["Quick.a=2"], 0)
        assert all(c.silent_for(0.05) for c in waiting)
        go.set()
        a.write("/go", "")
        assert waiting[0].read_all() == b"W.slow=42\n@\n0\n"
        assert waiting[1].read_all() == b"I.slow=done\n@\n0\n"
