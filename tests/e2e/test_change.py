"""The life of a change: set, save, apply, revert, defaults, and what may go on at the same time."""

import concurrent.futures
import re
import subprocess

import pytest

from appliance import WAIT_FOR_GO, Reply, escape, metadata, wait_until

NOT_FOUND = "##Parameter not found#"

NOTE = '#!/bin/sh\necho "$*" >>"$QV_SYSROOT/notes"\n'

META = metadata("""
Web: perm = 7774; read = kv_rfunc; write = kv_wfunc; file = /etc/web.conf; shadow = /etc/shadow.d/web.conf
Web: apply = initd_restart web
Web.port: attr = port; type = portnumber; default = 80
Web.title: attr = title; type = blank,string_length 1 200; default =
Web.free: attr = free
Plain: perm = 7774; read = kv_rfunc; write = kv_wfunc; file = /etc/plain.conf
Plain.size: attr = size; type = integer_range 1 10; default = 5
Plain.secret: attr = secret; type = password 1 64; default = initial
Plain.follower: attr = follower; type = integer; default = 1
Plain.leader: attr = leader; default = 1; link = Plain.follower
Odd: perm = 7777
Odd.unreadable: read = no_rfunc; write = kv_wfunc; file = /etc/unreadable.conf; attr = x; default = 1
Live: perm = 7777; dynamic = true; apply = no_apply
Live.light: read = kv_rfunc; write = io_wfunc; file = /sys/light; attr =; type = integer_range 0 255
Live.gone: read = kv_rfunc; write = io_wfunc; file = /sys/gone; attr =
""")
FILES = {
    "/etc/web.conf": "# The web server.\nport = 80\n#title=commented\nother: kept\n",
    "/etc/plain.conf": "size=5\n",
    "/etc/shadow.d/web.conf": "",
    "/etc/init.d/web": ('#!/bin/sh\necho "web $1" >>"$QV_SYSROOT/notes"\n', 0o755),
    "/usr/share/qvcontrol/post_revert_script": ('#!/bin/sh\necho "reverted $*" >>"$QV_SYSROOT/notes"\n', 0o755),
    "/sys/light": "7\n",
    "/etc/user.conf": "Group.2.perm = 77\nGroup.3.perm = 4\nUser.op.group = 2\nUser.op.passwd = op\n"
    "User.view.group = 3\nUser.view.passwd = view\nGroup.1.perm = 777\nUser.admin.group = 1\nUser.admin.passwd = kelpo\n",
}


@pytest.fixture
def a(appliance):
    return appliance(META, FILES).start()


def notes(a):
    return a.read_or_empty("/notes").splitlines()


# ---- One change ----


def test_life_of_one_change_on_the_shipped_appliance(appliance):
    a = appliance(shipped=True).start()
    events = a.subscribe()
    name = "Services.HTTP.port"
    file, shadow = "/etc/httpd.conf", "/etc/shadow.d/httpd.conf"
    old = a.read(file)
    assert "port=80\n" in old

    assert a.command(f"set {name}=8088") == Reply([f"{name}=8088"], 0)
    assert a.get(name) == "8088" and a.read(file) == old
    assert a.command("checkmod") == a.command("checkapp") == Reply([f"{name}=8088"], 0)

    assert a.command("save") == Reply([f"{name}=8088"], 0)
    assert a.read(file) == a.read(shadow) == old.replace("port=80\n", "port=8088\n")
    assert a.command("checkmod") == Reply([], 0)
    assert a.command("checkapp") == Reply([f"{name}=8088"], 0)

    assert a.read_or_empty("/var/log/services.log") == ""
    assert a.command("apply") == Reply([f"{name}=8088"], 0)
    assert a.read("/var/log/services.log") == "httpd restart 8088\n"
    assert a.command("checkapp") == a.command("apply") == a.command("save") == Reply([], 0)

    events.wait_for("apply", f"{name}=8088")
    assert events.seen() == [(event, f"{name}=8088") for event in ("set", "save", "apply")]
    for line in ("Set", "Save", "Apply"):
        assert a.logged(f"{line} {name}=8088")
    a.restart()
    assert a.get(name) == "8088"


