"""Values on their way into files of other programs: nothing lost, nothing torn, nothing else changed."""

import os
import stat
import threading

import pytest

from appliance import WAIT_FOR_GO, Reply, wait_until
from test_crash import SmallDisk, Tracer, require_strace

GROUP = "%s {{\n perm = 7777\n read = {0}_rfunc\n write = {0}_wfunc\n file = %s\n v.attr = v\n v.default = 0\n {1}\n}}\n"


def group(name, file, kind="kv", more=""):
    """A group of one API "v"."""
    return GROUP.format(kind, more) % (name, file)


def failed(*apis):
    return [f"{api}=##Save failed#" for api in apis]


def is_modified(a, *values):
    return a.command("checkmod") == Reply(list(values), 0)


# ---- What fails ----


def test_what_fails_is_named_and_takes_nothing_with_it(appliance):
    meta = "".join(group(name, f"/etc/{name}.conf", *kind) for name, kind in (
        ("A", ()), ("B", ("kv", "write = no_wfunc")), ("C", ()), ("D", ("quotedkv",)), ("E", ()), ("F", ("quotedkv",))
    )) + group("G", "/etc/A.conf", "kv", "v.attr = other")  # fmt: skip
    a = appliance(meta).start()
    for name in "CD":  # both kinds of writers; not to be read as a file
        a.path(f"/etc/{name}.conf").rename(a.path(f"/etc/{name}.old"))
        a.path(f"/etc/{name}.conf").mkdir()
    os.truncate(a.path("/etc/F.conf"), (64 << 20) + 1)
    a.command("set A.v=1 B.v=1 C.v=1 D.v=1 E.v=%3dx F.v=1 G.v=1")
    assert a.command("save A G") == Reply(["A.v=1", "G.v=1"], 0)
    a.command("set A.v=2 G.v=2")
    not_saved = ["B.v=1", "C.v=1", "D.v=1", "E.v==x", "F.v=1"]
    assert a.command("save") == Reply(["A.v=2", "G.v=2", *failed("B.v", "C.v", "D.v", "E.v", "F.v")], 1)
    assert is_modified(a, *not_saved)
    assert a.read("/etc/A.conf") == "v=2\nother=2\n" and a.read("/etc/E.conf") == "v=0\n"
    assert a.path("/etc/F.conf").stat().st_size == (64 << 20) + 1
    for line in ("C.conf: reading: Is a directory", "D.conf: reading: Is a directory", "F.conf: reading: File too large"):
        assert a.logged(f"Can not save /etc/{line}")
    assert any(line.startswith("Can not save E.v: ") for line in a.log().splitlines())
    assert not a.logged("Save C.v=1")
    # The cause is gone, so saving again saves.
    for name in "CD":
        a.path(f"/etc/{name}.conf").rmdir()
        a.path(f"/etc/{name}.old").rename(a.path(f"/etc/{name}.conf"))
    assert a.command("save C D C.v") == Reply(["C.v=1", "D.v=1"], 0)
    assert a.read("/etc/C.conf") + a.read("/etc/D.conf") == 'v=1\nv="1"\n'


def test_a_live_value_that_does_not_arrive_is_refused(appliance):
    a = appliance(group("A", "/etc/a.conf", "kv", "dynamic = true") + group("Q", "/none/q.conf", "quotedkv", "dynamic = true"))
    a.start()
    assert a.command("set A.v=1 Q.v=1") == Reply(["A.v=1", *failed("Q.v")], 1)
    assert a.read("/etc/a.conf") == "v=1\n" and a.logged("Can not write /none/q.conf: No such file or directory")


# ---- What the files hold ----


