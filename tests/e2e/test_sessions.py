"""Logins, sessions, users, and the files behind them."""

import re

import pytest

from appliance import Appliance, Reply, escape

META = """
Level {
    read = kv_rfunc
    write = kv_wfunc
    file = /etc/level.conf
    maker.perm = 7000
    maker.attr = maker
    maker.default = m
    admin.perm = 7700
    admin.attr = admin
    admin.default = a
    operator.perm = 7770
    operator.attr = operator
    operator.default = o
    seen.perm = 7744
    seen.attr = seen
    seen.default = s
    seen.apply = no_apply
}
"""
USERS = """Group {
  0 {
    perm = 7777
  }
  1 {
    perm = 7777
  }
  2 {
    perm = 7777
  }
  3 {
    perm = 4
  }
  9 {
    perm = fff
  }
}
User {
  admin {
    group = 1
    passwd = kelpo
    default = kelpo
  }
  maker {
    group = 0
    passwd = m
  }
  operator {
    group = 2
    passwd = operator
    default = standard
  }
  viewer {
    group = 3
    passwd = viewer
  }
  ninth {
    group = 9
    passwd = ninth
  }
  nopasswd {
    group = 1
  }
  nogroup {
    passwd = x
  }
  lost {
    group = 77
    passwd = x
  }
}
"""


@pytest.fixture
def a(appliance):
    return appliance(META, {"/etc/user.conf": (USERS, 0o600)}).start(tcp=True)


@pytest.fixture(scope="module")
def shared():
    """For tests that change nothing, or nothing that others look at."""
    with Appliance(META, {"/etc/user.conf": (USERS, 0o600)}) as a:
        yield a.start()


def fields(a, session):
    reply = a.command(f"get_session {session}")
    return dict(line.split("=", 1) for line in reply.lines)


# ---- Sessions ----


def test_local_root_session(a):
    assert a.command("get_session 0") == Reply(["session=0", "user=root", "perm=7777", "group=0", "login=root"], 0)
    assert a.read("/tmp/current_sessions") == ""


def test_login_over_tcp_as_admin(a):
    session = a.login("admin", "kelpo", "10.0.0.7", "web", tcp=True)
    assert 10 <= session <= 97612903
    assert a.read("/tmp/current_sessions") == f"{session}\n"
    found = fields(a, session)
    assert re.match(r"\w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4}$", found.pop("login"))
    assert found == {
        "session": str(session), "user": "admin", "perm": "777", "group": "1", "ip": "10.0.0.7", "server": "web",
    }  # fmt: skip
    assert a.logged(f"User admin login to session {session} on 10.0.0.7")
    # What the mask holds is allowed, the rest is refused.
    assert a.command("get Level", session, tcp=True) == Reply(["Level.admin=a", "Level.operator=o", "Level.seen=s"], 0)
    assert a.command("get Level.maker", session, tcp=True) == Reply([], 1)
    assert a.command("set Level.admin=b", session, tcp=True) == Reply(["Level.admin=b"], 0)
    refused = ["Level.maker=##Invalid permission#"]
    assert a.command("set Level.maker=b", session, tcp=True) == Reply(refused, 1)
    assert a.command("save Level.admin", session, tcp=True) == Reply(["Level.admin=b"], 0)
    assert a.command("update Level.maker=c", session, tcp=True) == Reply(refused, 1)
    assert a.get("Level.maker") == "m"
    assert a.command(f"logout {session}", session, tcp=True) == Reply([f"Session={session}"], 0)
    assert a.talk("get Level", session, tcp=True) == b"@\n1\n"
    assert a.read("/tmp/current_sessions") == ""


def test_open_connections_keep_their_mask(a):
    session = a.login("operator", "operator")
    with a.connect(greeting=f"me {session} 0\nget Level.operator\n") as c:
        assert c.read_lines(1) == b"Level.operator=o\n"
        assert a.command(f"logout {session}").code == 0
        c.send("get Level.operator,Level.admin\n\n")
        assert c.read_all() == b"Level.operator=o\n@\n1\n"


