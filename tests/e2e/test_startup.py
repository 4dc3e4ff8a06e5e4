"""Options, start, stop, and what start-up finds on disk."""

import contextlib
import functools
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess

import pytest

from appliance import LIBC, PATIENCE, QVC, QVCD, WAIT_FOR_GO, Reply, die_with_us, run_qvcd, wait_until


def model(name, value="1"):
    functions = "read = no_rfunc\n write = io_wfunc\n file = /none"
    return f"{name} {{\n perm = 7777\n {functions}\n a {{\n attr = a\n default = {value}\n }}\n}}\n"


# ---- Options ----


def test_usage_and_build_info(appliance):
    a = appliance()
    for options in (["-h"], ["-x"], ["-l"], ["-m", "x"] * 11 + ["-g"], ["-g", "-m", "/" + 4095 * "x"]):
        code, out, _ = run_qvcd("-p", a.path("/pid"), *options, env={"QV_SYSROOT": str(a.root)})
        assert code == 0 and out.startswith(f"\nUsage: {QVCD} [OPTIONS] arguments\n")
        assert re.findall(r"^\t-(\w) .*: \S", out, re.M) == list("bcdefglmPpstuvwh")
    code, out, err = run_qvcd("-p", a.path("/pid"), "-b", "-h", env={"QV_SYSROOT": str(a.root)})
    assert (code, err) == (0, "")
    assert re.fullmatch(r"Built on [A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d\n", out)
    assert not a.path("/pid").exists()


@pytest.mark.parametrize(
    "options, loaded",
    [
        ([], ["Default"]),
        (["-f", "one"], ["One"]),
        (["-m", "one", "-m", "two"], ["One", "Two"]),
        (["-f", "two", "-m", "one"], ["One"]),
        (["-m", "one", "-m", "two", "-f", "three"], ["Three", "Two"]),
        (["-m", "three", *["-m", "one"] * 8, "-m", "two"], ["Three", "One", "Two"]),
    ],
    ids=lambda value: " ".join(value),
)
def test_metadata_options(appliance, options, loaded):
    a = appliance(model("Default"), {f"/{name.lower()}": model(name) for name in ("One", "Two", "Three")})
    a.start(*[a.path("/" + o) if not o.startswith("-") else o for o in options])
    assert a.command("get") == Reply([f"{name}.a=1" for name in loaded], 0)
    assert len(re.findall(r"^Loading .* into meta DB$", a.log(), re.M)) == max(options.count("-m"), 1)


def test_arguments_that_are_no_options(appliance):
    a = appliance(model("A"))
    code, out, err = run_qvcd("-g", "stray", "-v3", "two\nlines", env=a.environment())
    assert (code, out, err) == (1, "", "qvcd: unexpected arguments: stray two\\x0Alines\n")
    assert not a.path("/var/run/qv").exists()


def test_programs_without_the_files_that_belong_to_them(appliance, tmp_path):
    """Somebody copied qvcd and qvc alone: what they do by themselves works, all else says what is missing."""
    (tmp_path / "bin").mkdir()
    qvcd, qvc = (shutil.copy(program, tmp_path / "bin") for program in (QVCD, QVC))
    a = appliance(model("A"), {"/etc/qv/notify.conf": "host=127.0.0.1\n"})
    tls = subprocess.run([qvcd, "-g", "--tls-cert", "c", "--tls-key", "k"], env=a.environment(), capture_output=True, timeout=PATIENCE)
    assert tls.returncode == 1
    assert f"TLS is not available: {tmp_path}/lib/qvcd/crypto.so: cannot open" in tls.stderr.decode()
    a.start(program=qvcd)
    assert a.command("get A.a") == Reply(["A.a=1"], 0)
    assert f"no events to the broker: {tmp_path}/lib/qvcd/mqtt.so: cannot open" in a.log()
    ask = functools.partial(subprocess.run, env=a.environment(), capture_output=True, timeout=PATIENCE, stdin=subprocess.DEVNULL)
    assert ask([qvc, "get", "A.a"]).stdout == b"A.a=1\n"
    batch = ask([qvc])
    assert batch.returncode == 1
    assert batch.stderr.decode() == f"qvc: cannot run {tmp_path}/bin/../libexec/qvc-full: No such file or directory\n"
    a.stop()
    modules, of_build = tmp_path / "lib/qvcd", pathlib.Path(QVCD).parents[1] / "lib/qvcd"
    modules.mkdir(parents=True)
    (modules / "mqtt.so").write_bytes((of_build / "mqtt.so").read_bytes()[:-4096])
    shutil.copy(of_build / "netlink.so", modules / "crypto.so")
    tls = subprocess.run([qvcd, "-g", "--tls-cert", "c", "--tls-key", "k"], env=a.environment(), capture_output=True, timeout=PATIENCE)
    assert f"{modules}/crypto.so: not of this release" in tls.stderr.decode()
    a.start(program=qvcd)
    assert f"no events to the broker: {modules}/mqtt.so: cut short" in a.log()


