"""Changes as transactions: plan, diff, commit, confirm, abort, history, rollback."""

import json
import os
import re
import signal
import sqlite3
import threading
import time

import pytest

from appliance import Reply, escape, metadata, user_file, wait_until

# An action that says what it was called with and what the file has, and fails or waits when told to.
ACTION = """#!/bin/sh
port=$(sed -n 's/^port=//p' "$QV_SYSROOT/etc/a.conf")
echo "$1 $port" >>"$QV_SYSROOT/ran"
[ -e "$QV_SYSROOT/hold" ] && while [ ! -e "$QV_SYSROOT/go" ]; do sleep 0.01; done
[ ! -e "$QV_SYSROOT/fail.$1" ] || exit 3
"""
META = metadata("""
A: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/a.conf; shadow = /etc/shadow.d/a.conf
A.port: attr = port; type = integer_range 1 99; default = 1; apply = syscall $QV_SYSROOT/act port
A.name: attr = name; type = string_length 0 99; default = x; apply = syscall $QV_SYSROOT/act name
A.key: attr = psk; type = password; default = none
B: perm = 7770; read = quotedkv_rfunc; write = quotedkv_wfunc; file = /etc/b.conf
B.only: attr = ONLY; type = string_length 0 99; default = b; apply = syscall $QV_SYSROOT/act b
B.new: attr = NEW; type = string_length 0 99; default =; file = /etc/new.conf; apply = syscall $QV_SYSROOT/act b
Also.port: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/a.conf; attr = port; type = integer_range 1 99
Also.port: default = 1; link = A.port
Write.only: perm = 7772; read = kv_rfunc; write = kv_wfunc; file = /etc/w.conf; attr = w; type = string_length 0 99
Write.only: default = hushed
Private.note: perm = 7777; private = true; read = kv_rfunc; write = kv_wfunc; file = /etc/w.conf; attr = p
Private.note: type = string_length 0 99; default = hushed
System.Configuration.Profiles: perm = 7777; read = quotedkv_rfunc; write = quotedkv_wfunc; file = /etc/unit.conf
System.Configuration.Profiles.current: attr = UNIT; type = blank,profile; default =; apply = profile_apply current
G.Profiles: perm = 7777; read = quotedkv_rfunc; write = quotedkv_wfunc; file = /etc/group.conf
G.Profiles.name: attr = NAME; type = blank,profile2; default =; apply = profile2_apply
G.Profiles.desc: attr = DESC; type = blank,string_length 1 255; default =; apply = no_apply
Dev.line: perm = 7777; write = io_wfunc; file = /dev.line; attr = line; type = string_length 0 99; default = d
Bare.note: perm = 7777; read = kv_rfunc; file = /etc/bare.conf; attr = note; type = string_length 0 99; default = n
""")
A_CONF = "# keep\n#psk=older\nport=1\nname=x\npsk=none\n"
FILES = {"/etc/a.conf": A_CONF, "/etc/shadow.d/a.conf": A_CONF, "/etc/b.conf": 'ONLY="b"\n',
         "/etc/user.conf": user_file({1: 777, 3: 7}, {"admin": (1, "kelpo", "kelpo"), "op": (3, "oper", "oper")})}
SETTINGS = "get A B Bare"


@pytest.fixture
def a(appliance):
    a = appliance(META, FILES)
    a.write("/act", ACTION, 0o755)
    return a.start()


def state(a):
    """All that a change may touch: values, flags, files."""
    texts = {name: a.read_or_empty(name) for name in [*FILES, "/etc/new.conf"] if name != "/etc/user.conf"}
    return a.command(SETTINGS).lines, a.command("checkmod").lines, a.command("checkapp").lines, texts


def ran(a):
    lines = a.read_or_empty("/ran").splitlines()
    a.write("/ran", "")
    return lines


def entries(a, words="", session=0):
    reply = a.command(f"history -j {words}", session)
    assert reply.code == 0, reply
    return json.loads(reply.lines[0])["entries"]


def ends(a):
    return [(e["command"], e["end"]) for e in entries(a)]


