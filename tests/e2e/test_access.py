"""Who may do what from where: trusted and other sources, bound sessions, wrong passwords, hashes, the unit."""

import ctypes
import ctypes.util
import os
import re
import shutil
import subprocess
import threading

import pytest

from appliance import REPOSITORY, Connection, Reply, Talker, escape, metadata, run_qvcd, user_file, wait_until

META = metadata("""
A: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/a.conf
A.one: attr = one; default = 1; help = The one
""")
USERS = user_file({0: 7777, 1: 777, 2: 77}, {"admin": (1, "kelpo", "kelpo"), "chief": (1, "c h"), "op": (2, "oper")})
FORBIDDEN = "##Invalid permission#"
BUILT_IN = "##Change the password of admin locally first#"
UNIT = REPOSITORY / "share/qvcd.service"

needs_root = pytest.mark.skipif(os.geteuid() != 0, reason="only root can become another user")


@pytest.fixture
def make(appliance):
    def start(*options, users=USERS):
        a = appliance(META, {"/etc/user.conf": (users, 0o600), "/etc/a.conf": "one=1\n"})
        a.root.chmod(0o755)
        return a.start(*options, tcp=True)

    return start


class Place(Talker):
    """Where a client is: an address of this machine, or a local user."""

    def __init__(self, a, address=None, user=None):
        self.a, self.address, self.user = a, address, user

    def open(self, tcp=False):
        return Connection(self.a.address(self.address is not None), source=self.address, user=self.user)

    def may_use(self, session):
        reply = self.command("get A.one", session)
        assert reply in (Reply(["A.one=1"], 0), Reply([] if session else [FORBIDDEN], 1))
        return reply.code == 0

    def is_root(self):
        return self.may_use(0)


def check_stranger(place):
    """May find out how to log in, and log in; nothing else, whatever he sends."""
    a = place.a
    for line in ("get", "get A.one", "set A.one=2", "setn A.new=2", "insert A.new=2", "user.list", "user", "sessions",
                 "logout 5", "get_session 0", "import /etc/a.conf", "export /tmp/out", "apply", "save", "nonsense",
                 "getv A.one", "factory_reset", "login.x", "metav A.one.perm"):  # fmt: skip
        if not line.startswith("login"):
            assert place.command(line) == Reply([FORBIDDEN], 1), line
    assert place.command(["help", "get A.one", "help.api"]).lines[-1] == FORBIDDEN
    assert place.command("# a comment").code == 1
    assert "login: Perform a login using username and password" in place.command("help.cmd").lines
    assert place.command("help.api A") == Reply([], 0)
    assert place.command("get A.one", session=1234) == Reply([], 1)
    with place.open() as c:
        c.send("?\n")
        assert c.read_all() == b"!\n"
    session = place.login("chief", "c h")
    assert place.command("get A.one", session=session) == Reply(["A.one=1"], 0)
    assert place.command(f"logout {session}", session=session).code == 0
    assert a.get("A.one") == "1" and not a.path("/tmp/out").exists()
    assert a.command("get A").lines == ["A.one=1"]


def test_strangers_over_tcp(make):
    a = make("--trust-tcp=none")
    check_stranger(Place(a, "127.0.0.1"))
    assert a.logged("User chief login on local by 127.0.0.1")
    assert a.get("A.one") == "1"


@needs_root
def test_local_users(make):
    a = make()
    assert a.path("/var/run/qv/qvcd.sock").stat().st_mode & 0o777 == 0o666
    assert a.path("/var/run/qv").stat().st_mode & 0o777 == 0o755
    one, other, root = (Place(a, user=user) for user in (65534, 65533, None))
    check_stranger(one)
    assert root.is_root() and not other.is_root()
    mine, roots = one.login("chief", "c h", "10.0.0.7"), root.login("op", "oper", "10.0.0.7")
    assert [place.may_use(mine) for place in (one, other, root, Place(a, "127.0.0.1"))] == [True, False, True, True]
    assert [place.may_use(roots) for place in (one, other, root, Place(a, "127.0.0.1"))] == [False, False, True, True]
    a.restart("-c", tcp=True)
    assert one.is_root() and root.is_root()