def test_closed_streams_of_a_client_are_no_connection(appliance):
    """The socket must not take the number of a stream that is closed: replies would be commands."""
    a = appliance(model("A")).start()
    script = f"(echo 'get A.a'; sleep 0.2; echo 'get A.a') | {QVC} >&-; {QVC} get A.a <&-; {QVC} <&-"
    done = subprocess.run(["sh", "-c", script], env=a.environment(), capture_output=True, timeout=PATIENCE)
    assert done.stdout == b"A.a=1\n"
    assert b"cannot write the reply" in done.stderr
    assert "Invalid command" not in a.log()


def test_preloaded_values_and_user_file(appliance):
    a = appliance(model("A"), {"/pre.hdf": "Extra.value = 5\nA.a = 7\n", "/users": "User.admin.passwd = x\n"})
    a.start("-e", a.path("/pre.hdf"), "-u", a.path("/users"))
    assert a.command("get Extra.value") == Reply([], 1)  # without metadata nobody may read it
    assert a.command("get A.a") == Reply(["A.a=1"], 0)  # population comes after
    assert a.command("sets Extra.value=6").lines == ["Extra.value=##Invalid permission#"]  # but it is there
    assert a.command("user.list").lines == ["User.admin.passwd=x"]


def test_errors_that_nobody_reads_do_not_keep_the_daemon_from_ending(appliance):
    a = appliance(model("A").replace("attr = a\n", "attr = a\n type = nonsense\n"))
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    with contextlib.suppress(BlockingIOError):
        while os.write(writing, bytes(4096)):
            pass
    os.set_blocking(writing, True)
    a.start(in_child=lambda: os.dup2(writing, 2))
    wait_until(lambda: 'no type "nonsense"' in a.log(), "the finding")
    a.stop()
    os.close(reading)
    os.close(writing)


def test_debug_logs_to_stderr_and_timestamps_alone_do_nothing(appliance):
    a = appliance(model("A"))
    for options, pattern in (
        (["-d"], r"(?s)started\n.*running\n"),
        (["-t"], r""),
        (["-d", "-t"], r"(?s)(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [^\n]+\n)+"),
    ):
        with running(a, "-g", *options) as process:
            wait_until(a.path("/var/run/qv/qvcd.sock").exists, "the socket")
            process.send_signal(signal.SIGINT)
            _, err = process.communicate(timeout=PATIENCE)
        assert process.returncode == 0
        err = re.sub(r"(?m)^can not read user config file .*\n", "", err.decode())
        assert re.match(pattern, err) if pattern else err == "", options


def test_tcp_only_on_demand(appliance):
    a = appliance(model("A")).start("-P", "0", "-w")
    assert listeners(a.process.pid) == 0 and "watchdog" not in a.log()
    a.restart(tcp=True)
    assert listeners(a.process.pid) == 1
    assert a.command("get A.a", tcp=True) == Reply(["A.a=1"], 0)