def test_plan_shows_all_and_does_nothing(a):
    before = state(a)
    reply = a.command(f"plan A.port=5 A.key=geheim B.only={escape('with blanks')}")
    assert reply == Reply([
        "A.port=1 -> 5", "A.key=******* -> *******", "B.only=b -> with blanks",
        "--- /etc/shadow.d/a.conf", "+++ /etc/shadow.d/a.conf", "@@ -1,5 +1,5 @@",
        " # keep", " #psk=*******", "-port=1", "+port=5", " name=x", "-psk=*******", "+psk=*******",
        "--- /etc/a.conf", "+++ /etc/a.conf", "@@ -1,5 +1,5 @@",
        " # keep", " #psk=*******", "-port=1", "+port=5", " name=x", "-psk=*******", "+psk=*******",
        "--- /etc/b.conf", "+++ /etc/b.conf", "@@ -1,1 +1,1 @@", '-ONLY="b"', '+ONLY="with blanks"',
        "apply: syscall $QV_SYSROOT/act port", "apply: syscall $QV_SYSROOT/act b"], 0) or reply
    assert a.command("plan A.port=500 No.such=1") == Reply(
        ["A.port=##Invalid integer range#: 500", "No.such=##Parameter not found#"], 1)
    assert (state(a), ran(a), entries(a)) == (before, [], [])
    # Who is no administrator sees the lines that change, and no value that he may not read.
    op = a.login("op", "oper")
    a.command("set A.name=y", op)
    assert a.command("plan", op).lines[:9] == [
        "A.name=x -> y", "--- /etc/shadow.d/a.conf", "+++ /etc/shadow.d/a.conf", "@@ -1,5 +1,5 @@",
        " *******", " *******", " *******", "-name=x", "+name=y"]
    a.write("/etc/a.conf", "port=1\ntoken=geheim")  # that it gets a newline shows it to nobody
    assert a.command("plan", op).lines[-5:-1] == ["-*******", "\\ No newline at end of file", "+*******", "+name=y"]
    a.write("/etc/a.conf", A_CONF)
    assert a.command("plan B.only=1", op) == Reply(["B.only=##Invalid permission#"], 1)
    assert a.command("plan") == Reply([], 0)
    assert a.command("plan -a").lines[0] == "A.name=x -> y"


def test_what_cannot_be_read_is_not_told(a):
    a.command("set Private.note=hushed2")
    a.command("commit Write.only=hushed3")
    op = a.login("op", "oper")
    for line in ["plan -a Private.note=1 Write.only=1", "plan -a", "diff", "commit -c 600 A.port=5 Private.note=2 Write.only=2",
                 "commit -s", "history -j", "abort", "history -j", "rollback -2", "history -j"]:
        assert "hushed" not in str(a.command(line, op)), line
    assert "Private.note=******* -> *******" in a.command("plan Private.note=7", op).lines
    assert a.command("get Private.note Write.only").lines == ["Private.note=hushed", "Write.only=hushed3"]


def test_diff(a):
    a.command("set A.port=7 A.key=new")
    secret = "A.key=******* -> *******"
    assert a.command("diff") == Reply(["A.port=1 -> 7", secret], 0)
    a.command("save")
    assert a.command("diff saved") == Reply([], 0)
    assert a.command("diff running") == Reply(["A.port=1 -> 7"], 0)
    a.command("apply")
    assert a.command("diff running A") == Reply([], 0)
    assert a.command("diff default") == Reply(["A.port=1 -> 7", secret], 0)
    assert a.command("diff default No.such B") == Reply(["No.such=##Parameter not found#"], 1)
    a.write("/etc/a.conf", A_CONF)  # by somebody else: what is not known as changed is no difference
    a.command("set A.port=9")
    assert a.command("diff") == Reply(["A.port=1 -> 9"], 0)


