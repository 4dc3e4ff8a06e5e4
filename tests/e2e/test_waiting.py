"""What a command waits for outside the daemon: limits, turns, and what others see of it meanwhile."""

import contextlib
import ctypes
import shutil
import ssl
import subprocess
import threading
import time

import pytest

from appliance import Reply, Reservation, metadata, wait_until

FAILED = "##Apply failed#"

# Notes when it comes and goes; waits in between until the test lets it go on.
WAIT_FOR_GO = """#!/bin/sh
echo "+${0##*/}" >>"$QV_SYSROOT/notes"
while [ ! -e "$QV_SYSROOT/go" ]; do sleep 0.01; done
echo "-${0##*/}" >>"$QV_SYSROOT/notes"
"""


def model(read="no_rfunc", more="", **apis):
    """A group of APIs, each with its attribute lines."""
    lines = "".join(f"{name} {{\n attr = x\n default = 0\n {text}\n}}\n" for name, text in apis.items())
    return f"A {{\n perm = 7777\n read = {read}\n {more}\n{lines}}}\n"


def notes(a):
    return a.read_or_empty("/notes").split()


def ask(a, *lines):
    """Sends a request; the answer is fetched with read_all()."""
    return a.connect(greeting="".join(f"{line}\n" for line in ("me 0 0", *lines, "")))


# ---- Limits ----

def test_actions_that_never_end(appliance):
    scripts = {"/etc/init.d/hangs": ("#!/bin/sh\nsleep 60\n", 0o755)}
    words = {"calls": "syscall sleep 61", "script": "initd_restart hangs", "well": "syscall true"}
    a = appliance(model(more="timeout = 1", **{n: f"apply = {w}" for n, w in words.items()}), scripts).start()
    asked = [ask(a, f"set A.{name}=1", f"apply A.{name}") for name in words]
    answers = [c.read_all().decode().splitlines() for c in asked]
    assert answers == [
        ["A.calls=1", "A.calls=1", f"A.calls={FAILED}", "@", "0"],
        ["A.script=1", "A.script=1", f"A.script={FAILED}", "@", "0"],
        ["A.well=1", "A.well=1", "@", "0"],
    ]
    assert a.logged("ended, its time is over: sleep 61  >/dev/null")


def test_an_action_that_takes_long_is_named_while_it_runs(appliance):
    a = appliance(model(n="apply = syscall $QV_SYSROOT/long"), {"/long": (WAIT_FOR_GO, 0o755)}).start()
    applying = ask(a, "set A.n=1", "apply A.n")
    line = "still runs after 10 s: $QV_SYSROOT/long  >/dev/null"
    wait_until(lambda: a.logged(line), "the line in the log", 40)
    a.write("/go", "")
    assert applying.read_all() == b"A.n=1\nA.n=1\n@\n0\n"


def test_stop_forgets_delayed_commands(appliance):
    later = "syscall_delay 3600 touch $QV_SYSROOT/late"
    a = appliance(model(n=f"apply = {later}", m="apply = syscall_delay 0 sleep 60")).start()
    assert a.command("seta A.n=1 A.m=1").code == 0
    assert a.command("apply").code == 0
    a.stop()
    assert a.logged("not run any more, the daemon stops: touch $QV_SYSROOT/late  >/dev/null 2>&1")


def test_stop_leaves_behind_what_does_not_end(appliance):
    """After its patience the daemon goes, and who still waits sees nothing of what is gone already."""
    actions = {"now": "apply = syscall touch $QV_SYSROOT/now; sleep 60", "later": "apply = syscall_delay 0 sleep 61"}
    reader = "A.r {\n dynamic = true\n read = syscall_rfunc\n attr = touch $QV_SYSROOT/read; sleep 62\n}\n"
    a = appliance(model(calm="", **actions) + reader).start()
    applying = ask(a, "seta A.later=1 A.now=1", "apply A.later A.now", "get A")
    reading = ask(a, "get A.calm", "get A.r", "get A")
    for name in ("/now", "/read"):
        wait_until(a.path(name).exists, "the commands")
    a.stop()
    assert applying.read_all() == 2 * b"A.later=1\nA.now=1\n"
    assert reading.read_all() == b"A.calm=0\n"
    assert "\nserver threads did not end in time: " in a.log()
    assert a.log().endswith("\nexit\n")


# ---- Turns ----


def test_one_init_script_never_runs_twice_at_once(appliance):
    scripts = {f"/etc/init.d/{name}": (WAIT_FOR_GO, 0o755) for name in ("web", "other")}
    actions = {"one": "web", "two": "web", "other": "other"}
    a = appliance(model(**{n: f"apply = initd_restart {s}" for n, s in actions.items()}), scripts).start()
    asked = []
    for name, seen in (("one", 1), ("two", 1), ("other", 2)):
        asked.append(ask(a, f"set A.{name}=1", f"apply A.{name}"))
        assert asked[-1].read_lines(2) == 2 * f"A.{name}=1\n".encode()
        wait_until(lambda: len(notes(a)) == seen, "the script")
    assert notes(a) == ["+web", "+other"]
    assert a.command("get A.one") == Reply(["A.one=1"], 0)
    a.write("/go", "")
    assert [c.read_all() for c in asked] == 3 * [b"@\n0\n"]
    assert [n for n in notes(a) if n.endswith("web")] == 2 * ["+web", "-web"]