# Flags after a change with each command: (modified, unapplied).
@pytest.mark.parametrize(
    "command, flags",
    [("set", (True, True)), ("sets", (True, False)), ("seta", (False, True)), ("setn", (False, True))],
)
def test_flags_of_the_set_commands(a, command, flags):
    assert a.command(f"{command} Web.port=81") == Reply(["Web.port=81"], 0)
    assert a.command(f"{command} Plain.size=6") == Reply(["Plain.size=6"], 0)  # it has nothing to apply
    lines = ["Web.port=81", "Plain.size=6"]
    assert a.command("checkmod").lines == (lines if flags[0] else [])
    assert a.command("checkapp").lines == (lines[:1] if flags[1] else [])
    assert a.command("checkapp Plain").lines == a.command("checkmod Odd").lines == []
    assert a.command("checkmod Nowhere") == Reply([f"Nowhere={NOT_FOUND}"], 0)
    if flags[0]:
        assert "Web.port.mod=1" in a.command("meta.get Web.port").lines


def test_sets_that_change_nothing(a):
    refusals = {
        "Web.port": "Web.port=##Invalid format#",
        "=1": f"={NOT_FOUND}",
        "Web=1": f"Web={NOT_FOUND}",
        "Web.port.attr=1": f"Web.port.attr={NOT_FOUND}",
        "Plain.size=0": "Plain.size=##Invalid integer range#: 0",
        "Web.free=a%00b": "Web.free=##Invalid character#",
        "Web.free=x%0Aport=1": "Web.free=##Invalid character#",
        "Web.free=" + 342 * "%E2%82%AC": "Web.free=##Invalid string length, too long#",
    }
    for argument, line in refusals.items():
        assert a.command(f"set {argument}") == Reply([line], 1)
    assert a.command("set " + " ".join(refusals)) == Reply(list(refusals.values()), 1)
    assert a.command("set") == a.command("set Web.port=80") == Reply([], 0)
    assert a.command("checkmod") == a.command("checkapp") == Reply([], 0)


def test_values_are_decoded_and_come_back_from_the_file(a):
    values = {"a%20b%2Cc+d": "a b,c d", "%4x%zz%": "%4x%zz%", "a=b==c": "a=b==c", "%C3%A4": "ä", "": ""}
    for sent, value in values.items():
        assert a.command(f"set Web.free={sent}") == Reply([f"Web.free={value}"], 0)
        assert a.command("save Web").code == 0
        assert f"\nfree={value}\n" in a.read("/etc/web.conf")
        a.restart()
        assert a.get("Web.free") == value


def test_permissions(a):
    operator, viewer = a.login("op", "op"), a.login("view", "view")
    refused = ["Web.port=##Invalid permission#"]
    assert a.command("set Web.port=81", viewer) == Reply(refused, 1)
    assert a.command("set Web.port=81", operator) == Reply(["Web.port=81"], 0)
    assert a.command("save Web.port", viewer) == Reply([], 0)
    assert a.command("apply Web.port", viewer) == Reply([], 1)
    assert a.command("apply Web", viewer) == Reply([], 0)
    assert a.command("revert Web.port", viewer) == Reply([], 1)
    assert a.command("default Web.port", viewer) == Reply([], 1)
    assert a.command("default Web", viewer) == Reply([], 0)
    assert a.command("checkmod", viewer) == a.command("checkapp", viewer) == Reply(["Web.port=81"], 0)
    assert "port = 80\n" in a.read("/etc/web.conf") and notes(a) == []
    assert a.command("save Web.port", operator) == a.command("apply Web.port", operator) == Reply(["Web.port=81"], 0)


def test_live_values_are_written_at_once(a):
    assert a.get("Live.light") == "7"
    assert a.command("set Live.light=9") == Reply(["Live.light=9"], 0)
    assert a.read("/sys/light") == "9\n"
    a.write("/sys/light", "1\n")
    assert a.command("set Live.light=9") == Reply(["Live.light=9"], 0)  # though the tree holds 9
    assert a.read("/sys/light") == "9\n"
    assert a.command("set Live.light=256").code == 1 and a.read("/sys/light") == "9\n"
    assert a.command("set Live.gone=1") == Reply(["Live.gone=1"], 0)  # a missing device is no error
    assert not a.path("/sys/gone").exists()
    assert a.command("checkmod") == a.command("checkapp") == Reply([], 0)