def test_commit_sets_saves_and_applies(a):
    events = a.subscribe()
    reply = a.command(f"commit -m {escape('a, b')} A.port=5 A.name=y A.key=geheim B.new=1 Bare.note=z")
    assert reply == Reply([
        "A.port=1 -> 5", "A.name=x -> y", "A.key=******* -> *******", "B.new= -> 1", "Bare.note=n -> z",
        "apply: syscall $QV_SYSROOT/act port", "apply: syscall $QV_SYSROOT/act name",
        "apply: syscall $QV_SYSROOT/act b", "Commit=1"], 0)
    assert ran(a) == ["port 5", "name 5", "b 5"]
    assert a.read("/etc/a.conf") == a.read("/etc/shadow.d/a.conf") == A_CONF.replace("port=1", "port=5").replace(
        "name=x", "name=y").replace("psk=none", "psk=geheim")
    assert a.command("checkmod").lines == ["Bare.note=z"]  # it has no file
    assert a.command("checkapp").lines == []
    assert not a.path("/var/lib/qv/commit.undo").exists()
    events.wait_for("commit", "entry=1")
    [entry] = entries(a)
    assert entry.pop("time").endswith("Z")
    assert entry == {
        "number": 1, "user": "root", "source": entry["source"], "client": "e2e", "command": "commit", "text": "a, b",
        "end": "done", "more_values": 0,
        "values": [{"name": n, "old": o, "new": w} for n, o, w in [
            ("A.port", "1", "5"), ("A.name", "x", "y"), ("A.key", "*******", "*******"), ("B.new", "", "1"),
            ("Bare.note", "n", "z")]],
        "actions": [{"action": f"syscall $QV_SYSROOT/act {n}", "status": 0} for n in ("port", "name", "b")]}
    assert b"geheim" not in b"".join(p.read_bytes() for p in a.path("/var/lib/qv").iterdir())
    assert a.command("commit A.port=5") == Reply([], 0)  # nothing to do, and no entry
    assert len(entries(a)) == 1


@pytest.mark.parametrize("line, lines", [
    ("commit A.name=y A.port=100", ["A.port=##Invalid integer range#: 100"]),
    ("commit A.name=y B.gone=1", ["B.gone=##Parameter not found#"]),
    ("commit A.name=y A.port", ["A.port=##Invalid format#"]),
    ("commit -c 0 A.name=y", ["##Invalid command arguments#"]),
    ("commit -c A.name=y", ["##Invalid command arguments#"]),
    ("commit -m a%0Ab A.name=y", ["##Invalid command arguments#"]),
    ("rollback 7", ["##No such entry#"]),
    ("rollback x", ["##Invalid command arguments#"]),
    ("confirm", ["Commit=##Nothing awaits confirmation#"]),
    ("abort", ["Commit=##Nothing awaits confirmation#"]),
])
def test_what_is_refused_changes_nothing(a, line, lines):
    before = state(a)
    assert a.command(line) == Reply(lines, 1)
    assert (state(a), ran(a), entries(a)) == (before, [], [])


def test_pending_values_belong_to_their_session(a):
    admin, op = a.login("admin", "kelpo"), a.login("op", "oper")
    a.command("set A.port=5", admin)
    a.command("set A.name=y", op)
    assert a.command("commit", op).lines[0] == "A.name=x -> y"
    assert a.command("checkmod").lines == ["A.port=5"]
    a.command("set B.only=c", admin)
    assert a.command("commit -a", op).lines[0] == "A.port=1 -> 5"  # what he may write
    assert a.command("checkmod").lines == ["B.only=c"]
    a.command("set B.only=d")
    assert a.command("commit", admin) == Reply([], 0)  # who set it last
    assert a.command("commit").lines[0] == "B.only=b -> d"
    assert [e["user"] for e in entries(a)] == ["root", "op", "op"]
    assert [e["values"] for e in entries(a, "", op)] == [
        [{"name": "A.port", "old": "1", "new": "5"}], [{"name": "A.name", "old": "x", "new": "y"}]]


