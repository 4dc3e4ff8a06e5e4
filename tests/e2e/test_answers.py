"""What qvc makes of the daemon's answers: for a person who errs, on a terminal, and for programs."""

import fcntl
import json
import pathlib
import re
import struct
import subprocess
import termios

import pytest

from appliance import QVC, metadata, user_file, wait_until
from terminal import Terminal

META = metadata("""
A: perm = 7777; help = Things of A
A.port: attr = port; type = integer_range 1 99; default = 1; apply = initd_restart web; help = Where the web server listens
A.mode: attr = mode; type = string_set off on auto; default = off; apply = initd_restart web
A.name: attr = name; type = string_length 0 9; default = x; desc = Shown in the browser's title
A.on: attr = on; type = boolean; default = 0
B.port: attr = port; perm = 7777; type = portnumber; default = 22
B.gain: attr = gain; perm = 7777; type = float_range -1 1; default = 0.5; apply = syscall_delay 0 $QV_SYSROOT/late
B.key: attr = key; perm = 7777; type = password; default = secret
C.only: attr = only; perm = 7700; type = string; default = c
""")
WEB = "#!/bin/sh\n[ -e $QV_SYSROOT/broken ] || exit 0\nfor i in 1 2 3 4 5 6 7; do echo line $i >&2; done; exit 4\n"
USERS = user_file({0: "7777", 1: "0777", 2: "0077"}, {"admin": (1, "a"), "olga": (2, "o")})


@pytest.fixture
def a(appliance):
    return appliance(META, {"/etc/init.d/web": (WEB, 0o755), "/late": ("#!/bin/sh\necho late >&2; exit 3\n", 0o755),
                              "/etc/user.conf": USERS}).start()


def qvc(a, *words, stdin="", **env):
    done = subprocess.run([QVC, *words], env=a.environment(**env), input=stdin, capture_output=True, text=True)
    return done.returncode, done.stdout, done.stderr


def test_who_errs_is_told_what_would_have_been_right(a):
    for words, status, said in [
        ("sett A.port=5", 2, "unknown command 'sett' (did you mean set, seta or setn?)"),
        ("frobnicate", 2, "unknown command 'frobnicate'"),
        ("user.bogus", 2, "unknown command 'user.bogus' (there are user.list, user.add"),
        ("user lits", 2, "unknown command 'user.lits' (did you mean user.list?)"),
        ("set A.port=100", 1, "A.port takes 1 to 99"),
        ("set A.mode=of", 1, "A.mode takes one of off, on, auto"),
        ("set A.name=much_too_long", 1, "A.name takes up to 9 characters"),
        ("commit A.mode=of", 1, "A.mode takes one of off, on, auto"),
        ("get A.prot", 1, "there is no A.prot (did you mean A.port?)"),
        ("help k", 1, "no help on this\n"),
        ("get a.name,A.port", 1, "there is no a.name (did you mean A.name?)"),
        ("-s 4711 get A", 1, "there is no session 4711"),
        ("help aplly", 1, "no help on this (did you mean apply?)"),
        ("help A.prot", 1, "no help on this (did you mean A.port?)"),
        ("get Z.*", 2, "no name matches 'Z.*'"),
        ("set", 2, "set needs NAME=VALUE\n"),
        ("set A.port=1 A.mode", 2, "set needs NAME=VALUE, and 'A.mode' is none"),
        ("set A=1", 1, "A is a group of settings"),
        ("find no such", 1, "no name, help or description holds 'no' and 'such'"),
        ("version x", 2, "version takes no arguments"),
        ("rollback", 1, "it is used so: rollback [-n]"),
        ("delete A.x", 1, "the daemon refuses delete and does not say why"),
        ("user.rem olgga", 0, "there is no user olgga (did you mean olga?)"),
        ("user.mod olga 9", 0, "there is no group 9 (there are 0, 1, 2)"),
        ("profile.load x", 1, "there is no profile x (there is default)"),
    ]:
        code, out, err = qvc(a, *words.split())
        assert (code, said in err) == (status, True), (words, code, err)
        assert status != 2 or (out == "" and "bogus" not in a.log() and "sett" not in a.log())
    assert qvc(a, stdin="get A.port\nuser.bogus\n")[:2] == (2, "A.port=1\n")
    assert '"| match" is for the prompt' in qvc(a, stdin="get A | match port\n")[2]
    olga = a.login("olga", "o")
    assert f"session {olga} has not the right" in qvc(a, "-s", str(olga), "set", "C.only=d")[2]
    assert "it is for administrators" in qvc(a, "-s", str(olga), "user.list")[2]
    assert qvc(a, "-s", str(olga), stdin="user.list\n")[0] == 1
    assert qvc(a, "get", "A.port") == (0, "A.port=1\n", "")
    assert qvc(a, "-q", "set", "A.port=100") == (1, "", "A.port=##Invalid integer range#: 100\n")