@pytest.mark.parametrize(
    "user, password, mask",
    [("maker", "m", "7777"), ("admin", "kelpo", "777"), ("operator", "operator", "77"), ("viewer", "viewer", "4"),
     ("ninth", "ninth", "f")],
)  # fmt: skip
def test_masks_are_cut_by_the_group_number(shared, user, password, mask):
    a = shared
    session = a.login(user, password)
    assert fields(a, session)["perm"] == mask
    # Level 1 is needed for logins, users, groups and the list of sessions.
    admits = mask in ("7777", "777")
    assert bool(a.command("sessions", session).lines) == admits
    assert a.command("sessions", session).code == (0 if admits else 1)
    assert a.command("login admin kelpo", session).code == (0 if admits else 1)
    assert a.command(f"logout {session + 1}", session) == Reply(
        [f"##Session {session + 1} not valid#"] if admits else [], 1
    )
    for command in ("user", "user.list", "group", "group.list", "user.rem admin"):
        reply = a.command(command, session)
        assert (bool(reply.lines), reply.code) == (admits, 0), command
    assert a.command(f"get_session {session}", session).code == 0  # everybody may ask


@pytest.mark.parametrize(
    "arguments, error, logged",
    [
        ("nobody x", "##Invalid user#", "Failed login for nonuser nobody"),
        ("nogroup x", "##Invalid user#", "Failed login for nonuser nogroup"),
        ("lost x", "##Invalid user#", "Failed login for nonuser lost"),
        ("admin wrong", "##Invalid password#", "Failed login for user admin"),
        ("admin KELPO", "##Invalid password#", "Failed login for user admin"),
        ("admin kelp", "##Invalid password#", "Failed login for user admin"),
        ("nopasswd x", "##Invalid password#", "Failed login for user nopasswd"),
        ("admin.passwd x", "##Invalid user#", "Failed login for nonuser admin.passwd"),
        ("a%20b x", "##Invalid user#", "Failed login for nonuser a b"),
        ("%25s%25n x", "##Invalid user#", "Failed login for nonuser %s%n"),
        (5000 * "x" + " x", "##Invalid user#", "Failed login for nonuser " + 5000 * "x"),
        ("\x80\x81 x", "##Invalid user#", None),
        ("admin", "##Invalid command arguments#", None),
        ("", "##Invalid command arguments#", None),
    ],
)
def test_refused_logins(shared, arguments, error, logged):
    a = shared
    before = a.read("/tmp/current_sessions")
    assert a.command(f"login {arguments}") == Reply([error], 1)
    if logged:
        assert a.logged(logged)
    assert a.read("/tmp/current_sessions") == before


def test_repeated_logins(a):
    local = a.login("admin", "kelpo")
    assert a.login("admin", "kelpo") == local
    assert fields(a, local)["ip"] == fields(a, local)["server"] == "local"
    remote = a.login("admin", "kelpo", "10.0.0.7")
    assert remote != local and a.login("admin", "kelpo", "10.0.0.7", "other") == remote
    assert a.login("operator", "operator") not in (local, remote)
    assert fields(a, remote)["server"] == "local"  # as it was
    listed = a.command("sessions")
    assert listed.code == 0 and listed.lines.count("    user = admin") == 2 and listed.lines[0] == "Session {"


def test_login_with_a_prefix(a):
    numbers = {a.login("door:admin", "kelpo") for _ in range(2)}
    assert len(numbers) == 1 and fields(a, *numbers)["ip"] == "door"
    session = numbers.pop()
    assert a.command(f"logout {session}").code == 0
    assert a.login("door:admin", "kelpo", "10.1.1.1") == session  # derived from the credentials
    assert fields(a, session)["user"] == "admin"
    assert a.login("window:admin", "kelpo") != session
    assert a.command("login door:admin wrong") == Reply(["##Invalid password#"], 1)


def test_logout_of_no_session(a):
    assert a.command("logout") == Reply(["##Invalid command arguments#: No session number"], 1)
    assert a.command("logout 0") == Reply(["##Session 0 not valid#"], 1)
    assert a.command("logout 5") == Reply(["##Session 5 not valid#"], 1)
    assert a.command("logout abc") == Reply(["##Session 0 not valid#"], 1)
    assert a.command("get_session") == Reply(["##Need to specify a session number#"], 1)
    assert a.command("get_session 5") == Reply(["##Session 5 does not exist#"], 1)


def test_list_file_that_others_spoilt(a):
    """Lines without a number are dropped when the file is rewritten, and only then."""
    spoilt = "77\nrubbish\n\x01\n12 and more\n\n" + 300 * "9" + "\n0x10\nlast without newline"
    session = a.login("admin", "kelpo")
    a.write("/tmp/current_sessions", f"{session}\n" + spoilt)
    assert a.command("logout 5").code == 1
    assert a.read("/tmp/current_sessions") == f"{session}\n" + spoilt
    other = a.login("operator", "operator")
    assert a.read("/tmp/current_sessions").endswith(f"last without newline\n{other}\n")
    assert a.command(f"logout {session}").code == 0
    kept = a.read("/tmp/current_sessions").splitlines()
    assert kept[0] == "77" and kept[-1] == str(other) and "12 and more" in kept and "0x10" in kept
    assert not [line for line in kept if re.search("rubbish|without", line) or line == ""]
    a.restart()
    assert a.read("/tmp/current_sessions") == ""