@pytest.mark.parametrize("pending", [False, True])
def test_a_failed_action_undoes_everything(a, pending):
    a.write("/fail.name", "")
    values = "A.port=5 A.name=y B.only=c B.new=1 A.key=k"
    if pending:
        a.command(f"set {values}")
    before = state(a)
    reply = a.command("commit" if pending else f"commit {values}")
    assert reply.code == 1
    failed = "syscall $QV_SYSROOT/act name"
    assert reply.lines[-7:] == [
        "A.name=##Apply failed#", "apply: syscall $QV_SYSROOT/act port", f"apply: {failed}: exit status 3",
        "undo: syscall $QV_SYSROOT/act port", f"undo: {failed}: exit status 3", "Commit.end=undone", "Commit=1"], reply
    assert state(a) == before
    assert ran(a) == ["port 5", "name 5", "port 1", "name 1"]
    assert ends(a) == [("commit", f"undone: {failed}: exit status 3")]
    os.unlink(a.path("/fail.name"))
    assert a.command("commit" if pending else f"commit {values}").code == 0
    assert a.read("/etc/new.conf") == 'NEW="1"\n'


def test_a_file_that_cannot_be_written_stops_all_others(a):
    os.unlink(a.path("/etc/b.conf"))
    a.path("/etc/b.conf").mkdir()
    before = a.read("/etc/a.conf")
    assert a.command("commit A.port=5 B.only=c") == Reply(["B.only=##Save failed#"], 1)
    assert (a.read("/etc/a.conf"), a.get("A.port"), ran(a)) == (before, "1", [])


def test_unconfirmed_commits_are_undone(a):
    events = a.subscribe()
    before = state(a)
    assert a.command("commit -c 600 A.port=5 B.new=1").lines[-2:] == ["Commit=1", "Commit.seconds=600"]
    assert a.get("A.port") == "5"
    status = dict(line.split("=", 1) for line in a.command("commit -s").lines)
    assert (status["Commit"], status["Commit.user"]) == ("1", "root")
    assert 590 < int(status["Commit.seconds"]) <= 600
    awaits = "Commit=##Commit 1 awaits confirmation#"
    assert a.command("commit A.name=z") == a.command("rollback -1") == Reply([awaits], 1)
    op = a.login("op", "oper")
    assert a.command("confirm", op) == a.command("abort", op) == Reply(["Commit=##Invalid permission#"], 1)
    assert a.command("confirm 2") == Reply(["Commit=##Nothing awaits confirmation#"], 1)
    assert a.command("confirm -c 1") == Reply(["Confirm=1", "Commit.seconds=1"], 0)
    events.wait_for("rollback", "entry=2")
    assert state(a) == before
    assert ran(a) == ["port 5", "b 5", "port 1", "b 1"]
    assert ends(a) == [("rollback", "done"), ("commit", "undone: not confirmed in time")]
    assert a.command("commit -s") == Reply(["Commit=none"], 0)
    # Confirmed, or undone by hand.
    a.command("commit -c 600 A.port=6")
    assert a.command("abort").lines == ["A.port=6 -> 1", "undo: syscall $QV_SYSROOT/act port", "Rollback=4"]
    assert state(a) == before
    a.command("commit -c 600 A.port=7")
    assert a.command("confirm 5") == Reply(["Confirm=5"], 0)
    events.wait_for("confirm", "entry=5")
    assert (a.get("A.port"), ends(a)[0]) == ("7", ("commit", "confirmed"))
    a.restart()
    assert a.get("A.port") == "7"


def test_what_was_saved_and_not_applied(a):
    a.command("set A.port=5")
    a.command("save")
    a.command("commit -c 600 A.port=7")
    assert a.command("abort").lines[0] == "A.port=7 -> 5"
    assert (a.get("A.port"), a.read("/etc/a.conf")) == ("5", A_CONF.replace("port=1", "port=5"))


