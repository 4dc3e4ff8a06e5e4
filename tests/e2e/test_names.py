"""What a name is, who may make one, and that no name, value or query harms what is there."""

import pytest

from appliance import Appliance, Reply, metadata

NOT_FOUND = "##Parameter not found#"
NAME, PERMISSION = "##Invalid name#", "##Invalid permission#"

META = metadata("""
Web: perm = 7774; read = kv_rfunc; write = kv_wfunc; file = /etc/web.conf; apply = initd_restart web
Web.port: attr = port; type = portnumber; default = 80
Web.title: attr = title; default = web
Web.group.inner: attr = inner; default = 1
Web.clone: private = true; attr = clone; default = hidden
Maker: perm = 7000
Maker.only: attr = x
Bare.x: attr = x
T: perm = 7774
T.__d: range = 1 2
T.__d.v: attr = v__d; help = Of a template
Live: perm = 7774; dynamic = true; read = syscall_rfunc
Live.forged: attr = printf 'a\\001b'
Live.secret: attr = printf topsecret; type = password
Live.counted: attr = echo x >>"$QV_SYSROOT/reads" && echo 5; type = integer
Linked: perm = 7774
Linked.secret: attr = s; type = password 1 64; default = topsecret
Linked.to: attr = t; default = d; link = Linked.secret
Linked.far: attr = f; default = d; link = Linked.to
List: perm = 7777; read = no_rfunc; file = none; add = profile_addfunc; remove = profile_removefunc
List.names: attr = n
Odd: perm = 7777; file = none
Odd.names: attr = n; add = unknown; remove = unknown
Unread: perm = 2222
Unread.x: attr = x; type = integer; default = 4711
""")
FILES = {
    "/etc/web.conf": "# kept\nport=80\ntitle=web\ninner=1\nclone=hidden\n",
    "/etc/init.d/web": ('#!/bin/sh\necho ran >>"$QV_SYSROOT/notes"\n', 0o755),
    "/etc/user.conf": "Group.1.perm = 777\nGroup.2.perm = 77\nGroup.3.perm = 7\n"
    + "".join(f"User.u{n}.group = {n}\nUser.u{n}.passwd = u{n}\n" for n in (1, 2, 3)),
}


@pytest.fixture(scope="module")
def a():
    with Appliance(META, FILES) as a:
        a.start()
        a.command("update Web.group.inner=2 Web.title=t")  # the first looks make copies of inherited attributes
        a.command("update Web.group.inner=1 Web.title=web")
        a.command("geti")
        a.write("/notes", "")
        yield a


def everything(a):
    return a.command("get").lines, a.command("meta.dump").lines, a.read("/etc/web.conf"), a.read_or_empty("/notes")


@pytest.mark.parametrize("command", "save apply revert checkmod default get browse introspect".split())
def test_an_attribute_is_no_api(a, command):
    before = everything(a)
    for name in ("Web.port.type", "Web.perm", "Web.file", "Nowhere"):
        assert a.command(f"{command} {name}") == Reply([f"{name}={NOT_FOUND}"], 0 if command == "checkmod" else 1)
    assert everything(a) == before


@pytest.mark.parametrize("command", ["update =5", "modify =5", "update Nowhere=5", "modify Web=5"])
def test_a_change_without_a_name_reverts_nothing(a, command):
    a.command("set Web.title=changed")
    name = command.split()[1].split("=")[0]
    assert a.command(command) == Reply([f"{name}={NOT_FOUND}"], 1)
    assert a.command("checkmod") == Reply(["Web.title=changed"], 0)
    a.command("revert")


# Who may insert what, and what becomes of it.
INSERTIONS = [
    (2, "Web.extra=1", None),
    (2, "Web.new.group.x=1", None),
    (3, "Web.extra=1", PERMISSION),  # the group may only read
    (1, "Maker.extra=1", PERMISSION),
    (1, "Bare.extra=1", None),  # no perm is inherited: administrators only
    (2, "Bare.extra=1", PERMISSION),
    (2, "New.group.x=1", PERMISSION),
    (1, "Web.port=1", NAME),
    (1, "Web=1", NAME),
    (1, "Web.port.extra=1", NAME),
    (1, "Web.port.perm=7777", NAME),
    (1, "Web.perm.x=1", NAME),
    (1, "T.__d=1", NAME),
    (1, "a..b=1", NAME),
    (1, "=1", NAME),
    (1, ".".join(64 * ["a"]) + "=1", NAME),
    (1, ".".join(63 * ["a"]) + "=1", None),
    (1, "Web.extra=a%0Ab", "##Invalid character#"),
    (1, "Web.extra=" + 1024 * "x", "##Invalid string length, too long#"),
]


@pytest.mark.parametrize("user, argument, error", INSERTIONS)
def test_insert(a, user, argument, error):
    before = everything(a)
    session = a.login(f"u{user}", f"u{user}")
    name, value = argument.split("=")
    assert a.command(f"insert {argument}", session) == (Reply([f"{name}={error}"], 1) if error else Reply([], 0))
    if not error:
        assert a.command(f"insert {argument}", session) == Reply([f"{name}={NAME}"], 1)  # it is taken now
        assert a.command(f"delete {name}", a.login("u3", "u3")) == Reply([f"{name}={PERMISSION}"], 1)
        assert a.command(f"delete {name}", session) == Reply([], 0)
    assert a.command(f"delete {name}", session) == Reply([], 1)
    assert everything(a) == before