# ---- What others see ----


def test_answers_come_before_the_action_ends_the_daemon(appliance):
    script = '#!/bin/sh\nkill -KILL "$(cat "$QV_SYSROOT/var/run/qvcd.pid")"\n'
    a = appliance(model(n="apply = initd_restart network"), {"/etc/init.d/network": (script, 0o755)}).start()
    assert ask(a, "set A.n=1", "save", "apply", "get A.n").read_all() == 2 * b"A.n=1\n"
    a.reap()


def test_many_actions_that_ask_the_daemon_themselves(appliance):
    """Each waits for an answer from the daemon that runs it."""
    script = '#!/bin/sh\nqvc get "A.${0##*/}" >>"$QV_SYSROOT/notes"\n'
    names = [f"n{i}" for i in range(30)]
    scripts = {f"/etc/init.d/{name}": (script, 0o755) for name in names}
    a = appliance(model(**{n: f"apply = initd_restart {n}" for n in names}), scripts).start()
    started = time.monotonic()
    asked = [ask(a, f"set A.{name}=1", f"apply A.{name}") for name in names]
    for name, c in zip(names, asked):
        assert c.read_all().decode().splitlines() == 2 * [f"A.{name}=1"] + ["@", "0"]
    assert sorted(notes(a)) == sorted(f"A.{name}=1" for name in names)
    assert time.monotonic() - started < 25  # places that were not free would be waited for for 30 s


# ---- Probes ----

UPLINK = metadata("""
System.Configuration.Uplink: perm = 7777; read = no_rfunc
System.Configuration.Uplink.maker_url: attr = x; default = %s
System.Configuration.Uplink.public_url: attr = x; default = %s
Net.uplink: perm = 7777; dynamic = true; attr = x; read = uplink_rfunc
""")


def test_uplink_over_https(appliance):
    a = appliance()
    certificate = [a.path("/key.pem"), a.path("/cert.pem")]
    request = "openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=unit -days 1 -keyout {} -out {}"
    subprocess.run(request.format(*certificate).split(), check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate[1], certificate[0])
    with contextlib.ExitStack() as stack:
        server = stack.enter_context(contextlib.closing(Reservation()))
        server.socket.listen()

        def answer():
            with contextlib.suppress(OSError):
                while True:
                    client, _ = server.socket.accept()
                    with client, contextlib.suppress(OSError), context.wrap_socket(client, server_side=True) as tls:
                        tls.recv(4096)
                        tls.sendall(b"HTTP/1.1 503 Not Now\r\nContent-Length: 0\r\n\r\n")

        threading.Thread(target=answer, daemon=True).start()
        url = f"https://127.0.0.1:{server.port}/"
        a.write("/usr/share/qvapi/apimeta.hdf", UPLINK % (url, url))
        a.start()
        assert a.get("Net.uplink") == "provider"


def own_network_and_name_server(resolver):
    """In the child: a network with nothing but its loopback, and a resolver configuration of its own."""

    def enter():
        clone_newns, clone_newnet, ms_rec, ms_private, ms_bind = 0x00020000, 0x40000000, 0x4000, 1 << 18, 0x1000
        libc = ctypes.CDLL(None, use_errno=True)
        for result in (
            libc.unshare(clone_newns | clone_newnet),
            libc.mount(b"none", b"/", None, ms_rec | ms_private, None),
            libc.mount(bytes(resolver), b"/etc/resolv.conf", None, ms_bind, None),
        ):
            if result != 0:
                raise OSError(ctypes.get_errno(), "own network")

    return enter


SILENT_NAME_SERVER = "import socket; s = socket.socket(type=socket.SOCK_DGRAM); s.bind(('127.0.0.1', 53)); print(flush=True)"
SILENT_NAME_SERVER += "; input()"


def test_uplink_with_a_silent_name_server(appliance):
    a = appliance(UPLINK % ("http://maker.example.com/", "https://public.example.org/"))
    a.write("/resolv.conf", "nameserver 127.0.0.1\n")
    try:
        a.start(in_child=own_network_and_name_server(a.path("/resolv.conf")))
    except subprocess.SubprocessError:
        pytest.skip("namespaces are not allowed here")
    if not shutil.which("nsenter") or not shutil.which("ip"):
        pytest.skip("needs nsenter and ip")
    inside = ["nsenter", "--target", str(a.process.pid), "--net"]
    subprocess.run([*inside, "ip", "link", "set", "lo", "up"], check=True)
    server = subprocess.Popen(
        [*inside, "python3", "-c", SILENT_NAME_SERVER], stdin=subprocess.PIPE, stdout=subprocess.PIPE
    )
    with server:
        assert server.stdout.readline() == b"\n"
        started = time.monotonic()
        assert a.get("Net.uplink") == "none"
        assert time.monotonic() - started < 9  # the resolver's own patience is 10 s a name
        server.stdin.close()