def test_linked_api_follows(a):
    assert a.command("set Plain.leader=no-number") == Reply(["Plain.leader=no-number"], 0)
    assert a.get("Plain.follower") == "no-number"
    assert a.command("checkmod").lines == ["Plain.leader=no-number"]
    assert a.command("revert Plain.leader") == Reply(["Plain.leader=1"], 0)
    assert a.get("Plain.leader") == a.get("Plain.follower") == "1"
    a.command("update Plain.leader=2")
    assert a.command("default Plain.leader") == Reply(["Plain.leader=1"], 0)
    assert a.get("Plain.leader") == "1"


# ---- Apply ----


def apply_model(*apis):
    """(name, attribute lines) of APIs that share nothing but permissions."""
    return "A {\n perm = 7777\n read = no_rfunc\n" + "".join(
        f"{name} {{\n attr = x\n default = 0\n {lines}\n}}\n" for name, lines in apis
    ) + "}\n"  # fmt: skip


def run_apply(appliance, *apis, command="apply"):
    a = appliance(apply_model(*apis), {"/note": (NOTE, 0o755)}).start()
    names = [name for name, _ in apis]
    assert a.command("seta " + " ".join(f"A.{name}=1" for name in names)).code == 0
    return a, a.command(command)


def test_one_action_of_several_apis_runs_once(appliance):
    note = "apply = syscall $QV_SYSROOT/note shared"
    a, reply = run_apply(appliance, *[(f"n{i}", note) for i in range(12)])
    assert reply == Reply([f"A.n{i}=1" for i in range(12)], 0)
    assert notes(a) == ["shared"]
    assert [line for line in a.log().splitlines() if line.startswith("  with ")] == [f"  with A.n{i}" for i in range(10)]
    assert a.command("checkapp") == Reply([], 0)


def test_order_of_actions(appliance):
    note = "syscall $QV_SYSROOT/note"
    apis = [
        ("one", f"apply = {note} a, \t=:{note} b\n apply2 = {note} c"),
        ("two", f"apply = =: {note} b,{note} d"),
    ]
    a, reply = run_apply(appliance, *apis)
    assert reply == Reply(["A.one=1", "A.two=1"], 0)
    assert notes(a) == ["c", "a", "b", "d"]
    assert [line for line in a.log().splitlines() if " cache " in line] == [
        *(f"  add to cache {i} [{note} {word}]" for i, word in enumerate("cab")),
        f"  already in cache 2 [{note} b]",
        f"  add to cache 3 [{note} d]",
    ]


def test_nine_distinct_actions_at_a_time(appliance):
    apis = [(f"n{i}", f"apply = syscall $QV_SYSROOT/note {i}") for i in range(10)]
    a, reply = run_apply(appliance, *apis)
    assert reply == Reply([f"A.n{i}=1" for i in range(10)], 0)
    assert notes(a) == [str(i) for i in range(9)]
    assert a.command("checkapp").lines == ["A.n9=1"]
    assert a.command("apply") == Reply(["A.n9=1"], 0)
    assert notes(a)[9:] == ["9"]
    a.command("set " + " ".join(f"A.n{i}=0" for i in range(10)))
    for said in ('qvc: 1 setting waits for the next "qvc apply": one runs at most 9 different actions\n', ""):
        asked = subprocess.run(["qvc", "apply"], env=a.environment(), capture_output=True, text=True, timeout=60)
        assert (asked.returncode, asked.stderr) == (0, said)
    assert a.command("checkapp") == Reply([], 0)