def test_an_action_that_failed_says_why(a):
    output = [f"line {i}" for i in range(1, 6)]
    failure = "A.port: initd_restart web: exit status 4"
    lines = "".join(f"    {line}\n" for line in output)
    a.write("/broken", "")
    assert qvc(a, "set", "A.port=2")[0] == 0
    assert qvc(a, "apply", "A") == (0, "A.port=2\nA.port=##Apply failed#\n", f"qvc: {failure}\n{lines}")
    logged = a.log().splitlines()
    at = logged.index("  initd_restart web: exit status 4")
    assert logged[at - 1:at + 6] == ["Can not apply A.port", logged[at], *(f"    {line}" for line in output)]
    status, out, err = qvc(a, "commit", "A.port=3")
    assert status == 1 and f"apply: initd_restart web: exit status 4\n{lines}" in out and err == ""
    assert json.loads(qvc(a, "--json", "commit", "A.port=3")[1])["actions"] == [
        {"action": "initd_restart web", "status": 4 << 8, "output": output}]
    # The newest is the last one.
    kept = json.loads(qvc(a, "--json", "failures", "A")[1])["failures"]
    assert kept[-1]["names"] == ["A.port"] and kept[-1]["output"] == output
    assert qvc(a, "version")[1].splitlines()[-1].endswith(failure)
    assert qvc(a, "update", "B.gain=1")[0] == 0  # of what runs later, too
    wait_until(lambda: qvc(a, "failures", "B")[1], "the failure")
    assert re.fullmatch(r"\S+ B.gain: syscall_delay 0 \$QV_SYSROOT/late: exit status 3\n    late\n", qvc(a, "failures", "B")[1])


def test_answers_for_programs(a):
    assert qvc(a, "set", "A.port=7", "A.on=1")[0] == 0
    status, out, _ = qvc(a, "--json", "get", "A", "B", "A.prot")
    assert (status, json.loads(out)) == (1, {
        "command": "get", "result": 1,
        "values": {"A.port": 7, "A.mode": "off", "A.name": "x", "A.on": True, "B.port": 22, "B.gain": 0.5, "B.key": "*******"},
        "errors": [{"name": "A.prot", "error": "Parameter not found"}]})
    assert json.loads(qvc(a, "--json", "set", "A.on=0")[1])["values"] == {"A.on": False}
    assert json.loads(qvc(a, "--json", "help", "get")[1])["text"][0] == "NAME"
    values = json.loads(qvc(a, "--json", "introspect", "A.port", "B.gain", "A.on")[1])["values"]
    assert [values[name] for name in ("A.port.default", "A.port.max", "B.gain.min", "A.on.default", "A.port.type")] == [
        1, 99, -1.0, False, "integer_range 1 99"]
    session = json.loads(qvc(a, "--json", "login", "olga", "o")[1])["values"]["Session"]
    fields = json.loads(qvc(a, "--json", "get_session", str(session))[1])["values"]
    assert (fields["session"], fields["group"]) == (session, 2) and a.command(f"logout {session}").code == 0
    for words in ("get A", "plan", "version", "tree", "find A", "user.list"):  # an answer of no line is one, too
        status, out, err = qvc(a, "--json", "-s", str(session), *words.split())
        assert status == 1 and "there is no session" in json.loads(out)["errors"][0]["error"] and err == "", words
    each = [json.loads(line) for line in qvc(a, "--json", stdin="get A.port\nset A.mode=x\n")[1].splitlines()]
    assert [one["command"] for one in each] == ["get", "set"] and each[1]["errors"][0]["name"] == "A.mode"
    assert qvc(a, "-v", "get", "A.port", "A.mode") == (0, "7\noff\n", "")
    assert qvc(a, "-q", "get", "A") == (0, "", "")
    assert qvc(a, "-e", "help", "apply")[0] == 0  # it tells of errors, and is none
    lost = ("user.passwd", "nobody", "x")
    assert [qvc(a, *e, *lost)[0] for e in ([], ["-e"])] == [0, 1]
    # Names by pattern, in names and assignments.
    assert qvc(a, "get", "*.port")[1] == "A.port=7\nB.port=22\n"
    assert qvc(a, "get", "?.[km]*")[1] == "A.mode=off\nB.key=*******\n"
    assert qvc(a, "plan", "*.port=9")[1].splitlines()[:2] == ["A.port=1 -> 9", "B.port=22 -> 9"]
    assert qvc(a, "find", "BROWSER")[1].split() == ["A.name"]
    assert qvc(a, "find", "web", "listens")[1] == "A.port  Where the web server listens\n"
    marks = {one["name"]: (one["value"], one["modified"], one["unapplied"], one.get("default"))
             for one in json.loads(qvc(a, "--json", "tree", "A")[1])["settings"]}
    assert marks["A.port"] == (7, True, True, 1) and marks["A.on"] == (False, True, False, None)
    known = json.loads(qvc(a, "--json", "version")[1])["daemon"]
    assert known["settings"] == 8 and known["modified"] == 2 and known["model"] == ["/usr/share/qvapi/apimeta.hdf"]