def test_an_ntp_configuration_keeps_the_saved_server(appliance):
    meta = "Services.NTP {\n perm = 7777\n read = ntp_rfunc\n write = ntp_wfunc\n file = /etc/ntp.conf\n" + "".join(
        f"{name}.attr = {name}\n{name}.default = {default}\n" for name, default in (("server", "own"), ("interval", "daily"))
    )
    text = "# the server line\nrestrict default\n"
    a = appliance(meta + "}\n", {"/etc/ntp.conf": text}).start()
    line = "server %s minpoll 12 maxpoll %d iburst\n"
    assert a.read("/etc/ntp.conf") == text + line % ("own", 16)  # the APIs' own defaults
    a.command("set Services.NTP.server=b Services.NTP.interval=hourly")
    assert a.command("save Services.NTP.server").code == 0  # and not what is not saved yet
    assert a.read("/etc/ntp.conf") == text + line % ("b", 16)
    assert a.command("update Services.NTP.server=").lines[-1:] == failed("Services.NTP.server")
    a.restart()
    assert a.command("get Services.NTP").lines == ["Services.NTP.server=b", "Services.NTP.interval=daily"]
    assert a.read("/etc/ntp.conf") == text + line % ("b", 16)


def test_secrets_are_not_for_others(appliance):
    secret = "v.type = password 0 99\n shadow = /etc/shadow.conf"
    a = appliance(group("P", "/new/p.conf", "kv", secret) + group("Q", "/etc/q.conf", "kv", "shadow = /etc/q.shadow"), {"/etc/q.conf": ("", 0o600)})
    a.start()
    a.path("/new").mkdir()
    events = a.subscribe()
    a.command("set P.v=hush Q.v=1")
    assert a.command("save") == Reply(["P.v=*******", "Q.v=1"], 0)
    assert a.read("/new/p.conf") == a.read("/etc/shadow.conf") == "v=hush\n"
    for name in ("/new/p.conf", "/etc/shadow.conf", "/etc/q.conf", "/etc/q.shadow"):
        assert a.path(name).stat().st_mode & 0o777 == 0o600, name
    events.wait_for("save", "Q.v=1")
    assert ("save", "P.v=*******") in events.seen() and "hush" not in a.log()


# ---- What is no plain file ----


def test_a_missing_device_is_not_made(appliance):
    a = appliance(group("D", "/dev/light", "io") + group("E", "/dev/pipe", "io")).start()
    a.path("/dev").mkdir()
    os.mkfifo(a.path("/dev/pipe"))
    a.command("set D.v=1")
    assert a.command("save") == Reply(["D.v=1"], 0)
    a.command("set E.v=1")
    assert a.command("save") == Reply(failed("E.v"), 1)  # nobody reads; and the daemon does not wait
    assert os.listdir(a.path("/dev")) == ["pipe"] and stat.S_ISFIFO(a.path("/dev/pipe").stat().st_mode)


# The file is mounted on its own; its folder cannot be written.
PLACES = {
    "mounted file": 'mount --bind "$0/etc/full.conf" "$0/etc/full.conf"',
    "read-only folder": 'mount --bind "$0/etc/full.conf" "$0/etc/full.conf" && mount -o remount,bind,ro "$0"',
}


@pytest.mark.parametrize("place", PLACES)
def test_what_cannot_be_renamed_over_is_written_in_place(appliance, place):
    old = f"# {4000 * 'x'}\nv=old and longer\n"
    a = appliance(group("M", "/full/etc/full.conf") + group("B", "/etc/b.conf"), {"/old": old})
    disk = SmallDisk(a, "/full")
    a.start(wrapper=disk.wrapper(PLACES[place]))
    node = disk.path("etc/full.conf").stat().st_ino
    a.command("set M.v=new B.v=1")
    assert a.command("save") == Reply(["M.v=new", "B.v=1"], 0)
    new = old.replace("old and longer", "new")
    assert disk.path("etc/full.conf").read_text() == new
    assert disk.path("etc/full.conf").stat().st_ino == node and os.listdir(disk.path("etc")) == ["full.conf"]
    assert [n for n in os.listdir(a.path("/var/lib/qv")) if not n.startswith("history.db")] == ["save.journal"]
    if place == "read-only folder":
        return
    disk.fill()
    a.command(f"set M.v={1000 * 'n'}")
    assert a.command("save") == Reply(failed("M.v"), 1)
    assert disk.path("etc/full.conf").read_text() == new