@pytest.mark.parametrize(
    "action, failed, noted",
    [
        ("syscall $QV_SYSROOT/note 1 2 3 4 5 6", False, ["1 2 3 4"]),  # five words are the limit
        ("syscall $QV_SYSROOT/note x; exit 3", True, ["x"]),
        ("syscall", False, []),
        ("no_apply", False, []),
        ("misspelt $QV_SYSROOT/note", True, []),
        ("initd_restart", False, []),
        ("initd_restart nobody web", False, ["web restart"]),
        ("initd_restart bad", True, []),
        ("syscall_delay 0 $QV_SYSROOT/note late", False, None),
        ("syscall_delay", True, []),
        ("settime_apply", True, []),
    ],
)
def test_actions(appliance, action, failed, noted):
    services = {"/etc/init.d/web": FILES["/etc/init.d/web"], "/etc/init.d/bad": ("#!/bin/sh\nexit 1\n", 0o755)}
    a = appliance(apply_model(("n", f"apply = {action}")), {"/note": (NOTE, 0o755), **services}).start()
    a.command("set A.n=1")
    assert a.command("apply A.n") == Reply(["A.n=1"] + (["A.n=##Apply failed#"] if failed else []), 0)
    assert a.command("checkapp") == Reply([], 0)
    if noted is None:
        wait_until(lambda: notes(a) == ["late"], "the delayed command")
        a.wait_for_log("  delay_syscall: $QV_SYSROOT/note late  >/dev/null 2>&1")
    else:
        assert notes(a) == noted
    assert (a.logged("Can not apply A.n"), a.logged("  with A.n")) == (failed, not failed)


def test_apply_by_name(appliance):
    apis = [(f"n{i}", f"apply = syscall $QV_SYSROOT/note {i}") for i in range(3)]
    a, reply = run_apply(appliance, *apis, command="apply A.n2,Nowhere,A.n0,A.n2")
    assert reply == Reply(["A.n2=1", f"Nowhere={NOT_FOUND}", "A.n0=1"], 1)
    assert notes(a) == ["2", "0"]


def test_clock_of_a_root_is_a_file(appliance):
    a = appliance(shipped=True).start()
    assert a.command("set System.Time.syncclock=20240229T12:00:00").code == 0
    assert a.command("set System.Time.syncclock=20230229T12:00:00").code == 1
    assert a.read("/var/run/qv/clock") == "20240229T12:00:00\n"
    assert a.command("update System.Time.settime=20250101T00:00:01").code == 0
    assert a.read("/var/run/qv/clock") == "20250101T00:00:01\n"


# ---- Update, modify, revert ----


def test_update(a):
    lines = ["Web.port=81", "Web.title=x"]
    assert a.command("update Web.port=81 Web.title=x") == Reply(3 * lines, 0)
    assert notes(a) == ["web restart"]
    assert a.command("update Web.port=81") == Reply([], 0)  # unchanged
    assert notes(a) == ["web restart"]
    assert a.command("modify Web.port=82") == Reply(["Web.port=82", "Web.port=82"], 0)
    assert a.command("checkapp") == Reply([], 0)
    assert notes(a) == ["web restart"]


@pytest.mark.parametrize("command", ["update", "modify"])
def test_update_with_a_bad_value_reverts_all(a, command):
    reply = a.command(f"{command} Web.port=81 Plain.size=99 Web.title=x")
    assert reply == Reply(
        ["Web.port=81", "Plain.size=##Invalid integer range#: 99", "Web.title=x", "Web.port=80", "Web.title=commented"], 1
    )
    assert a.command("checkmod") == a.command("checkapp") == Reply([], 0)
    assert "port = 80\n" in a.read("/etc/web.conf")
    assert notes(a) == ["reverted Web.port Plain.size Web.title"]


def test_revert(a):
    a.command("set Web.port=81 Web.title=x Plain.size=6 Odd.unreadable=2")
    assert a.command("revert Plain.size") == Reply(["Plain.size=5"], 0)
    assert a.command("revert Web") == Reply(["Web.port=80", "Web.title=commented"], 0)
    assert a.command("revert Web") == Reply([], 0)
    assert a.command("revert Nowhere") == Reply([f"Nowhere={NOT_FOUND}"], 1)
    assert a.command("revert Odd.unreadable") == Reply([], 1)
    assert a.command("checkmod").lines == ["Odd.unreadable=2"]
    assert a.command("revert") == Reply([], 0)
    assert a.command("revert Odd") == Reply([], 0)
    assert notes(a) == [f"reverted {names}" for names in ("Plain.size", "Web", "Web", "", "Odd")]


# ---- Defaults, factory reset, reload ----


