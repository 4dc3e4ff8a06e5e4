"""The client library as others get it: installed, compiled against, linked both ways, and from Python; the page about it."""

import ctypes
import os
import re
import shlex
import socket
import subprocess
import sys
import threading

import pytest

from appliance import BIN_DIR, REPOSITORY, Appliance
from test_tls import certificates, strict  # noqa: F401: fixtures

BUILD = BIN_DIR.parent
PAGE = (REPOSITORY / "docs/client-library.md").read_text()

# The run-time part of the address sanitizer is preloaded then (e2e.cmake), and there is no static library.
SANITIZED = "QVCD_SANITIZE:STRING=\n" not in (BUILD / "CMakeCache.txt").read_text()


def blocks(language):
    return re.findall(rf"^```{language}\n(.*?)^```", PAGE, re.MULTILINE | re.DOTALL)


@pytest.fixture(scope="module")
def installed(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("prefix")
    for component in ("client-library", "client-development", "python"):
        subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix, "--component", component], check=True,
                       stdout=subprocess.DEVNULL)
    return prefix


@pytest.fixture
def a():
    with Appliance(shipped=True) as appliance:
        yield appliance.start()


def library_folder(prefix):
    return next(prefix.rglob("libqvclient.so")).parent


def pkg_config(prefix, *words):
    env = {**os.environ, "PKG_CONFIG_PATH": str(library_folder(prefix) / "pkgconfig")}
    done = subprocess.run(["pkg-config", *words, "qvclient"], env=env, capture_output=True, text=True, check=True)
    return shlex.split(done.stdout)


def compile_c(prefix, tmp_path, static):
    source = tmp_path / "port.c"
    source.write_text(blocks("c")[0])
    libraries = pkg_config(prefix, "--cflags", "--libs", *(["--static"] if static else []))
    if static:
        libraries = ["-l:libqvclient.a" if word == "-lqvclient" else word for word in libraries]
    program = tmp_path / "port"
    subprocess.run(["cc", "-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-o", program, source, *libraries],
                   check=True)
    return program


def run(a, prefix, *command):
    python = next(prefix.rglob("qvclient/__init__.py")).parents[1]
    env = a.environment(LD_LIBRARY_PATH=str(library_folder(prefix)), PYTHONPATH=str(python), PYTHONDONTWRITEBYTECODE="1")
    done = subprocess.run(command, env=env, capture_output=True, text=True, timeout=60)
    return done.returncode, done.stdout, done.stderr


@pytest.mark.parametrize("static", [False] if SANITIZED else [False, True])
def test_the_c_example(a, installed, tmp_path, static):
    program = compile_c(installed, tmp_path, static)
    needed = subprocess.run(["readelf", "-d", program], capture_output=True, text=True, check=True).stdout
    assert ("libqvclient.so.1" in needed) != static
    assert run(a, installed, program, "8088") == (0, blocks("text")[0], "")
    assert run(a, installed, program, "99999") == (1, "port 8088 -> 99999\n", blocks("text")[1])
    a.stop()
    status, out, err = run(a, installed, program, "1")
    assert (status, out) == (1, "") and err.startswith("port: the daemon cannot be reached: ")


def test_the_python_example(a, installed):
    assert run(a, installed, sys.executable, "-c", blocks("python")[0]) == (0, blocks("text")[2], "")


def test_nothing_but_the_interface_is_public(installed):
    header = next(installed.rglob("qvclient.h")).read_text()
    declared = set(re.findall(r"^QVC_API [^(]*?(qvc_\w+)\(", header, re.MULTILINE))
    libraries = ((["-D"], "libqvclient.so"), ([], "libqvclient.a"))
    for options, library in libraries[:1] if SANITIZED else libraries:
        names = subprocess.run(["nm", "--defined-only", "--extern-only", "--format=just-symbols", *options,
                                library_folder(installed) / library], capture_output=True, text=True, check=True).stdout
        plain = {name.partition("@")[0] for name in names.split() if "qvc_" in name}
        assert plain == declared
        assert not [name for name in names.split() if name.startswith("_ZN4qvcd") and options]
    version = re.search(r'QVC_VERSION_MAJOR (\d+).*?MINOR (\d+).*?PATCH (\d+)', header, re.DOTALL).groups()
    assert pkg_config(installed, "--modversion") == [".".join(version)]


# ---- The module, and the library below it, in all that goes wrong ----


@pytest.fixture
def qvclient(installed, monkeypatch):
    """The module, in this process."""
    folder = str(next(installed.rglob("qvclient/__init__.py")).parents[1])
    monkeypatch.syspath_prepend(folder)
    real = ctypes.CDLL
    monkeypatch.setattr(ctypes, "CDLL", lambda name, *rest: real(
        str(library_folder(installed) / name) if name and "qvclient" in str(name) else name, *rest))
    monkeypatch.setattr(sys, "dont_write_bytecode", True)
    import qvclient as module

    yield module
    sys.modules.pop("qvclient")