@pytest.mark.parametrize(
    "option, trusted",
    [
        ([], "127.0.0.1 127.0.0.2 127.1.0.1"),
        (["--trust-tcp=10.0.0.0/8,127.0.0.2/32,::/0"], "127.0.0.2"),
        (["--trust-tcp=none"], ""),
        (["--trust-tcp=127.0.0.2/31", "-c"], "127.0.0.2"),
        (["--trust-tcp=none", "--trust-tcp=all"], "127.0.0.1 127.0.0.2 127.1.0.1"),
    ],
    ids=" ".join,
)
def test_trusted_sources(make, option, trusted):
    a = make(*option)
    found = [x for x in ("127.0.0.1", "127.0.0.2", "127.1.0.1") if Place(a, x).is_root()]
    assert found == trusted.split()
    assert Place(a).is_root()


@pytest.mark.parametrize(
    "option",
    ["--trust-tcp=", "--trust-tcp=none,loopback", "--connections=0", "--connections=1e3", "--waiting=", "--waiting=1025",
     "--session-idle=-1", "--session-idle=5 "],
)  # fmt: skip
def test_values_that_options_do_not_take(appliance, option):
    a = appliance()
    code, out, err = run_qvcd("-g", option, env={"QV_SYSROOT": str(a.root)})
    assert (code, out) == (1, "") and f"{option}:" in err
    assert not a.path("/var/run/qv").exists()


def test_wrong_passwords_hold_up_who_gives_them(make):
    a = make("--trust-tcp=none")
    guesser, other = Place(a, "127.0.0.5"), Place(a, "127.0.0.6")
    wrong = Reply(["##Invalid password#"], 1)
    for i in range(5):
        assert guesser.command(f"login op guess{i} 10.0.0.{i}") == wrong  # whoever he says he is
        assert guesser.command("login nobody guess") == Reply(["##Invalid user#"], 1)
    for words in ("op oper", "op guess", "nobody guess"):  # as for names that exist
        reply = guesser.command(f"login {words} 10.1.1.1")
        assert re.fullmatch(r"##Try again in \d+ s#", reply.lines[0]) and reply.code == 1
    # Nobody else, and nothing else of his, is slowed; not a thread waits.
    refused = [guesser.open() for _ in range(40)]
    for connection in refused:
        connection.send("e2e 0 0\nlogin op guess\n")
    for connection in refused:
        assert connection.read_lines(1).startswith(b"##Try again in ")
        connection.close()
    assert len(list(os.scandir(f"/proc/{a.process.pid}/task"))) < 12
    assert other.login("op", "oper") and guesser.login("chief", "c h") and a.login("op", "oper")
    # After the delay one may try again; a right password makes all good.
    delays = r"Logins of user op by 127\.0\.0\.5 have to wait for (\d+) s"
    wait_until(lambda: guesser.command("login op guess") == wrong, "the end of the first delay")
    assert re.findall(delays, a.log()) == ["1", "2"]
    wait_until(lambda: guesser.command("login op oper").code == 0, "the end of the second delay")
    for _ in range(4):
        assert guesser.command("login op guess") == wrong
    assert guesser.login("op", "oper")
    assert re.findall(delays, a.log()) == ["1", "2"]


def test_a_password_that_is_tried_two_ways_fails_once(make):
    a = make()
    for _ in range(4):
        assert a.command("login op 50%25+off") == Reply(["##Invalid password#"], 1)
    assert a.login("op", "oper")


def test_the_built_in_password_is_for_trusted_sources(make):
    a = make("--trust-tcp=none")
    far = Place(a, "127.0.0.1")
    assert far.command("login admin wrong") == Reply(["##Invalid password#"], 1)
    assert far.command("login admin kelpo") == Reply([BUILT_IN], 1)
    assert far.command("login door:admin kelpo") == Reply([BUILT_IN], 1)
    assert a.login("admin", "kelpo")
    a.command("user.passwd admin mine")
    session = far.login("admin", "mine")
    assert far.command("user.default admin", session=session) == Reply(["User.admin.passwd=kelpo"], 0)
    assert far.command("login admin kelpo") == Reply([BUILT_IN], 1)


# ---- Hashes ----


def passwords(a):
    """{user: what the user file holds}."""
    return dict(re.findall(r"^  (\w+) \{\n(?:    (?!passwd).*\n)*    passwd = (.*)$", a.read("/etc/user.conf"), re.M))


def crypt(password, setting):
    library = ctypes.CDLL(ctypes.util.find_library("crypt"))
    library.crypt.restype = ctypes.c_char_p
    return library.crypt(password.encode(), setting.encode()).decode()


def is_hash(text, password):
    return text.startswith("$y$") and crypt(password, text) == text