def test_tcp_port_that_is_taken(appliance):
    first = appliance(model("A")).start(tcp=True)
    second = appliance(model("A")).start("-P", first.tcp.port)
    message = f"cannot serve TCP 0.0.0.0 port {first.tcp.port}: Address already in use"
    second.wait_for_log(message)
    wait_until(lambda: second.stderr() == f"qvcd: {message}\n", "the message on stderr")
    assert second.command("get A.a") == Reply(["A.a=1"], 0)


def listeners(pid):
    """How many TCP sockets the process listens on."""
    inodes = set()
    for fd in os.listdir(f"/proc/{pid}/fd"):
        with contextlib.suppress(FileNotFoundError):
            inodes.update(re.findall(r"socket:\[(\d+)\]", os.readlink(f"/proc/{pid}/fd/{fd}")))
    with open(f"/proc/{pid}/net/tcp") as table:
        rows = [line.split() for line in table][1:]
    return sum(row[3] == "0A" and row[9] in inodes for row in rows)


# ---- Start and stop ----


def runs(a):
    """The last step of start-up comes after the first answer."""
    wait_until(lambda: a.read("/var/run/qv/qvcd.lock") == "running\n", "the end of start-up")


@contextlib.contextmanager
def running(a, *options):
    """A daemon on the appliance's root beside or instead of the harness's own."""
    process = subprocess.Popen(
        [QVCD, *map(str, options)],
        env=a.environment(),
        stdin=subprocess.DEVNULL,
        stderr=subprocess.PIPE,
        preexec_fn=die_with_us,
    )
    try:
        yield process
    finally:
        process.kill()
        process.communicate()


def test_stop_leaves_nothing_but_the_files(appliance):
    a = appliance(model("A")).start(tcp=True)
    modes = {p.name: p.stat().st_mode & 0o777 for p in a.path("/var/run/qv").iterdir()}
    assert modes == {"qvcd.sock": 0o666, "notify.sock": 0o660, "qvcd.lock": 0o600}
    assert a.path("/var/run/qv").stat().st_mode & 0o777 == 0o755
    a.login("admin", "kelpo")
    a.connect(greeting="me 0 0\nget A.a\n").read_lines(1)  # an open connection does not hold up the end
    a.stop()
    assert a.read("/tmp/current_sessions") == ""
    assert list(a.path("/var/run/qv").iterdir()) == []


@pytest.mark.parametrize("closed", [[2], [0, 1, 2]])
def test_standard_descriptors_that_are_closed(appliance, closed):
    """Nothing that is meant for them gets into the files that are opened next."""
    a = appliance(model("A", "new"), {"/a.conf": "a=1\n"})
    a.start("-d", "-e", "/nonexistent", in_child=lambda: [os.close(fd) for fd in closed])
    assert a.command("get A.a").code == 0
    assert a.read("/var/run/qvcd.pid") == f"{a.process.pid}\n"
    runs(a)
    assert {os.readlink(f"/proc/{a.process.pid}/fd/{fd}") for fd in closed} == {"/dev/null"}


def test_signals(appliance):
    a = appliance(model("A"), {"/etc/user.conf": ""}).start()
    a.command("set A.a=2")
    before = os.rename(a.path("/log"), a.path("/log.1")) or a.read("/log.1")
    a.write("/usr/share/qvapi/apimeta.hdf", "no metadata")
    a.process.send_signal(signal.SIGHUP)
    a.wait_for_log("alive")  # in a new file, and nothing else was done
    assert a.command("get A.a") == Reply(["A.a=2"], 0) and a.read("/log.1") == before
    os.rename(a.path("/log"), a.path("/log.1"))
    a.path("/log").mkdir()
    a.process.send_signal(signal.SIGHUP)
    wait_until(lambda: f"cannot open the log file {a.path('/log')}: Is a directory\n" in a.read("/log.1"), "the old file goes on")
    a.path("/log").rmdir()
    a.write("/usr/share/qvapi/apimeta.hdf", model("A"))
    a.process.send_signal(signal.SIGPIPE)
    assert a.command("get A.a") == Reply(["A.a=2"], 0)
    a.process.send_signal(signal.SIGTERM)  # keeps its default action
    assert a.reap() == -signal.SIGTERM
    assert a.read("/var/run/qvcd.pid") != ""
    a.write("/var/run/qvcd.pid", f"{os.getpid()}\nof a process that is no daemon\n")
    a.start()
    assert a.read("/var/run/qvcd.pid") == f"{a.process.pid}\n" and a.stderr() == ""