def test_defaults(a):
    a.command("set Web.port=81 Plain.size=6 Plain.secret=changed Web.free=kept")
    assert a.command("checkdef Web Plain Nowhere").lines == [
        "Web.port=81 (80)", "Web.title=commented ()", "Plain.size=6 (5)", "Plain.secret=***** (initial)",
        f"Nowhere={NOT_FOUND}",
    ]  # fmt: skip
    a.command("save")
    assert a.command("default Web.port") == Reply(["Web.port=80"], 0)
    assert a.command("default Web.port") == Reply([], 0)
    assert a.command("checkmod") == Reply(["Web.port=80"], 0)
    assert "Web.port=80" in a.command("checkapp").lines
    assert a.command("default Nowhere Plain") == Reply(
        [f"Nowhere={NOT_FOUND}", "Plain.size=5", "Plain.secret=initial"], 1
    )
    assert a.command("default") == Reply(["Web.title="], 0)
    assert a.get("Web.free") == "kept"
    assert "port = 81\n" in a.read("/etc/web.conf")  # until it is saved


@pytest.mark.parametrize(
    "word, reset", [("", {"port", "name", "snmp"}), ("all", {"port", "name", "snmp"}), ("network", {"port", "name"}),
                    ("nonetwork", {"snmp"})],
)  # fmt: skip
def test_factory_reset(appliance, word, reset):
    a = appliance(shipped=True).start()
    names = {"port": "Services.HTTP.port", "name": "Network.hostname", "snmp": "Services.SNMP.enable"}
    before = {"port": "8088", "name": "studio", "snmp": "1"}
    assert a.command("update " + " ".join(f"{names[key]}={before[key]}" for key in names)).code == 0
    a.write("/var/log/services.log", "")
    defaults = {key: a.command(f"getdv {name}").lines[0] for key, name in names.items()}
    a.command("user.passwd admin changed")
    reply = a.command(f"factory_reset {word}")
    assert reply.code == 0 and "User.admin.passwd=kelpo" in reply.lines
    for key, name in names.items():
        assert a.get(name) == (defaults if key in reset else before)[key]
    hooks = [line for line in a.read("/var/log/services.log").splitlines() if "default_script" in line]
    assert hooks == [f"{when}_default_script {word}".rstrip() for when in ("pre", "post")]
    modified = {line.split("=")[0] for line in a.command("checkmod").lines}
    assert {names[key] for key in names} & modified == {names[key] for key in reset}


def test_factory_reset_of_an_unknown_word(a):
    lines = a.command("factory_reset everything").lines
    assert [line.split(" ")[0] for line in lines] == ["all", "network", "", "nonetwork"]


def test_reload(a):
    a.write("/etc/web.conf", "port=1234\ntitle=from outside\n")
    a.write("/etc/plain.conf", "size=1000\n")
    assert a.get("Web.port") == "80"
    assert a.command("reload Web Nowhere") == Reply(["Web", f"Nowhere={NOT_FOUND}"], 0)
    assert a.command("get Web.port,Web.title,Plain.size").lines == ["Web.port=1234", "Web.title=from outside", "Plain.size=5"]
    assert a.command("reload") == Reply([], 0)
    assert a.get("Plain.size") == "5" and "size=5\n" in a.read("/etc/plain.conf")  # what is not valid is replaced


# ---- What clients send never becomes a command ----

HOSTILE = ["it's", '"two"', "$(touch", "$QV_SYSROOT/smuggled)", "`touch", "$QV_SYSROOT/smuggled`", ";", "|", "&", ">x",
           "<", "*", "?", "~", "\\", "'", "''", "a\tb", "\x07", "%20", "$HOME", "${IFS}", "!", "(", ")", "#x", "-n", "ä"]  # fmt: skip


def test_hook_arguments_arrive_word_by_word(appliance):
    script = '#!/bin/sh\nfor word; do printf "%s\\0" "$word"; done >"$QV_SYSROOT/${0##*/}.words"\n'
    hooks = {f"/usr/share/qvcontrol/{when}_default_script": (script, 0o755) for when in ("pre", "post")}
    a = appliance(META, {**FILES, **hooks}).start()
    assert a.talk("factory_reset network " + " ".join(HOSTILE)).endswith(b"@\n0\n")
    for when in ("pre", "post"):
        assert a.read(f"/{when}_default_script.words").split("\0") == ["network", *HOSTILE, ""]
    assert not a.path("/smuggled").exists()
    # Words that no longer fit are left out whole.
    assert a.talk("factory_reset network " + " ".join(["'" * 300] * 90)).endswith(b"@\n0\n")
    words = a.read("/pre_default_script.words").split("\0")
    assert words[0] == "network" and words[-1] == "" and 1 <= len(words[1:-1]) < 90
    assert set(words[1:-1]) == {"'" * 300}