def test_hashes_in_the_user_file(make):
    a = make("--hash-passwords")
    assert passwords(a) == {"admin": "kelpo", "chief": "c h", "op": "oper"}
    session = a.login("chief", "c h")
    kept = passwords(a)
    assert is_hash(kept["chief"], "c h") and kept["op"] == "oper"
    assert a.path("/etc/user.conf").stat().st_mode & 0o777 == 0o600
    assert a.login("chief", "c h") == session
    assert a.command("login chief " + escape(kept["chief"])).code == 1  # no hash is a password
    assert f"User.chief.passwd={kept['chief']}" in a.command("user.list").lines
    assert a.command("user.passwd op n%20w") == Reply(["User.op.passwd=n w"], 0)
    assert is_hash(passwords(a)["op"], "n w")
    a.login("admin", "kelpo")
    assert "kelpo" not in a.read("/etc/user.conf")
    default = a.command("user.default admin").lines[0].removeprefix("User.admin.passwd=")
    assert is_hash(default, "kelpo") and passwords(a)["admin"] == default
    # Out and in again: the hashes come back as they were.
    kept = passwords(a)
    assert a.command("user.export /tmp/users") == Reply([], 0)
    a.command("user.passwd chief changed")
    assert a.command("user.import /tmp/users") == Reply([], 0)
    assert passwords(a) == kept
    a.restart(tcp=True)  # without the option they go on to be hashes
    assert a.login("chief", "c h") and a.login("admin", "kelpo")


def test_hashing_holds_up_nobody(make):
    """A hash of a third of a second, twice at once; who asks for something else is answered many times meanwhile."""
    slow = crypt("oper", "$y$jBT$GM4prPBUphsV/HOfKLuB5/")
    a = make(users=USERS.replace("passwd = oper", f"passwd = {slow}"))
    codes = []
    threads = [threading.Thread(target=lambda w=w: codes.append(a.command(f"login op {w}").code)) for w in ("oper", "no")]
    for thread in threads:
        thread.start()
    answered = 0
    while any(thread.is_alive() for thread in threads):
        assert a.get("A.one") == "1"
        answered += 1
    assert sorted(codes) == [0, 1]
    assert answered > 8


def test_guesses_that_come_at_once_do_not_pass_by_the_delay(make):
    a = make(users=USERS.replace("passwd = oper", f"passwd = {crypt('oper', '$y$j9T$LRAPkFTCwSSeQJaFbqWZB1')}"))
    guesses = [a.connect(greeting=f"e2e 0 0\nlogin op guess{i}\n") for i in range(12)]
    answers = sorted(c.read_lines(1) for c in guesses)
    assert answers.count(b"##Invalid password#\n") in (5, 6)  # a slow machine may be past the first second
    assert all(x.startswith((b"##Invalid password#", b"##Try again in ")) for x in answers)


def test_a_user_who_changes_while_his_password_is_hashed(make):
    """What is stored in the end decides; a user who went does not come back."""
    slow = crypt("oper", "$y$jBT$GM4prPBUphsV/HOfKLuB5/")
    a = make(users=USERS.replace("passwd = oper", f"passwd = {slow}"))
    for change, refusal in {
        "user.passwd op new": "##Invalid password#",
        "user.rem op": "##Invalid user#",
    }.items():
        a.write("/tmp/op", f"User.op.group = 2\nUser.op.passwd = {slow}\n")
        assert a.command("user.import /tmp/op") == Reply([], 0)
        with a.connect(greeting="e2e 0 0\nlogin op oper\n") as c:
            assert a.command("help").code == 0
            a.command(change)
            first = c.read_lines(1).decode().strip()
        # It may have been done before the change came.
        assert first == refusal or first.startswith("Session="), change
    assert a.command("login op oper").lines == ["##Invalid user#"]
    assert "op" not in passwords(a)


# ---- The unit ----


def test_the_unit_starts_the_daemon_as_documented(make):
    words = re.search(r"^ExecStart=/usr/sbin/qvcd (.*)$", UNIT.read_text(), re.M)[1].split()
    options = [word for word in words if word.startswith("--")]
    assert sorted(options) == ["--hash-passwords", "--trust-tcp=none"]
    a = make(*options)
    assert not Place(a, "127.0.0.1").is_root()


@pytest.mark.skipif(not shutil.which("systemd-analyze"), reason="systemd-analyze is not installed")
def test_exposure_of_the_unit():
    done = subprocess.run(
        ["systemd-analyze", "security", "--offline=true", "--no-pager", UNIT], capture_output=True, text=True, timeout=60
    )
    found = re.search(r"Overall exposure level for qvcd\.service: (\d+\.\d+)", done.stdout)
    assert found and float(found[1]) <= 5.0, done.stdout + done.stderr