def test_a_person_at_a_terminal(a):
    a.write("/pager", "#!/bin/sh\nsed 's/^/paged /'\n", 0o755)
    qvc(a, "set", "A.port=7")
    with Terminal([QVC], a.environment(PAGER=str(a.path("/pager")), QVC_SESSION="0")) as terminal:
        fcntl.ioctl(terminal.keys, termios.TIOCSWINSZ, struct.pack("HHHH", 6, 80, 0, 0))
        terminal.wait_for("> ")
        terminal.press("get B\r")
        terminal.wait_for("\nB.port  22\nB.gain  0.5\nB.key   *******\n")
        terminal.press("save B\r")
        terminal.wait_for("(nothing)")
        terminal.press("get A.prot\r")
        terminal.wait_for("A.prot=\033[31m##Parameter not found#\033[0m")
        terminal.wait_for("did you mean A.port?")
        terminal.press("tree\r")
        terminal.wait_for("paged A\npaged   port  7  \033[1m[modified, unapplied, default 1]\033[0m\n")
        terminal.press("diff default A\r")
        terminal.wait_for("\nA.port=\033[31m1\033[0m -> \033[32m7")
        terminal.press("plan A.port=1 A.mode=on A.name=y A.on=1 B.port=2 B.gain=1\r")
        terminal.wait_for("paged B.port=")


def test_settings_are_edited_until_they_are_right(a):
    a.write("/editor", """#!/bin/sh
        n=$(ls "$QV_SYSROOT"/seen* 2>/dev/null | wc -l); cp "$1" "$QV_SYSROOT/seen$n"; [ "$(stat -c %a "$1")" = 600 ] || exit 1
        case $n in
            0) sed -i 's/^A.port=1/A.port=500/; s/^A.name=x/A.name=y z/; /^A.mode/d' "$1"; echo A.bogus=1 >>"$1" ;;
            1) sed -i 's/^A.port=500/A.port=50/; /bogus/d' "$1" ;;
            2) sed -i 's/^A.port=50$/A.port=0/' "$1" ;;
            4) : >"$1" ;;
            5) sed -i 's/^A.port=50$/A.port=51/' "$1"; mv "$QV_SYSROOT/var/run/qv/qvcd.sock" "$QV_SYSROOT/away" ;;
            6) mv "$QV_SYSROOT/away" "$QV_SYSROOT/var/run/qv/qvcd.sock"; echo >>"$1" ;;
        esac""", 0o755)
    edit = {"EDITOR": str(a.path("/editor")), "VISUAL": "", "TMPDIR": str(a.path("/tmp"))}
    assert qvc(a, "edit", "A", **edit) == (0, "A.name=y z\nA.port=50\n", "")
    assert re.search(r"\nA.port=500\n# refused: Invalid integer range; it takes 1 to 99\nA.mode=off\nA.name=y z\nA.on=0\n"
                     r"A.bogus=1\n# refused: .*\n$", a.read("/seen1"))
    status, out, err = qvc(a, "edit", "A.port", **edit)
    assert (status, out) == (1, "") and err.startswith("qvc: A.port is not changed: Invalid integer range")
    assert qvc(a, "edit", "A.port", **edit) == (1, "", "") and a.get("A.port") == "50"
    # What was typed outlives a daemon that is away for a while.
    assert qvc(a, "edit", "A.port", **edit) == (0, "A.port=51\n", "")
    assert "\nA.port=51\n# refused: cannot reach the daemon" in a.read("/seen6")
    for editor in ("false", "truncate -s 5000000"):  # a text that grows would be asked for again without an end
        assert qvc(a, "edit", "A", EDITOR=editor, VISUAL="")[0] == 2
    # Who ends it, ends the editor, and no text is left.
    a.write("/editor", '#!/bin/sh\necho $$ >>"$QV_SYSROOT/started"\nexec sleep 60\n', 0o755)
    for number, where in enumerate(("tmp", "run"), 1):
        mine = {"XDG_RUNTIME_DIR": str(a.path("/run"))} if where == "run" else {}
        a.path("/run").mkdir(exist_ok=True)
        edited = subprocess.Popen([QVC, "edit", "A"], env=a.environment(**edit, **mine), stderr=subprocess.DEVNULL)
        wait_until(lambda: a.path("/started").exists() and len(a.read("/started").split()) == number, "the editor")
        assert len(list(a.path(f"/{where}").rglob("qvc-edit*"))) == 1
        edited.terminate()
        assert edited.wait() == 1 and not pathlib.Path(f"/proc/{a.read('/started').split()[-1]}").exists()
    assert not list(a.path("/tmp").glob("qvc-edit*")) + list(a.path("/run").rglob("qvc-edit*"))