@pytest.mark.parametrize("values, port", [("Also.port=3", "3"), ("A.port=2 Also.port=3", "3"), ("Also.port=3 A.port=2", "2")])
def test_linked_apis(a, values, port):
    a.command("update A.port=7")
    assert a.command(f"commit -c 600 {values}").code == 0
    assert a.command("get A.port Also.port").lines == [f"A.port={port}", f"Also.port={port}"]
    assert f"port={port}\n" in a.read("/etc/a.conf")
    assert a.command("abort").code == 0
    assert a.command("get A.port Also.port").lines == ["A.port=7", "Also.port=7"]
    assert "port=7\n" in a.read("/etc/a.conf")
    assert a.command("checkmod").lines == []


def test_what_others_set_stays_when_an_action_fails(a):
    a.write("/hold", "")
    a.write("/fail.port", "")
    with a.connect(greeting=b"e2e 0 0\ncommit A.port=5 A.name=y\n\n") as commit:
        wait_until(lambda: a.read_or_empty("/ran"), "the action to run")
        a.command("set A.port=8 A.name=x")
        a.write("/go", "")
        commit.read_all()
    assert a.command("diff") == a.command("diff running") == Reply(["A.port=1 -> 8"], 0)
    assert a.command("checkmod").lines == a.command("checkapp").lines == ["A.port=8"]
LATER = metadata("A.later: attr = later; default = l; apply = syscall_delay 1 $QV_SYSROOT/act later")


def test_actions_that_run_later_are_undone_too(appliance):
    a = appliance(META + LATER, FILES)
    a.write("/act", ACTION, 0o755)
    a.start()

    def ran_later():
        return [line for line in a.read_or_empty("/ran").splitlines() if line.startswith("later")]

    # Undone, but for what runs in a second: a daemon that is killed before does not forget it, and nothing else again.
    a.command("commit -c 600 A.port=5 A.later=m")
    wait_until(ran_later, "the action")
    ran(a)
    assert a.command("abort").lines[-3:] == [
        "undo: syscall $QV_SYSROOT/act port", "undo: syscall_delay 1 $QV_SYSROOT/act later", "Rollback=2"]
    a.command("update A.port=5")
    a.kill()
    a.start()
    wait_until(lambda: not a.path("/var/lib/qv/commit.undo").exists(), "the undoing to end")
    assert len(ran_later()) == 1
    assert a.command("get A.port A.later").lines == ["A.port=5", "A.later=l"]
    assert ends(a) == [("update", "done"), ("rollback", "done"), ("commit", "undone: aborted")]
    ran(a)

    # The next one waits for it.
    a.command("commit -c 600 A.later=n")
    a.command("abort")
    assert a.command("commit A.port=7").code == 0
    assert ran(a)[0] == "later 5"

    # By itself nobody has to get a reply first: it is waited for, and told how it ended.
    events = a.subscribe()
    a.write("/fail.later", "")
    number = a.command("commit -c 1 A.later=o").lines[-2].removeprefix("Commit=")
    events.wait_for("rollback", f"entry={int(number) + 1}")
    assert entries(a)[0]["actions"] == [{"action": "syscall_delay 1 $QV_SYSROOT/act later", "status": 3 << 8}]


def test_what_others_saved_meanwhile_stays(a):
    a.command("commit -c 600 A.port=5 A.name=y")
    a.command("update A.name=theirs")
    a.command("set A.port=8")
    assert a.command("abort").code == 0
    assert "port=1\n" in a.read("/etc/a.conf") and "name=theirs\n" in a.read("/etc/a.conf")
    assert a.read("/etc/a.conf") == a.read("/etc/shadow.d/a.conf")
    assert a.command("get A.port A.name").lines == ["A.port=8", "A.name=theirs"]
    assert a.command("diff").lines == ["A.port=1 -> 8"]
    # Theirs is in the file, and what is set back by hand is still to be saved.
    a.command("revert")
    a.command("commit -c 600 A.name=z")
    a.command("update A.name=other")
    a.command("set A.name=theirs")
    assert a.command("abort").code == 0
    assert a.command("diff").lines == ["A.name=other -> theirs"]