def test_values_never_reach_a_shell(a):
    for value in HOSTILE:
        a.command(f"update Web.free={escape(value)}")
        a.command(f"update Web.title={escape(value)}")
        a.command("revert Web")
    assert not a.path("/smuggled").exists()
    assert a.get("Web.free") == HOSTILE[-1]


# ---- At the same time ----


def in_parallel(*jobs):
    with concurrent.futures.ThreadPoolExecutor(len(jobs)) as pool:
        for one in [pool.submit(job) for job in jobs]:
            one.result()


def test_clients_that_save_at_once_lose_nothing(appliance):
    meta = "S {\n perm = 7777\n read = kv_rfunc\n write = kv_wfunc\n file = /etc/s.conf\n shadow = /etc/s.shadow\n"
    meta += " apply = syscall true\n" + "".join(f" v{i}.attr = v{i}\n v{i}.default = 0\n" for i in range(4)) + "}\n"
    a = appliance(meta).start()

    def client(i):
        def run():
            for n in range(1, 26):
                # Others may save and apply what this one has set, so only the value counts.
                assert a.command(f"update S.v{i}={n}").code == 0
                assert re.search(rf"^v{i}={n}$", a.read("/etc/s.conf"), re.M)

        return run

    in_parallel(*[client(i) for i in range(4)])
    assert a.read("/etc/s.conf") == a.read("/etc/s.shadow") == "".join(f"v{i}=25\n" for i in range(4))
    assert a.command("checkmod") == Reply([], 0)


def test_delete_while_a_get_of_the_group_waits(appliance):
    meta = metadata("""
        G: perm = 7777; dynamic = true; read = syscall_rfunc
        G.slow: attr = $QV_SYSROOT/slow
        G.last: attr = echo 1
    """)
    a = appliance(meta, {"/slow": (WAIT_FOR_GO, 0o755)}).start()
    for name in ("G.temporary", "G.other"):
        assert a.command(f"insert {name}=x").code == 0
    waiting = [a.connect(greeting=f"me 0 0\n{command}\n\n") for command in ("get G", "get", "geti G.slow")]
    # One of them runs the command, the others wait for their turn.
    wait_until(lambda: a.log().count("rfuncmap_read: G.slow syscall_rfunc") == 3, "the readers")
    wait_until(a.path("/started").exists, "the command")
    assert a.command("delete G.temporary") == a.command("delete G.other") == Reply([], 0)
    assert a.command("insert G.late=1").code == 0
    a.write("/go", "")
    for c in waiting[:2]:  # what is new may be seen already
        assert c.read_all().replace(b"G.late=\n", b"") == b"G.slow=42\nG.last=1\n@\n0\n"
    assert waiting[2].read_all().startswith(b"G.slow=42\n")
    assert a.command("get G.temporary").code == 1


def test_many_clients_at_once(appliance):
    """Readers, writers, savers and those who change the tree, all together."""
    meta = META + "Slow.perm = 7777\nSlow.dynamic = true\nSlow.x.read = syscall_rfunc\nSlow.x.attr = echo 1\n"
    a = appliance(meta, FILES).start(tcp=True)

    def client(i, *lines):
        def run():
            for n in range(30):
                reply = a.talk([line.format(i=i, n=n) for line in lines], tcp=i % 2 == 1)
                assert re.search(rb"@\n-?\d+\n\Z", reply), reply

        return run

    in_parallel(
        client(0, "get", "getd", "meta.dump", "checkdef"),
        client(1, "get Slow,Live", "introspect"),
        client(2, "set Web.port={n}", "save", "apply"),
        client(3, "update Plain.size=1{n}", "revert Plain"),
        client(4, "insert Web.t{n}={n}", "get Web", "delete Web.t{n}"),
        client(5, "reload", "checkmod", "checkapp"),
        client(6, "login admin kelpo 10.0.0.{n}", "sessions", "logout {n}", "user.passwd op op{n}"),
        client(7, "default Plain", "modify Plain.size=4", "factory_reset nothing"),
    )
    assert a.get("Slow.x") == "1"
    assert a.read("/etc/plain.conf").count("size=") == 1