def test_list_file_is_not_followed_elsewhere(appliance):
    a = appliance(META, {"/precious": "untouched\n"})
    a.path("/tmp/current_sessions").symlink_to(a.path("/precious"))
    a.start()
    a.login("admin", "kelpo")
    a.stop()
    assert a.read("/precious") == "untouched\n"


def test_sessions_end_with_the_daemon(a):
    session = a.login("admin", "kelpo")
    a.restart(tcp=True)
    assert a.talk("get Level", session) == b"@\n1\n"
    assert a.logged(f"Access denied for nonsession:{session}")


# ---- Users ----


def users_of(a):
    """The user file as it would be read back: {dotted name: value}."""
    names, values = [], {}
    for line in a.read("/etc/user.conf").splitlines():
        line = line.strip()
        if line.endswith("{"):
            names.append(line[:-1].strip())
        elif line == "}":
            names.pop()
        elif line:
            name, value = line.split(" = ", 1)
            values[".".join(names + [name])] = value
    assert not names
    return values


def test_user_commands_change_file_and_logins_at_once(a):
    before = users_of(a)
    assert a.command("user.add new 2") == Reply(["User.new.group=2"], 0)
    assert a.command("login new x") == Reply(["##Invalid password#"], 1)
    assert a.command("user.passwd new p%25%20w%3d") == Reply(["User.new.passwd=p% w="], 0)
    assert users_of(a) == {**before, "User.new.group": "2", "User.new.passwd": "p% w="}
    session = a.login("new", "p% w=")
    assert fields(a, session)["perm"] == "77"
    assert a.command("user.mod new 1") == Reply(["User.new.group=1"], 0)
    assert a.command("user.rem new") == Reply(["User.new"], 0)
    assert users_of(a) == before
    assert a.command("login new x") == Reply(["##Invalid user#"], 1)
    a.restart()
    assert users_of(a) == before
    assert a.path("/etc/user.conf").stat().st_mode & 0o777 == 0o600


@pytest.mark.parametrize(
    "command, lines",
    [
        ("user.add", ["##Invalid user#"]),
        ("user.add new", ["##Invalid user#"]),
        ("user.add new 5", ["User.new.group=##Invalid group#"]),
        ("user.add a.b 1", ["##Invalid user#"]),
        ("user.add a%2eb 1", ["##Invalid user#"]),
        ("user.add a%20b 1", ["##Invalid user#"]),
        ("user.add %2525 1", ["##Invalid user#"]),
        (f"user.add {5000 * 'x'} 1", ["##Invalid user#"]),
        ("user.mod admin 1.perm", ["User.admin.group=##Invalid group#"]),
        ("user.passwd", ["##error: user pwd <user> <password>#"]),
        ("user.passwd admin", ["##error: user pwd <user> <password>#"]),
        ("user.passwd nobody x", ["User.nobody.passwd=##user nobody does not exist#"]),
        ("user.passwd admin a%0ab", ["User.admin.passwd=##Invalid password character#"]),
        (f"user.passwd admin {1024 * 'x'}", ["User.admin.passwd=##Password too long#"]),
        ("user.rem", ["##can not remove #"]),
        ("user.rem admin", ["##can not remove admin#"]),
        ("user.rem nobody", ["User.nobody=##Does not exist#"]),
        ("user.default nobody", ["User.nobody.passwd=##user nobody does not exist#"]),
        ("user.default viewer", ["User.viewer.passwd=##default does not exist#"]),
        ("user.import", ["##Specify a file to import#"]),
        ("user.import /nonexistent", ["##Specify a file to import#"]),
        ("user.import /etc", ["##Error in file format#"]),
        ("group.add 5", ["##group add currently not supported#"]),
        ("group.rem 3", ["##group rem currently not supported#"]),
    ],
    ids=lambda value: value[:30] if isinstance(value, str) else "",
)
def test_refused_user_commands_change_nothing(shared, command, lines):
    assert shared.command(command) == Reply(lines, 0)
    assert shared.read("/etc/user.conf") == USERS


