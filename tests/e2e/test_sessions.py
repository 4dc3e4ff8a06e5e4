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


def test_login_over_tcp_as_admin(a):
    session = a.login("admin", "kelpo", "10.0.0.7", "web", tcp=True)
    assert 10 <= session <= 97612903
    assert a.read("/tmp/current_sessions") == f"{session}\n"
    found = fields(a, session)
    assert re.match(r"\w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4}$", found.pop("login"))
    assert found == {
        "session": str(session), "user": "admin", "perm": "777", "group": "1", "ip": "10.0.0.7", "server": "web",
    }  # fmt: skip
    assert a.logged("User admin login on 10.0.0.7")
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
        ("lost x", "##Invalid user#", "Failed login for nonuser lost"),
        ("admin wrong", "##Invalid password#", "Failed login for user admin"),
        ("nopasswd x", "##Invalid password#", "Failed login for user nopasswd"),
        ("%25s%25n x", "##Invalid user#", "Failed login for nonuser %s%n"),
        (5000 * "x" + " x", "##Invalid user#", "Failed login for nonuser " + 64 * "x"),
        ("\x80\x81 x", "##Invalid user#", None),
        ("admin", "##Invalid command arguments#", None),
    ],
)
def test_refused_logins(shared, arguments, error, logged):
    a = shared
    before = a.read("/tmp/current_sessions")
    assert a.command(f"login {arguments}") == Reply([error], 1)
    if logged:
        assert a.logged(logged)
    assert a.read("/tmp/current_sessions") == before


def test_login_with_a_prefix(a):
    numbers = {a.login("door:admin", "kelpo") for _ in range(2)}
    assert len(numbers) == 1 and fields(a, *numbers)["ip"] == "door"
    session = numbers.pop()
    assert a.command(f"logout {session}").code == 0
    assert a.login("door:admin", "kelpo", "10.1.1.1") == session  # derived from the credentials
    assert fields(a, session)["user"] == "admin"
    assert a.login("window:admin", "kelpo") != session
    assert a.command("login door:admin wrong") == Reply(["##Invalid password#"], 1)


def test_sessions_end_with_the_daemon(a):
    session = a.login("admin", "kelpo")
    a.restart(tcp=True)
    assert a.talk("get Level", session) == b"@\n1\n"
    assert a.logged("Access denied for nonsession")
    assert a.read("/tmp/current_sessions") == ""


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


def test_refused_user_commands_change_nothing(shared):
    for command, lines in {
        "user.add new 5": ["User.new.group=##Invalid group#"],
        "user.add a%2eb 1": ["##Invalid user#"],
        "user.passwd admin a%09b": ["User.admin.passwd=##Invalid password character#"],
        "user.rem admin": ["##can not remove admin#"],
        "user.import /etc": ["##Error in file format#"],
        "group.add 5": ["##group add currently not supported#"],
    }.items():
        assert shared.command(command) == Reply(lines, 0)
    assert shared.read("/etc/user.conf") == USERS


def test_nobody_reaches_above_himself(a):
    """By no way that an administrator has: groups, passwords, removal, files, sessions, the factory reset."""
    session = a.login("admin", "kelpo", tcp=True)
    maker = a.login("maker", "m")
    a.write("/in.hdf", "User.viewer.passwd = new\nUser.maker.passwd = x\n")
    refused = "##Invalid permission#"
    for command, line in {
        "user.mod admin 0": f"User.admin.group={refused}",
        "user.add new 0": f"User.new.group={refused}",
        "user.mod maker 3": f"User.maker.group={refused}",
        "user.passwd maker m": f"User.maker.passwd={refused}",
        "user.default maker": f"User.maker.passwd={refused}",
        "user.rem maker": f"User.maker={refused}",
        "user.import /in.hdf": refused,
        "user.export /out.hdf": refused,
    }.items():
        assert a.command(command, session, tcp=True).lines == [line], command
    assert a.read("/etc/user.conf") == USERS and not a.path("/out.hdf").exists()
    for command in ("user.list", "user.export"):
        assert "User.maker.passwd=*******" in a.command(command, session, tcp=True).lines
        assert "User.maker.passwd=m" in a.command(command).lines
    assert f"  {maker} {{" in a.command("sessions").lines
    assert f"  {maker} {{" not in a.command("sessions", session).lines
    assert a.command(f"get_session {maker}", session) == Reply([f"##Session {maker} does not exist#"], 1)
    assert a.command(f"logout {maker}", session) == Reply([f"##Session {maker} not valid#"], 1)
    assert fields(a, 0)["user"] == "root" and a.command("get_session 0", session).code == 0
    assert f"User.maker.passwd={refused}" in a.command("factory_reset network", session).lines
    assert a.command("user.mod operator 1", session) == Reply(["User.operator.group=1"], 0)
    assert a.login("maker", "m") == maker


def test_sessions_follow_their_users(a):
    session = a.login("operator", "operator")
    for group, mask in ((3, "4"), (2, "77"), (1, "777")):
        a.command(f"user.mod operator {group}")
        found = fields(a, session)
        assert (found["perm"], found["group"]) == (mask, str(group))
        assert a.command("set Level.operator=x", session).code == (1 if group == 3 else 0)
    other = a.login("viewer", "viewer")
    a.command("user.rem operator")
    assert a.talk("get Level", session) == b"@\n1\n"
    assert a.read("/tmp/current_sessions") == f"{other}\n"