@pytest.mark.parametrize("how", ["kill", "stop"])
def test_an_end_of_the_daemon_undoes_what_is_not_confirmed(a, how):
    before = state(a)
    a.command("commit -c 600 A.port=5 A.key=k B.new=1")
    ran(a)
    getattr(a, how)()
    a.start()
    assert state(a) == before
    wait_until(lambda: not a.path("/var/lib/qv/commit.undo").exists(), "the undoing to end")
    assert sorted(ran(a)) == ["b 1", "port 1"]
    assert ends(a) == [("rollback", "done"), ("commit", "undone: the daemon ended before it was settled")]
    assert [v["name"] for v in entries(a)[0]["values"]] == ["A.port", "A.key", "B.new"]


def test_a_kill_while_an_action_runs(a):
    before = state(a)
    a.write("/hold", "")
    with a.connect(greeting=b"e2e 0 0\ncommit A.port=5 B.new=1\n"):
        wait_until(lambda: a.read_or_empty("/ran"), "the action to run")
        assert a.command("commit -n B.only=c") == Reply(["Commit=##Another commit is running#"], 1)
        a.kill()
    a.write("/go", "")
    a.start()
    assert state(a) == before
    wait_until(lambda: not a.path("/var/lib/qv/commit.undo").exists(), "the undoing to end")
    [undone] = [e for e in entries(a) if e["command"] == "commit"]
    assert undone["end"].startswith("undone: ") and undone["values"][0] == {"name": "A.port", "old": "1", "new": "5"}


def test_the_daemon_ends_while_it_undoes(a):
    before = state(a)
    a.command("commit -c 1 A.port=5")
    ran(a)
    a.write("/hold", "")
    wait_until(lambda: a.read_or_empty("/ran"), "the action to run again")
    a.stop()
    a.write("/go", "")
    a.start()
    wait_until(lambda: not a.path("/var/lib/qv/commit.undo").exists(), "the undoing to end")
    assert state(a) == before


@pytest.mark.parametrize("end", ["fail", "abort", "kill"])
@pytest.mark.parametrize("selection", ["System.Configuration.Profiles.current", "G.Profiles.name"])
def test_a_profile_that_is_loaded_is_undone(a, selection, end):
    a.write("/etc/profiles/P.hdf", "A {\n port = 9\n name = prof\n key = pk\n}\nG {\n Profiles {\n  name = P\n  desc = T\n}\n}\n")
    everything = state(a), a.command("get").lines
    values = f"A.port=5 {selection}=P B.only=c"
    if end == "fail":
        a.write("/fail.b", "")
        assert a.command(f"commit {values}").lines[-2:] == ["Commit.end=undone", "Commit=1"]
    else:
        assert a.command(f"commit -c 600 {values}").code == 0
        assert (a.get("A.port"), a.get("A.name")) == ("9", "prof")
    if end == "abort":
        assert a.command("abort").code == 0
    elif end == "kill":
        a.kill()
        a.start()
        wait_until(lambda: not a.path("/var/lib/qv/commit.undo").exists(), "the undoing to end")
    assert (state(a), a.command("get").lines) == everything
    assert ran(a)[-1].endswith(" 1")
    assert b"pk" not in b"".join(p.read_bytes() for p in a.path("/var/lib/qv").iterdir())


def test_a_device_that_fails_keeps_nothing_from_ending(a):
    a.path("/dev.line").symlink_to("/dev/full")
    reply = a.command("commit A.port=5 Dev.line=x")
    assert reply.lines == ["Dev.line=##Save failed#", "Commit=##Can not undo: Dev.line#", "Commit.end=undone", "Commit=1"]
    os.unlink(a.path("/dev.line"))
    a.write("/dev.line", "")
    assert a.command("commit -c 600 A.port=5 Dev.line=x").code == 0
    os.unlink(a.path("/dev.line"))
    a.path("/dev.line").symlink_to("/dev/full")
    assert a.command("abort").code == 1
    assert (a.get("A.port"), a.get("Dev.line")) == ("1", "d")
    assert a.command("commit A.port=6").code == 0