def test_values_errors_and_events(a, qvclient):
    with qvclient.Client(folder=str(a.path("/var/run/qv"))) as client, client.events() as events:
        name = "Network.hostname"
        client.set(name, "new-name")
        assert client.get(name) == "new-name"
        assert events.next(30)[:3] == ("set", name, "new-name")
        assert events.next(0) is None and events.next(0.01) is None
        for wrong, reason in (("No.such", "Parameter not found"), ("Network", "a group of settings")):
            with pytest.raises(qvclient.Refused, match=reason):
                client.get(wrong)
        reply = client.run("get", name, "No.such")
        assert (reply.result, reply.failed, reply.values) == (1, True, {name: "new-name"})
        with pytest.raises(qvclient.Refused, match="does not exist") as caught:
            client.check("user.passwd", "nobody", "a b,c")
        assert caught.value.reply.result == 0
        for words in ((), ("",), ("get", "a b"), ("get", "A\n"), ("get",) * 101):
            with pytest.raises(qvclient.ArgumentError):
                client.run(*words)
        with pytest.raises(qvclient.ArgumentError):  # cut to 32 bits it would be root's
            qvclient.Client(session=1 << 32)
        for one in ("A,B", "A=1", ""):
            with pytest.raises(qvclient.ArgumentError):
                client.get(one)
        with pytest.raises(qvclient.Refused, match="Invalid password"):
            client.login("admin", "wrong")
        client.check("user.passwd", "admin", "k e,l%po")
        client.login("admin", "k e,l%po")
        session = client.session
        assert session != 0 and client.run("get_session", str(session)).values["user"] == "admin"
        client.logout()
        assert client.session == 0
        with pytest.raises(qvclient.Refused, match="no such session"):
            with qvclient.Client(folder=str(a.path("/var/run/qv")), session=session) as other:
                other.get(name)
        a.stop()
        with pytest.raises(qvclient.Broken):
            list(events)
        with pytest.raises(qvclient.Unreachable, match="qvcd.sock"):
            client.get(name)


def test_documents_go_and_come(a, qvclient):
    with qvclient.Client(folder=str(a.path("/var/run/qv"))) as client:
        before = client.check("export", "-", "0", "Network.hostname").text
        client.set("Network.hostname", "other")
        assert client.check("import", "-", document=before.encode()).failed is False
        assert client.check("export", "-", "0", "Network.hostname").text == before
        for document in (b"", b"no {", b"a = \0"):
            assert client.run("import", "-", document=document).failed
        with pytest.raises(qvclient.ArgumentError):
            client.run("import", "-", document=bytes(5 << 20))
        words = (ctypes.c_char_p * 2)(b"import", b"-")
        with pytest.raises(qvclient.ArgumentError, match="no document"):
            client._call("run_with_document", 2, words, None, 9, ctypes.byref(ctypes.c_void_p()))
        large = b"".join(b"No.such%d = %d\n" % (i, i) for i in range(150000))
        assert client.run("import", "-", document=large).result == 0


def test_a_daemon_that_says_nothing_or_half(qvclient, tmp_path):
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(str(tmp_path / "qvcd.sock"))
    listener.listen()
    # What it says, and whether it closes then.
    says = [(b"A=1\n", True), (b"A=1\n@\n0\n@\n", True), (b"A=1\n@\n0\n", False), (b"A=1\n", False),
            (b"@\n0\n@\n0\n", True), (b"A=\xff\0x\n@\n300\n", True)]
    open_ones = []

    def serve():
        for text, closes in says:
            connection = listener.accept()[0]
            connection.recv(1000)
            connection.sendall(text)
            if closes:
                connection.shutdown(socket.SHUT_WR)
            open_ones.append(connection)

    thread = threading.Thread(target=serve, daemon=True)
    thread.start()
    with qvclient.Client(folder=str(tmp_path), timeout=0.3) as client:
        for _ in range(2):
            with pytest.raises(qvclient.Broken):
                client.run("get", "A")
        assert client.run("get", "A").values == {"A": "1"}  # all is there but the close
        with pytest.raises(qvclient.TimeOver):
            client.run("get", "A")
        assert [line.text for line in client.run("getv", "A")] == ["@", "0"]
        assert client.run("get", "A").result == 300
    thread.join()
    for one in [listener, *open_ones]:
        one.close()


def test_over_tcp(a, qvclient):
    a.stop()
    a.start(tcp=True)
    with qvclient.Client(host="127.0.0.1", port=a.tcp.port, name="me") as client:
        assert client.get("Services.HTTP.port") == "80"
        client.check("commit", "-m", "a, b", "Network.hostname=x")
        assert "me) commit: done" in client.run("history").lines[0].text
        with client.events() as events:
            client.run("set", "Services.HTTP.port=8081")
            event = next(iter(events))
            assert (event.kind, event.name, event.value) == ("set", "Services.HTTP.port", "8081")
    with qvclient.Client(host="127.0.0.1", port=a.tcp.port, tls=True) as client, pytest.raises(qvclient.Untrusted):
        client.get("Services.HTTP.port")


def test_over_tls(strict, certificates, qvclient):
    files = {"ca": "ca.pem", "cert": "admin.pem", "key": "admin.key"}
    # Another host name, authority, certificate, file, and what it comes to.
    for host, change, error in (
        ("127.0.0.1", {}, None), ("localhost", {}, None),
        ("127.0.0.1", {"ca": "other_ca.pem"}, qvclient.Untrusted),
        ("127.0.0.1", {"cert": "forged.pem", "key": "forged.key"}, (qvclient.Untrusted, qvclient.Broken)),
        ("127.0.0.1", {"key": "viewer.key"}, qvclient.TlsFileError), ("127.0.0.1", {"ca": "none"}, qvclient.TlsFileError),
    ):
        named = {option: str(certificates(file)) for option, file in {**files, **change}.items()}
        with qvclient.Client(host=host, port=strict.tcp.port, tls=True, **named) as client:
            if error:
                with pytest.raises(error):
                    client.get("A.mine")
            else:
                assert [client.get("A.mine") for _ in range(3)] == ["1"] * 3