def test_factory_reset_is_for_administrators(a):
    a.write("/usr/share/qvcontrol/pre_default_script", '#!/bin/sh\ntouch "$QV_SYSROOT/ran"\n', 0o755)
    assert a.command("factory_reset", a.login("operator", "operator")) == Reply(["##Invalid permission#"], 1)
    assert not a.path("/ran").exists()
    assert a.command("factory_reset", a.login("admin", "kelpo")).code == 0
    assert a.path("/ran").exists()


@pytest.mark.parametrize("number", [1 << 32, 1 << 64, -(1 << 32), 1])
def test_only_the_number_of_a_session_opens(shared, number):
    assert shared.exchange(f"e2e {number} 0\nget Level\n\n") == b"@\n1\n"


def test_changes_that_do_not_reach_the_disk_are_refused(appliance):
    a = appliance(META, {"/users/user.conf": (USERS, 0o600)})
    a.write("/in.hdf", "User.viewer.passwd = new\n")
    a.start("-u", a.path("/users/user.conf"))
    a.path("/users").rename(a.path("/away"))
    error = "##Can not write user file#"
    for command, line in {
        "user.add new 1": f"User.new.group={error}",
        "user.mod viewer 1": f"User.viewer.group={error}",
        "user.passwd operator x": f"User.operator.passwd={error}",
        "user.rem ninth": f"User.ninth={error}",
        "user.import /in.hdf": error,
        "user.default operator": f"User.operator.passwd={error}",
    }.items():
        assert a.command(command).lines == [line], command
    assert f"User.admin.passwd={error}" in a.command("factory_reset network").lines
    assert re.search(r"Can not write .*user\.conf: No such file", a.log())
    listed = a.command("user.list")
    a.path("/away").rename(a.path("/users"))
    assert a.read("/users/user.conf") == USERS
    a.restart("-u", a.path("/users/user.conf"))
    assert a.command("user.list") == listed
    assert a.command("user.rem ninth") == Reply(["User.ninth"], 0)


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


@pytest.mark.parametrize("content", [USERS + "}\n", "a {\n" * 10000, None], ids=["brace", "deep", "folder"])
def test_broken_user_file_lets_nobody_in_and_stays(appliance, content):
    a = appliance(META, {"/in.hdf": USERS})
    a.path("/etc/user.conf").mkdir() if content is None else a.write("/etc/user.conf", content)
    a.start()
    assert re.search(r"^/etc/user\.conf: .+", a.log(), re.M)
    assert a.command("login admin kelpo") == Reply(["##Invalid user#"], 1)
    assert a.command("user.import /in.hdf") == Reply(["##Can not write user file#"], 0)
    assert a.command("user.export /etc/user.conf").lines == ["##can not write /etc/user.conf#"]
    assert a.command("user.list") == Reply([], 0)
    assert a.get("Level.seen") == "s"  # session 0 goes on
    if content is None:
        a.path("/etc/user.conf").rmdir()
    else:
        assert a.read("/etc/user.conf") == content
    a.write("/etc/user.conf", USERS)
    assert a.login("admin", "kelpo")


def test_log_holds_no_secret(appliance):
    meta = META + "Web.password.type = password 1 64\nWeb.password.perm = 7777\nWeb.password.default = x\n"
    a = appliance(meta, {"/etc/user.conf": (USERS.replace("kelpo", "verysecret"), 0o600)}).start()
    sessions = [a.login("admin", "verysecret"), a.login("door:admin", "verysecret", "10.0.0.1")]
    for line in (
        "login admin guessedsecret",
        "login.admin verysecret",
        "login admin very secret,secret",
        "user.passwd operator othersecret",
        "user passwd operator othersecret",
        f"user.passwd operator {escape('othersecret ')}",
        "set Web.password=a%20secret",
        "set Web.password=a top-secret,top-secret=secret",
        "set Web.password%3Dsecret",
        "set Web.password=secret%00",
        "set Web.password top-secret",
        "set Web.password secret,secret=secret",
        "set Web.password%20secret",
        "modify secret",
        "get Web.password secret",
        "reload Web.password,secret",
        "set Web.pasword=secret",
        "set Web.password.x=secret",
        "set we-b=secret",
        "setWeb.password=secret",
        "set%20Web=secret",
        "logn admin secret",
        "logn.admin.secret secret=secret",
        *(f"{command} {session}" for session in sessions
          for command in ("get_session", "menu.getload", "menu getload", "logout", "logout")),
    ):  # fmt: skip
        a.command(line)
    a.command("user.default admin")
    a.exchange(f"e2e {sessions[1]} 0\nget Level\n\n")
    log = a.log()
    assert not [line for line in log.splitlines() if re.search("secret|%s|%s" % tuple(sessions), line)]
    assert "[Web.password=*******]" in log and "cmd: [logn]" in log
    for line in ("Set Password for user operator", "User admin login on 10.0.0.1", "User admin logout",
                 "notify: login: admin=******* (qvc login)"):  # fmt: skip
        assert a.logged(line)
    a.command("set Level.admin=plain%20value")
    assert "[Level.admin=plain value]" in a.log()


def test_long_words_are_cut_in_the_log(a):
    a.command(100000 * "c" + "." + 100000 * "s" + " x")
    assert max(map(len, a.log().splitlines())) < 1100
    assert a.logged("Invalid command: " + 64 * "c")