def test_an_inserted_name_has_no_key_in_the_file_of_its_group(a):
    before = a.read("/etc/web.conf")
    assert a.command("insert Web.extra=1") == a.command("insert Web.type=1") == Reply([], 0)
    assert a.command("set Web.extra=2").lines == ["Web.extra=2"]
    a.command("save")
    assert a.read("/etc/web.conf") == before
    assert a.command("set Web.port=abc").code == 1  # a name like an attribute's takes no type away
    assert a.command("delete Web.extra") == a.command("delete Web.type") == Reply([], 0)


@pytest.mark.parametrize("argument", ["Web", "Web.perm", "Web.port.perm", "Web.port", "New", "Web.group.inner"])
def test_delete_takes_only_what_was_inserted(a, argument):
    for query in ("metav inserted", "metav inserted.x"):
        a.command(f"{query} {argument}")
    before = everything(a)
    assert a.command(f"delete {argument}") == Reply([], 1)
    assert everything(a) == before


def test_what_is_no_list(a):
    before = everything(a)
    for name in ("List.names.attr", "Nowhere", "Odd.names"):
        assert a.command(f"add {name}=x") == a.command(f"remove {name}=x") == Reply([], 0), name
    assert everything(a) == before


def test_queries_change_nothing(a):
    before = everything(a)
    for query in ("metav sub.attr Web.group", "metav default Web.clone", "metav introspect Web.port",
                  "metav nonsense Web.group.inner", "metav a/b Web.port", "help.api Web.port.type",
                  "help.apihdf Web.port.type"):  # fmt: skip
        a.command(query)
    a.talk([f"metav invented{n} Web.group.inner" for n in range(1000)])
    a.command("reload")
    assert everything(a) == before
    assert a.command("metav sub.attr Web.group") == Reply(['##Invalid command#: "metav sub.attr"'], -1)
    assert a.command("default Web.clone") == Reply([], 0)
    assert "Web.port.type=portnumber" in a.command("introspect Web.port").lines


def test_reply_lines_cannot_be_forged(a):
    assert a.get("Live.forged") == "a b"
    for request in ("get Live\t.x", "set \x01=1", "save a\x7fb", "export /no\tsuch/file"):
        reply = a.talk(request)
        assert not any(c in reply for c in b"\t\x01\x7f"), reply


def test_passwords_are_shown_to_nobody(a):
    for command in ("get", "geti", "introspect", "help.api"):
        lines = a.command(command).lines
        assert not any("topsecret" in line for line in lines if ".default=" not in line), command
    assert a.command("get Linked.to,Live.secret").lines == ["Linked.to=*******", "Live.secret=*******"]
    a.command("set Linked.secret=anothersecret Linked.to=anothersecret2")
    for command in ("checkmod", "get", "geti", "save", "revert"):
        assert "anothersecret" not in "".join(a.command(f"{command} Linked").lines)
    for value, line in (("filesecret", "Linked.secret=*******"), (64 * "secret", f"Linked.secret=*******={NOT_FOUND}")):
        a.write("/tmp/in.hdf", f"Linked.secret = {value}\n")
        assert a.command("import /tmp/in.hdf").lines == [line]
    a.command("default Linked.secret")


def test_a_live_value_is_read_once_a_command(a):
    a.write("/reads", "")
    assert "Live.counted.value=5" in a.command("geti Live.counted").lines
    assert a.read("/reads") == "x\n"


def test_reload_keeps_what_the_caller_may_not_write(a):
    a.command("set Web.title=changed")
    for command in ("reload", "reload Web", "reload Web.title"):
        a.command(command, a.login("u3", "u3"))
        assert a.get("Web.title") == "changed", command
    a.command("reload Web", a.login("u2", "u2"))
    assert a.get("Web.title") == "web"


def test_what_may_not_be_read_is_not_told_otherwise(a):
    session = a.login("u1", "u1")
    for command in ("get", "introspect Unread", "geti Unread.x", "checkdef", "browse Unread", "help.api Unread"):
        assert not any("4711" in line for line in a.command(command, session).lines if ".default=" not in line), command


def test_templates_have_no_help(a):
    lines = a.command("help.api T").lines
    assert "NAME    T.1.v" in lines and not any("__" in line for line in lines)


def test_files_are_written_for_administrators_only(a):
    for user, allowed in ((1, True), (2, False), (3, False)):
        session = a.login(f"u{user}", f"u{user}")
        target = f"/etc/exported{user}"
        assert a.command(f"export {target}", session) == (Reply([], 0) if allowed else Reply([PERMISSION], 1))
        assert a.path(target).exists() == allowed
        assert a.command("export stdout 0 Web.title", session).code == 0


def test_a_saved_change_stays_unapplied_when_it_is_reverted(appliance):
    a = appliance(META, FILES).start()
    a.command("set Web.port=81")
    assert a.command("revert Web.port") == Reply(["Web.port=80"], 0)
    assert a.command("checkapp") == Reply([], 0)  # 80 is in force
    a.command("set Web.port=81")
    a.command("save")
    assert a.command("revert") == Reply(["Web.port=81"], 0)
    assert a.command("checkapp") == Reply(["Web.port=81"], 0)  # its action never ran
    a.command("apply")
    assert a.command("checkapp") == Reply([], 0) and a.read("/notes") == "ran\n"