def test_a_record_that_stays_runs_no_action_again(a):
    a.command("commit -c 600 A.port=5")
    ran(a)
    record = a.path("/var/lib/qv/commit.undo")
    record.rename(record.with_name("aside"))
    (record / "x").mkdir(parents=True)
    assert a.command("abort").lines[-3:-1] == [
        "Commit=##Can not undo: its record stays: Is a directory#", "undo: syscall $QV_SYSROOT/act port"]
    assert a.command("commit A.port=6") == Reply(["Commit=##A commit is being undone#"], 1)
    wait_until(lambda: a.log().count("its record stays") > 1, "another try")
    (record / "x").rmdir()
    record.rmdir()
    wait_until(lambda: a.command("commit A.name=y").code == 0, "its end")
    assert ran(a) == ["port 1", "name 1"]


def test_commits_that_wait_leave_room_for_others(a):
    a.write("/hold", "")
    commits = [a.connect(greeting=b"e2e 0 0\ncommit A.port=2\n\n")]
    wait_until(lambda: a.read_or_empty("/ran"), "the action to run")
    commits += [a.connect(greeting=b"e2e 0 0\ncommit A.port=%d\n\n" % n) for n in range(3, 99)]
    wait_until(lambda: a.log().count("cmd: [commit]") == len(commits), "all commits to wait")
    assert a.command("modify A.name=y").code == 0
    a.write("/go", "")
    ended = [commit.read_all().endswith(b"@\n0\n") for commit in commits]
    assert ended[0] and 20 < sum(ended) < 40
    assert a.command("commit A.port=1").code == 0


def test_an_action_that_ends_the_daemon_does_so_for_two_starts_only(a):
    before = state(a)
    a.command("commit -c 600 A.port=5")
    a.kill()
    wait_for_go = 'while ! rm "$QV_SYSROOT/go" 2>/dev/null; do sleep 0.01; done'
    a.write("/act", f"#!/bin/sh\n{wait_for_go}\nkill -9 $(cat $QV_SYSROOT/var/run/qvcd.pid)\n", 0o755)
    for _ in range(2):
        a.start()
        a.write("/go", "")
        assert a.reap() == -signal.SIGKILL
    a.start()
    wait_until(lambda: not a.path("/var/lib/qv/commit.undo").exists(), "the undoing to end")
    assert state(a) == before
    assert ends(a) == [("rollback", "done"), ("commit", "undone: the daemon ended before it was settled")]


def test_history_of_the_other_commands(a):
    a.command("set A.port=2")  # never saved: no entry
    a.command("revert")
    a.write("/in.hdf", "A {\n  name = imported\n}\n")
    for line in ["sets A.port=3", "save", "seta A.port=4", "apply", "update A.name=u", "import /in.hdf 3",
                 "user.passwd op geheim", "user.list", "user.add bob 3", "factory_reset network", "get A", "apply"]:
        a.command(line)
    told = [(e["command"], e["text"], [(v["name"], v["old"], v["new"]) for v in e["values"]]) for e in entries(a)]
    assert told[::-1] == [
        ("save", "", [("A.port", "1", "3")]),
        ("apply", "", [("A.port", "3", "4")]),
        ("update", "", [("A.name", "x", "u")]),
        ("import", "/in.hdf 3", [("A.name", "u", "imported")]),
        ("user", "passwd op", []),
        ("user", "add bob", []),
        ("factory_reset", "network", [])]
    assert [e["number"] for e in entries(a, "A.port")] == [2, 1]
    assert [e["number"] for e in entries(a, "-n 1 A")] == [4]
    assert entries(a, "No") == []
    text = a.command("history -n 1 A.port").lines
    assert re.fullmatch(r"2 \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ root \(.*, e2e\) apply: done", text[0])
    assert text[1:] == ["    A.port=3 -> 4", "    apply: syscall $QV_SYSROOT/act port"]


def test_what_has_become_a_password_is_hidden(a):
    a.command("commit A.name=geheim")
    a.stop()
    a.write("/usr/share/qvapi/apimeta.hdf", META.replace("A.name.type = string_length 0 99", "A.name.type = password"))
    a.start()
    assert a.command("history").lines[1] == "    A.name=******* -> *******"


