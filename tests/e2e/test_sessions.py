"""Logins, sessions, users, and the files behind them."""

import re

import pytest

from appliance import Reply, escape, metadata, user_file

META = metadata("""
Level: read = kv_rfunc; write = kv_wfunc; file = /etc/level.conf
Level.maker: perm = 7000; attr = maker; default = m
Level.admin: perm = 7700; attr = admin; default = a
Level.operator: perm = 7770; attr = operator; default = o
Level.seen: perm = 7744; attr = seen; default = s; apply = no_apply
""")
GROUPS = {0: 7777, 1: 7777, 2: 7777, 3: 4}
PEOPLE = {
    "admin": (1, "kelpo", "kelpo"),
    "maker": (0, "m"),
    "operator": (2, "operator", "standard"),
    "viewer": (3, "viewer"),
}
USERS = user_file(GROUPS, PEOPLE)


@pytest.fixture
def a(appliance):
    return appliance(META, {"/etc/user.conf": (USERS, 0o600)}).start(tcp=True)


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
    assert a.command("get Level", session, tcp=True) == Reply(["Level.admin=a", "Level.operator=o", "Level.seen=s"], 0)
    assert a.command("set Level.admin=b", session, tcp=True) == Reply(["Level.admin=b"], 0)
    refused = ["Level.maker=##Invalid permission#"]
    assert a.command("set Level.maker=b", session, tcp=True) == Reply(refused, 1)
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


def test_sessions_end_with_the_daemon(a):
    session = a.login("admin", "kelpo")
    a.restart(tcp=True)
    assert a.talk("get Level", session) == b"@\n1\n"
    assert a.logged("Access denied for nonsession")
    assert a.read("/tmp/current_sessions") == ""


# ---- Users ----


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