@contextlib.contextmanager
def adopting_orphans():
    """Daemons whose parents have ended become our children, so that we can wait for them."""
    set_child_subreaper = 36
    assert LIBC.prctl(set_child_subreaper, 1, 0, 0, 0) == 0
    try:
        yield
    finally:
        LIBC.prctl(set_child_subreaper, 0, 0, 0, 0)


def test_daemon_mode(appliance):
    a = appliance(model("A"), {"/etc/user.conf": ""})
    with adopting_orphans():
        options = ["-l", a.path("/log"), "-m", os.path.relpath(a.path("/usr/share/qvapi/apimeta.hdf"))]
        assert run_qvcd(*options, env=a.environment()) == (0, "", "")
        # Who started it may talk to it at once.
        pid = int(a.read("/var/run/qvcd.pid"))
        try:
            assert a.command("get A.a") == Reply(["A.a=1"], 0)
            assert os.getsid(pid) == pid
            assert os.readlink(f"/proc/{pid}/cwd") == "/"
            assert {os.readlink(f"/proc/{pid}/fd/{fd}") for fd in range(3)} == {"/dev/null"}
        finally:
            os.kill(pid, signal.SIGINT)
            wait_until(lambda: os.waitid(os.P_PID, pid, os.WEXITED | os.WNOHANG | os.WNOWAIT), "the daemon's end")
            status = os.waitpid(pid, 0)[1]
    assert status == 0
    assert a.log().splitlines()[-1] == "exit"
    assert not a.path("/var/run/qvcd.pid").exists()


# ---- What others left or hold ----


RUNS_ALREADY = "cannot claim /var/run/qv/qvcd.lock: another daemon runs on this root"


def everything(a):
    """All files of the root but what the daemon that runs writes to itself, and the sockets' places."""
    paths = [p for p in a.root.rglob("*") if p.name not in ("log", "stderr", "second.log")]
    return {p: p.read_bytes() if p.is_file() else p.stat().st_ino for p in paths}


@pytest.mark.parametrize("options", [["-g"], []], ids=["foreground", "background"])
def test_second_daemon_touches_nothing(appliance, options):
    a = appliance(model("A"), {"/second.log": "kept\n", "/changed": model("B")}).start()
    session = a.login("admin", "kelpo")
    a.command("set A.a=2")
    runs(a)
    before = everything(a)
    with contextlib.closing(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)) as manager:
        manager.bind("\0" + a.root.name)
        env = a.environment(NOTIFY_SOCKET="@" + a.root.name)
        words = [*options, "-l", a.path("/second.log"), "-f", a.path("/changed"), "-p", a.path("/second.pid")]
        assert run_qvcd(*words, env=env) == (1, "", f"qvcd: {RUNS_ALREADY}\n")
        manager.setblocking(False)
        with pytest.raises(BlockingIOError):  # it never said that it is ready
            manager.recv(100)
    assert a.read("/second.log") == f"kept\n{RUNS_ALREADY}\n"
    assert everything(a) == before
    assert a.command("get A.a", session) == Reply(["A.a=2"], 0)


