"""Documents over the connection: backup and restore from the client's machine, and what hostile ones send."""

import json
import signal
import subprocess

import pytest

from appliance import PATIENCE, QVC, Reply, metadata, user_file, wait_until
from terminal import Terminal

META = metadata("""
A: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/a.conf; apply = no_apply
A.port: attr = port; type = portnumber; default = 80
A.text: attr = text; default = plain
A.key: attr = key; type = password 1 64; default = hush
A.top: attr = top; default = t; perm = 7000
System: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/s.conf; apply = no_apply
System.Configuration.Profiles.current: attr = current; default = default
""")
USERS = user_file({0: 7777, 1: 777, 2: 77, 3: 4}, {"admin": (1, "kelpo"), "op": (2, "oper"), "guest": (3, "look")})
PRESET = "Config.name=one\nA.port=10\nA.text << EOM\nends with a blank \nEOM\n"
FORBIDDEN = "##Invalid permission#"
MOST = 4 << 20


@pytest.fixture
def a(appliance):
    files = {"presets/template": "A.port\nA.text\n", "presets/preset.conf": "Preset.current=1", "presets/preset1": PRESET}
    files = {f"/etc/{name}": text for name, text in files.items()}
    return appliance(META, {"/etc/user.conf": (USERS, 0o600), **files}).start(tcp=True)


def qvc(a, *words, stdin=None, tcp=False):
    """(exit code, stdout, stderr), with bytes at standard input through a pipe, else /dev/null."""
    where = ["-H", f"127.0.0.1:{a.tcp.port}"] if tcp else []
    source = {"input": stdin} if stdin is not None else {"stdin": subprocess.DEVNULL}
    done = subprocess.run([QVC, *where, *words], env=a.environment(), capture_output=True, timeout=PATIENCE, **source)
    return done.returncode, done.stdout, done.stderr.decode()


def sent(document, *lines):
    """A request that brings a document for the lines."""
    document = document.encode() if isinstance(document, str) else document
    return [b"document %d" % len(document) + b"\n" + document, *lines]


@pytest.mark.parametrize("tcp", [False, True])
def test_backup_and_restore_from_here(a, tmp_path, tcp):
    a.command("set A.port=81 A.text=one%20%23two%25")
    code, settings, _ = qvc(a, "export", tcp=tcp)
    assert code == 0 and b"port = 81" in settings and b"key" not in settings
    assert qvc(a, "export", "A.key", "A.port", "Nowhere", tcp=tcp) == (
        1, b"A {\n  port = 81\n}\n", "qvc: Nowhere=##Parameter not found#\n")  # fmt: skip
    assert qvc(a, "export", "-l", tmp_path / "all", "2", "A", tcp=tcp) == (0, b"", "")
    assert "key = hush" in (tmp_path / "all").read_text() and (tmp_path / "all").stat().st_mode & 0o777 == 0o600
    # For programs, documents and refusals are JSON, too.
    assert json.loads(qvc(a, "--json", "export", "A.port", tcp=tcp)[1])["tree"] == {"A": {"port": "81"}}
    assert json.loads(qvc(a, "--json", "import", "-", stdin=b"A {{", tcp=tcp)[1])["errors"][0]["error"] == "Import failed"
    presets = qvc(a, "preset.export", tcp=tcp)[1]
    assert b"ends with a blank \n" in presets
    assert qvc(a, "profile.save", "night", tcp=tcp)[0] == 0
    profile = qvc(a, "profile.export", "night", tcp=tcp)[1]
    assert b"port = 81" in profile
    users = qvc(a, "user", "export", "-", tcp=tcp)[1]
    assert b"kelpo" in users

    a.command("set A.port=1 A.text=x A.key=other")
    a.command("preset.store 1")
    for command in ("profile.remove night", "user.rem op"):
        a.command(command)
    assert qvc(a, "import", stdin=settings, tcp=tcp)[0] == 0
    assert [a.get(name) for name in ("A.port", "A.text", "A.key")] == ["81", "one #two%", "*******"]
    assert qvc(a, "import", "-l", tmp_path / "all", "1", tcp=tcp)[0] == 0
    assert "key = hush" in qvc(a, "export", "-", "2")[1].decode()
    assert qvc(a, "preset", "import", "-", stdin=presets, tcp=tcp) == (0, b"", "")
    assert a.command("preset.load 1").lines == ["A.port=10", "A.text=ends with a blank "]
    assert qvc(a, "profile.import", "day", stdin=profile + b"Nowhere = 1\n", tcp=tcp)[:2] == (
        0, b"Nowhere=##Parameter not found#\nProfile.day.name=day\n")  # fmt: skip
    assert "port = 81" in a.read("/etc/profiles/day.hdf")
    a.path("/etc/profiles/day.hdf").rename(a.path("/etc/profiles/a day.hdf"))
    assert qvc(a, "profile.import", "a%20day", stdin=b"A.port = 82\n", tcp=tcp)[:2] == (0, b"Profile.a day.name=a day\n")
    assert b"port = 82" in qvc(a, "profile.export", "a day", tcp=tcp)[1]
    assert qvc(a, "user.import", stdin=users, tcp=tcp) == (0, b"", "")
    assert a.login("op", "oper")

    # What is no path of the daemon's is not taken for one; without a pipe the old meaning holds.
    code, _, message = qvc(a, "import", "backup.hdf", tcp=tcp)
    assert code == 2 and "-l backup.hdf" in message
    code, said, message = qvc(a, "import", tcp=tcp)
    assert (code, said) == (1, b"##Import failed#\n") and "say: import -l FILE; without one the daemon reads" in message
    assert qvc(a, "export", "/tmp/there", tcp=tcp)[0] == 0 and a.path("/tmp/there").exists()
    assert qvc(a, "import", stdin=b"\n", tcp=tcp)[0] == 2
    code, said, _ = qvc(a, "import", stdin=b"A {\n", tcp=tcp)
    assert code == 1 and said.startswith(b"##Import failed#: line 1: ")