def test_default_passwords(a):
    a.command("user.passwd operator changed")
    reply = a.command("user.default")
    assert sorted(reply.lines) == sorted(
        ["User.admin.passwd=kelpo", "User.operator.passwd=standard"]
        + [f"User.{u}.passwd=##default does not exist#" for u in ("maker", "viewer", "ninth", "nopasswd", "nogroup", "lost")]
    )
    assert users_of(a)["User.operator.passwd"] == "standard"


def test_help_of_user_and_unknown_sub_command(a):
    menu = a.command("user").lines
    assert menu[:2] == ["user: This menu", "user.list: List all user and permission"] and len(menu) == 9
    assert a.command("user.help").lines == menu
    assert a.command("user.bogus") == a.command("user.list")
    assert "User.admin.passwd=kelpo" in a.command("user.list").lines
    assert a.command("group").lines == [
        "group: This menu", "group.list: List all groups", "group.add: Add a group", "group.rem: Remove a group",
    ]  # fmt: skip
    assert "Group.9.perm=fff" in a.command("group.list").lines


def test_import_and_export(a):
    a.write("/in.hdf", "User.guest.group = 3\nUser.guest.passwd = g\nUser.viewer.passwd = new\n")
    assert a.command("user.import /in.hdf") == Reply([], 0)
    merged = {"User.guest.group": "3", "User.guest.passwd": "g", "User.viewer.passwd": "new"}
    assert users_of(a).items() >= merged.items()
    assert a.login("viewer", "new")
    before = a.read("/etc/user.conf")
    for bad in ("User.x {\n", "User.x.group = 1\n}\n", '#include "/in.hdf"\n', "User.x = a\0b\n", "{\n" * 65 + "}\n" * 65):
        a.write("/bad.hdf", bad)
        assert a.command("user.import /bad.hdf") == Reply(["##Error in file format#"], 0), bad
    assert a.read("/etc/user.conf") == before
    assert a.command("user.export /out.hdf") == Reply([], 0)
    assert a.path("/out.hdf").stat().st_mode & 0o777 == 0o600
    assert a.read("/out.hdf") == before
    assert a.command("user.export") == Reply(a.command("group.list").lines + a.command("user.list").lines, 0)


# ---- User files as found at start ----


def test_without_a_user_file(appliance):
    a = appliance(META).start()
    assert a.logged("can not read user config file /etc/user.conf")
    session = a.login("admin", "kelpo")
    assert fields(a, session)["perm"] == "777"
    assert not a.path("/etc/user.conf").exists()
    a.command("user.passwd admin other")
    assert a.path("/etc/user.conf").stat().st_mode & 0o777 == 0o600
    a.restart()
    assert a.command("login admin kelpo") == Reply(["##Invalid password#"], 1)
    assert a.login("admin", "other")


@pytest.mark.parametrize(
    "content",
    ["User.admin {\n", "nonsense\n", USERS + "}\n", b"\x7fELF\x02\x01\0\0\0\xff" * 100, "a {\n" * 10000, None],
    ids=["open brace", "rubbish", "brace too many", "binary", "deep", "folder"],
)
def test_broken_user_files_let_nobody_in(appliance, content):
    a = appliance(META)
    if content is None:
        a.path("/etc/user.conf").mkdir()
    else:
        a.write("/etc/user.conf", content)
    a.start()
    assert re.search(r"^/etc/user\.conf: .+", a.log(), re.M)
    assert a.command("login admin kelpo") == Reply(["##Invalid user#"], 1)
    assert a.command("user.list") == Reply([], 0)
    assert a.get("Level.seen") == "s"  # session 0 goes on


def test_widely_readable_user_file_is_closed_by_the_first_change(appliance):
    a = appliance(META, {"/etc/user.conf": (USERS, 0o644)}).start()
    a.command("user.passwd admin x")
    assert a.path("/etc/user.conf").stat().st_mode & 0o777 == 0o600


def test_log_holds_no_password(appliance):
    a = appliance(META, {"/etc/user.conf": (USERS.replace("kelpo", "verysecret"), 0o600)}).start()
    a.login("admin", "verysecret")
    a.command("login admin guessedsecret")
    a.command("login nobody guessedsecret")
    a.command("login door:admin verysecret 10.0.0.1")
    a.command(f"user.passwd operator {escape('othersecret ')}")
    a.command("user.passwd operator othersecret")
    a.command("user.default admin")
    assert "secret" not in a.log()
    assert "*******" in a.log()