def test_daemon_that_stops_is_waited_for(appliance):
    a = appliance(model("A") + "A.a.apply = initd_restart slow\n", {"/etc/init.d/slow": (WAIT_FOR_GO, 0o755)}).start()
    a.connect(greeting="me 0 0\nset A.a=2\napply\n")
    wait_until(a.path("/started").exists, "the action")
    a.process.send_signal(signal.SIGINT)
    wait_until(lambda: a.read("/var/run/qv/qvcd.lock") == "stopping\n", "the end to begin")
    with running(a, "-g", "-l", a.path("/second.log")) as second:
        a.write("/go", "")
        assert a.reap() == 0
        wait_until(lambda: "running" in a.read_or_empty("/second.log"), "the second daemon")
        assert a.command("get A.a") == Reply(["A.a=1"], 0)
        assert a.read("/var/run/qvcd.pid") == f"{second.pid}\n"


def test_log_of_a_life(appliance):
    a = appliance(model("A")).start()
    a.stop()
    lines = iter(a.log().splitlines())  # each is looked for behind the one before
    life = "started, Starting watchdog, cmd help created with 3 sub functions, Load session DB, running, alive, stopping"
    for line in [*life.split(", "), "Stopping watchdog", "cmd help cleanup", "exit"]:
        assert line in lines, line
    assert a.log().count("alive\n") == 1


def test_pid_file_that_cannot_be_written(appliance):
    a = appliance(model("A"))
    a.start("-p", "/nonexistent/qvcd.pid")
    assert a.stderr() == "qvcd: cannot write the process ID file /nonexistent/qvcd.pid: No such file or directory\n"
    assert a.command("get A.a") == Reply(["A.a=1"], 0)


@pytest.mark.parametrize("options", [["-g"], []], ids=["foreground", "background"])
def test_socket_name_taken_by_a_file(appliance, options):
    """Nobody could ask the daemon anything."""
    a = appliance(model("A"), {"/var/run/qv/qvcd.sock": "precious", "/etc/user.conf": ""})
    message = "cannot serve /var/run/qv/qvcd.sock: it exists and is no socket"
    assert run_qvcd(*options, "-l", a.path("/log"), env=a.environment()) == (1, "", f"qvcd: {message}\n")
    assert a.logged(message) and a.log().endswith("\nexit\n") and not a.logged("running")
    assert a.read("/var/run/qv/qvcd.sock") == "precious"
    assert [p.name for p in a.path("/var/run").rglob("*")] == ["qv", "qvcd.sock"]


def test_sysroot_too_long_for_a_socket_address(appliance):
    a = appliance()
    root = str(a.root) + "/" + 107 * "x"
    os.mkdir(root)
    message = f"qvcd: QV_SYSROOT is too long for the addresses of its sockets: {root}\n"
    assert run_qvcd("-g", env={"QV_SYSROOT": root}) == (1, "", message)
    assert os.listdir(root) == []


# ---- Metadata that is not as it should be ----


def test_bad_metadata(appliance):
    """The daemon does not start; where it must all the same, what stands before the error counts, and so do the
    other files."""
    files = {"/bad.hdf": model("Good") + "nonsense\n", "/deep.hdf": 100 * "a {\n", "/next.hdf": model("Next")}
    a = appliance(files=files)
    names = {"/none.hdf": "No such file or directory", "/etc": "not a regular file", "/bad.hdf": "line 11: .+"}
    names["/deep.hdf"] = "line 6[0-9]: nested too deeply"
    for name, message in {**names, "/empty.hdf": "There is no API in .*"}.items():
        a.write("/empty.hdf", "A {\n perm = 7777\n}\n")
        code, _, err = run_qvcd("-g", "-m", a.path("/next.hdf") if "API" not in message else a.path(name),
                                "-m", a.path(name), env=a.environment())
        assert code == 1 and re.search(rf"^qvcd: .*{message}\nqvcd: No usable metadata", err), (name, err)
        assert not a.path("/var/run/qvcd.pid").exists()
    a.start("--any-metadata", *[word for name in [*names, "/next.hdf"] for word in ("-m", a.path(name))])
    assert a.command("get") == Reply(["Good.a=1", "Next.a=1"], 0)
    for name, message in names.items():
        for text in (a.log(), a.stderr()):
            assert re.search(rf"Can not load metadata {re.escape(str(a.path(name)))}: {message}$", text, re.M), name