# ---- Several at once ----


class SlowDisk(Tracer):
    """Each flush takes this long."""

    def __init__(self, a, seconds):
        super().__init__(a, "-e", "trace=fsync", "-e", f"inject=fsync:delay_enter={seconds * 1000000:.0f}")


def in_background(a, line):
    replies = []
    thread = threading.Thread(target=lambda: replies.append(a.command(line)), daemon=True)
    thread.start()
    return replies, thread


def test_others_go_on_while_a_save_flushes(appliance):
    require_strace()
    a = appliance(group("A", "/etc/a.conf") + group("B", "/etc/b.conf") + group("L", "/etc/l.conf", "kv", "dynamic = true"))
    a.start()
    a.command("set A.v=1 B.v=1")
    tracer = SlowDisk(a, 0.4)
    replies, thread = in_background(a, "save")
    wait_until(lambda: any(name.startswith(".qvcd-new") for name in os.listdir(a.path("/etc"))), "the save to begin")
    # A later value, and a value like the first one's; another save and a live value have to wait for their turn.
    assert a.command("set A.v=2 B.v=2 B.v=1") == Reply(["A.v=2", "B.v=2", "B.v=1"], 0)
    second, second_thread = in_background(a, "save A")
    third, third_thread = in_background(a, "set L.v=5")
    assert a.get("A.v") == "2" and a.answers()
    assert not replies and not second and not third, "no longer while the save flushes"
    for one in (thread, second_thread, third_thread):
        one.join()
    tracer.stop()
    assert replies == [Reply(["A.v=1", "B.v=1"], 0)] and second == [Reply(["A.v=2"], 0)] and third == [Reply(["L.v=5"], 0)]
    assert a.read("/etc/a.conf") + a.read("/etc/b.conf") + a.read("/etc/l.conf") == "v=2\nv=1\nv=5\n"
    assert is_modified(a)


def test_a_set_while_a_reload_reads_is_not_lost(appliance):
    meta = group("A", "/etc/a.conf", "kv", "read = syscall_rfunc\n v.attr = $QV_SYSROOT/reader")
    a = appliance(meta, {"/reader": ("#!/bin/sh\necho 7\n", 0o755)}).start()
    a.write("/reader", WAIT_FOR_GO, 0o755)
    replies, thread = in_background(a, "reload A")
    wait_until(a.path("/started").exists, "the reader")
    assert a.command("sets A.v=9").code == 0
    a.write("/go", "")
    thread.join()
    assert replies[0].code == 0 and a.get("A.v") == "9" and is_modified(a, "A.v=9")


# ---- The next start ----


def test_the_start_leaves_alone_what_it_cannot_read(appliance):
    a = appliance(group("A", "/etc/a.conf") + group("B", "/etc/b.conf", "quotedkv"), {"/etc/a.conf": 'v=5\n', "/etc/b.conf": 'v="6"\n'})
    for name in "ab":
        a.path(f"/etc/{name}.conf").rename(a.path(f"/etc/{name}.real"))
        a.path(f"/etc/{name}.conf").symlink_to(f"{name}.conf")
    a.start(level=1)
    assert a.get("A.v") == a.get("B.v") == "0"
    assert a.logged("Can not read A.v: Too many levels of symbolic links. It has its default, its file stays")
    for name in "ab":
        assert a.path(f"/etc/{name}.conf").is_symlink()
        a.path(f"/etc/{name}.real").rename(a.path(f"/etc/{name}.conf"))
    a.restart(level=1)
    assert (a.get("A.v"), a.get("B.v")) == ("5", "6")