def test_who_may_send_a_document_and_what_becomes_of_it(a):
    guest, operator = a.login("guest", "look"), a.login("op", "oper")
    document = "A.port = 99\nA.top = x\n"
    # The lines of a document that is not taken must not be run.
    trap = sent("\nset A.port=1\n" * 3, "import -")
    assert a.talk(trap, session=guest) == FORBIDDEN.encode() + b"\n@\n1\n"
    assert a.talk(sent(document, "import -"), session=operator) == b"Document=22\nA.port=99\n@\n0\n"
    for command in ("user.import -", "preset.import -", "profile.import p -", "user.export -"):
        assert a.talk(sent("User.x.group = 1\n", command), session=operator) == b"Document=17\n@\n0\n", command
    assert a.command("user.export -", a.login("admin", "kelpo")).lines[0] == "Group {"
    # It is there for one command line.
    lines = sent(document, "get A.port", "import -", *sent(document, "# a remark", "import -"))
    assert a.talk(lines).count(b"##No document was sent#") == 2
    a.command("set A.port=80")
    refused = (b"x", b"", b"-1", b"1 2", b"+1", b"%d" % (MOST + 1), b"99999999999999999999999")
    for length in refused:
        reply = a.talk([b"document " + length, "set A.port=1", "A.port = 1"])
        assert reply.startswith(b"##") and reply.endswith(b"#\n@\n1\n") and reply.count(b"\n") == 3, length
    for wrong in (b"document 4\nA.port = 1", b"document 40\nA.port = 1\nset A.port=1\n"):
        assert a.talk([wrong, "import -"]).endswith(b"\n@\n1\n")
    for half in (b"e2e 0 1\ndocument 100\nA.port", b"e2e 0 1\ndocument 4194304\n" + b"x" * 100000):
        assert a.exchange(half).endswith(b"@\n1\n")
        with a.open(tcp=True) as c:
            c.send(half)
            c.vanish()
    for bad in ("A.port = 1\nA {\n", "A.port = 1\n}\n", "A.port = 1\n#include \"/etc/a.conf\"\n",
                "A.port = 1\n\0", "{\n" * 70, "", "a." * 500 + " = 1\n", "x" * MOST):  # fmt: skip
        assert b"\n##Import failed#: " in a.talk(sent(bad, "import -")), bad[:40]
    assert a.get("A.port") == "80"
    most = b"# " + b"x" * (MOST - 15) + b"\nA.port = 77\n"
    assert len(most) == MOST and a.talk(sent(most, "import -"), tcp=True).endswith(b"A.port=77\n@\n0\n")
    wait_until(lambda: a.answers(tcp=True), "an answer")


def test_many_half_lines_do_not_cut_a_document_off(a):
    a.restart("--trust-tcp=192.0.2.1", tcp=True)
    guest = a.login("guest", "look", tcp=True)
    for _ in range(64):  # all that one address may have, and all together as much as is held
        a.connect(tcp=True, greeting=b"x %d 0\n" % guest + b"l" * ((1 << 20) - 15))
    large = b"# " + b"x" * (3 << 20) + b"\nA.port = 66\n"
    assert a.talk(sent(large, "import -")).endswith(b"A.port=66\n@\n0\n")


def test_who_is_not_logged_in_says_no_long_lines(a):
    a.restart("--trust-tcp=192.0.2.1", tcp=True)
    assert a.exchange(b"x 0 0\n" + b"l" * 8192 + b"\nlogin op oper\n", tcp=True) == b"@\n1\n"
    longest = b"%41" * 1023
    assert a.talk([b"login " + longest + b" " + longest], tcp=True).startswith(b"##Invalid ")


def test_two_imports_at_once(a):
    a.restart("--hash-passwords", tcp=True)
    users = "".join(f"User.u{n}.group = 3\nUser.u{n}.passwd = secret\n" for n in range(30))
    first = a.connect(greeting=b"e2e 0 1\n" + b"\n".join(sent(users, b"user.import -")) + b"\n\n")
    wait_until(lambda: "cmd: [user]" in a.log(), "the first import")
    assert b"\n##Another import is running#\n@\n1\n" in a.talk(sent("A.port = 99\n", "import -"))
    assert first.read_all() == b"Document=%d\n@\n0\n" % len(users)
    assert a.command("login u29 secret").code == 0
    assert Reply(["Document=12", "A.port=98"], 0) == a.command(b"\n".join(sent("A.port = 98\n", b"import -")))


def test_a_person_sees_how_far_it_is(a, tmp_path):
    (tmp_path / "in").write_text("A.port = 55\n")
    a.process.send_signal(signal.SIGSTOP)
    with Terminal([QVC, "import", "-l", tmp_path / "in"], a.environment()) as terminal:
        terminal.wait_for("\r\033[Kwaiting for the answer, 1 s")
        a.process.send_signal(signal.SIGCONT)
        assert terminal.wait() == 0 and terminal.screen.endswith(" s\r\033[KA.port=55\n")