def test_rollback(a):
    start = state(a)
    for line in ["commit A.port=2", "commit A.port=3 A.key=k", "update A.name=y", "commit B.only=c"]:
        assert a.command(line).code == 0
    assert a.command("rollback -1").lines == ["B.only=c -> b", "apply: syscall $QV_SYSROOT/act b", "Rollback=5"]
    assert a.command("rollback -1").lines[0] == "B.only=b -> c"  # undoes the undoing
    reply = a.command("rollback -c 600 2")
    assert reply.lines[:3] == ["A.name=y -> x", "A.port=3 -> 2", "B.only=c -> b"] and reply.code == 0
    assert "A.key=##Passwords are not kept#" in reply.lines
    assert a.command("abort").code == 0
    assert a.command("rollback 1").code == 0
    a.command("commit A.key=none")
    assert state(a) == start


def test_a_damaged_record_stops_nothing(a):
    a.command("commit -c 600 A.port=5")
    a.kill()
    record = a.path("/var/lib/qv/commit.undo").read_bytes()
    for damaged in [b"", record[:-1], record.replace(b"A.port", b"A.name"), b"\x81" * 1000000]:
        a.write("/var/lib/qv/commit.undo", damaged)
        a.start()
        assert a.command("commit A.port=6").code == 0
        assert a.path("/var/lib/qv/commit.undo.damaged").read_bytes() == damaged
        a.command("commit A.port=5")
        a.stop()


@pytest.mark.parametrize("restart", [False, True])
def test_an_end_that_could_not_be_told_is_told_later(a, restart):
    a.command("commit -c 600 A.port=5")
    other = sqlite3.connect(a.path("/var/lib/qv/history.db"), isolation_level=None)
    other.execute("BEGIN IMMEDIATE")
    reply = a.command("confirm")
    assert (reply.lines[0], reply.code) == ("Confirm=1", 0) and "History=##" in reply.lines[1]
    if restart:
        a.kill()
    other.execute("ROLLBACK")
    other.close()
    if restart:
        a.start()
    assert ends(a) == [("commit", "confirmed")]


def test_damaged_history_stops_nothing(a):
    a.command("commit A.port=2")
    a.stop()
    a.write("/var/lib/qv/history.db", "rubbish" * 1000)
    a.start()
    reply = a.command("commit A.port=3")
    assert reply.code == 0 and "History=##" in reply.lines[-1], reply
    assert a.path("/var/lib/qv/history.db.damaged").exists()
    assert [e["values"][0]["new"] for e in entries(a)] == ["3"]
    with sqlite3.connect(a.path("/var/lib/qv/history.db")) as other:  # for other tools
        assert other.execute("PRAGMA integrity_check").fetchone() == ("ok",)


def test_commits_against_each_other(a):
    stop = time.monotonic() + 4
    lock = threading.Lock()
    done = []

    def client(number):
        i = 0
        while time.monotonic() < stop:
            i += 1
            value = (number * 7 + i) % 90 + 1
            line = [f"commit A.port={value} B.only=c{value}", f"commit -c 60 A.port={value} A.name=n{value}", "confirm",
                    "abort", f"set A.name=s{value}", "commit", f"update B.new=u{value}", "rollback -1", "apply", "save"]
            reply = a.command(line[(number + i) % len(line)])
            with lock:
                done.append(reply)

    threads = [threading.Thread(target=client, args=(n,)) for n in range(20)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(done) > 20
    a.command("confirm")
    assert a.command("commit -a").code == 0
    assert a.command("save").code == 0 and a.command("apply").code == 0
    values = a.command(SETTINGS).lines
    assert (a.command("checkmod").lines, a.command("checkapp").lines, a.command("diff").lines) == (
        [line for line in values if line.startswith("Bare") and line != "Bare.note=n"], [], [])
    assert a.read("/etc/a.conf") == a.read("/etc/shadow.d/a.conf")
    a.restart()
    assert a.command(SETTINGS).lines == values
    assert not a.path("/var/lib/qv/commit.undo").exists()
