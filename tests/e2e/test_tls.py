"""TLS on the TCP port: who is let in, and that the conversation is the one of a plain connection."""

import contextlib
import os
import pathlib
import pty
import socket
import ssl
import subprocess
import tempfile
import threading

import pytest

from appliance import PATIENCE, QVC, WAIT_FOR_GO, Appliance, Connection, Reservation, metadata, run_qvcd

LONG = "x" * 1000
META = metadata(f"""
A: perm = 7777
A.b: attr = b; default = 1
A.long: attr = long; default = {LONG}
A.slow: attr = slow; default = 1; apply = initd_restart slow
A.mine: perm = 7700; attr = mine; default = 1
""")
USERS = """Group {
  1.perm = 777
  3.perm = 4
}
User {
  admin.group = 1
  admin.passwd = kelpo
  viewer.group = 3
  viewer.passwd = v
  nobody.group = 7
  nobody.passwd = n
}
"""


class Certificates:
    """Makes certificates in a folder: each NAME.pem with NAME.key."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        for name in ("ca", "other_ca"):
            self.openssl("req", "-x509", *self.new_key(name), "-subj", f"/CN={name}", "-days", "2", "-out", f"{name}.pem")
        here = "subjectAltName=IP:127.0.0.1,DNS:localhost"
        self.make("server", extension=here)
        self.make("expired", extension=here, days=-1)
        self.make("elsewhere", extension="subjectAltName=IP:127.0.0.9,DNS:elsewhere.example")
        for user in ("admin", "viewer", "nobody", "stranger", "admin.passwd"):
            self.make(user)
        self.make("two", subject="/CN=viewer/CN=admin")
        self.make("forged", subject="/CN=admin", authority="other_ca")
        self.make("late", subject="/CN=admin", days=-1)

    def openssl(self, *words):
        subprocess.run(["openssl", *map(str, words)], cwd=self.folder, check=True, capture_output=True)

    @staticmethod
    def new_key(name):
        return ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", f"{name}.key"]

    def make(self, name, subject=None, authority="ca", extension="keyUsage=digitalSignature", days=2):
        self.openssl("req", "-new", *self.new_key(name), "-subj", subject or f"/CN={name}", "-out", "request")
        (self.folder / "extension").write_text(extension)
        by = ["-CA", f"{authority}.pem", "-CAkey", f"{authority}.key", "-CAcreateserial", "-extfile", "extension"]
        self.openssl("x509", "-req", "-in", "request", *by, "-days", days, "-out", f"{name}.pem")

    def __call__(self, file):
        return self.folder / file

    def of_server(self, name="server"):
        return ["--tls-cert", self(f"{name}.pem"), "--tls-key", self(f"{name}.key")]

    def of_client(self, name):
        return ["--cert", self(f"{name}.pem"), "--key", self(f"{name}.key")]


@pytest.fixture(scope="module")
def certificates():
    with tempfile.TemporaryDirectory(prefix="qt", dir="/tmp") as folder:
        yield Certificates(folder)


@contextlib.contextmanager
def serving(certificates, *options, server="server"):
    with Appliance(META, {"/etc/user.conf": (USERS, 0o600), "/etc/init.d/slow": (WAIT_FOR_GO, 0o755)}) as a:
        a.tcp = Reservation()
        a.ca = certificates("ca.pem")
        a.start("-P", a.tcp.port, *certificates.of_server(server), *options)
        yield a


@pytest.fixture(scope="module")
def box(certificates):
    with serving(certificates) as a:
        yield a


@pytest.fixture(scope="module")
def strict(certificates):
    """Demands client certificates."""
    with serving(certificates, "--tls-client-ca", certificates("ca.pem")) as a:
        yield a


def tls_settings(a, version=None, certificate=None):
    settings = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    settings.load_verify_locations(a.ca)
    if version:
        settings.minimum_version = settings.maximum_version = version
    if certificate:
        settings.load_cert_chain(certificate, certificate.with_suffix(".key"))
    return settings


class TlsConnection(Connection):
    """Takes only a stream for whole that ends with TLS's own message."""

    def __init__(self, a, settings=None, greeting="me 0 0\n"):
        super().__init__(a.address(tcp=True))
        settings = settings or tls_settings(a)
        self.socket = settings.wrap_socket(self.socket, server_hostname="localhost", suppress_ragged_eofs=False)
        if greeting:
            self.send(greeting)


def qvc(a, *words, host="127.0.0.1", port=None, stdin=""):
    """(exit code, stdout, stderr)."""
    done = subprocess.run(
        [QVC, "-H", f"{host}:{port or a.tcp.port}", *map(str, words)],
        env=a.environment(), input=stdin.encode(), capture_output=True, timeout=PATIENCE,
    )
    return done.returncode, done.stdout.decode(), done.stderr.decode()


# ---- Conversations ----


@pytest.mark.parametrize("version", [ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3])
def test_a_conversation_in_small_and_large_pieces(box, version):
    with TlsConnection(box, tls_settings(box, version)) as c:
        assert c.socket.version() == {"TLSv1_2": "TLSv1.2", "TLSv1_3": "TLSv1.3"}[version.name]
        for byte in b"get A.b\nge":
            c.send(bytes([byte]))
        assert c.read_lines(1) == b"A.b=1\n"
        c.send("t A.b\nget X\n\n")
        assert c.read_all() == b"A.b=1\nX=##Parameter not found#\n@\n1\n"


def test_qvc(box):
    tls = ["--tls", "--ca", box.ca]
    for host in ("127.0.0.1", "localhost"):
        assert qvc(box, *tls, "get", "A.b", host=host) == (0, "A.b=1\n", "")
    assert qvc(box, *tls, stdin=1500 * "get A.b A.long\n") == (0, 1500 * f"A.b=1\nA.long={LONG}\n", "")
    # A session of a log-in works as over a plain connection.
    session = qvc(box, *tls, "login", "viewer", "v")[1].strip().removeprefix("Session=")
    assert qvc(box, *tls, "-s", session, "get", "A.mine")[:2] == (1, "")
    assert box.qvc("get", "A.b") == (0, "A.b=1\n")  # the local socket is as ever


def test_qvc_on_a_terminal(box):
    keyboard, terminal = pty.openpty()
    command = [QVC, "-H", f"localhost:{box.tcp.port}", "--tls", "--ca", box.ca]
    env = box.environment(TERM="dumb", ASAN_OPTIONS="detect_leaks=0")  # libedit keeps its last line
    with subprocess.Popen(command, stdin=terminal, stdout=subprocess.PIPE, env=env) as p:
        os.write(keyboard, b"get A.b\nget A.b\nquit\n")
        assert p.stdout.read().count(b"A.b=1\n") == 2
        assert p.wait(PATIENCE) == 0
    os.close(keyboard)
    os.close(terminal)


def half_closed(a, farewell):
    """Sends a request without its end, ends sending with or without TLS's message, and returns the answer."""
    incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
    tls = tls_settings(a).wrap_bio(incoming, outgoing, server_hostname="localhost")
    with Connection(a.address(tcp=True)) as c:

        def exchange(step):
            while True:
                try:
                    return step()
                except ssl.SSLWantReadError:
                    if outgoing.pending:
                        c.send(outgoing.read())
                    data = c.socket.recv(65536)
                    incoming.write(data) if data else incoming.write_eof()

        exchange(tls.do_handshake)
        tls.write(b"me 0 0\nget A.b\nset A.b=12")
        if farewell:
            with contextlib.suppress(ssl.SSLWantReadError):
                tls.unwrap()
        c.send(outgoing.read())
        c.end_sending()
        answer = b""
        with contextlib.suppress(ssl.SSLZeroReturnError, ssl.SSLEOFError, ConnectionResetError):
            while data := exchange(lambda: tls.read(65536)):
                answer += data
        return answer


def test_a_stream_that_was_cut_is_no_end_of_input(box):
    """Else somebody between could make "set A.b=12" of "set A.b=123"."""
    assert half_closed(box, farewell=True) == b"A.b=1\nA.b=12\n@\n0\n"
    assert box.command("set A.b=1").code == 0
    assert b"A.b=12" not in half_closed(box, farewell=False)
    assert box.get("A.b") == "1"


# ---- Clients that do not keep to it ----


def test_stalled_handshakes_and_plain_text_hold_up_nobody(box):
    incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
    tls = tls_settings(box).wrap_bio(incoming, outgoing, server_hostname="localhost")
    with contextlib.suppress(ssl.SSLWantReadError):
        tls.do_handshake()
    hello = outgoing.read()
    for sent in 10 * [b"", hello[:3], hello[:-1], hello]:
        box.connect(tcp=True).send(sent)
    with TlsConnection(box) as c:
        c.send("get A.b\n\n")
        assert c.read_all() == b"A.b=1\n@\n0\n"
    for text in (b"?\n", b"me 0 0\nset A.b=7\n\n", b"GET / HTTP/1.0\r\n\r\n", 300000 * b"x"):
        with box.connect(tcp=True) as plain:
            with contextlib.suppress(ConnectionError):
                plain.send(text)
                plain.end_sending()  # two bytes could still become a record of TLS
            assert b"\n" not in plain.read_all()
    with Connection(box.address(tcp=True)) as gone:
        gone.send(hello)
        gone.vanish()
    assert box.get("A.b") == "1"
    assert sum("no TLS with 127.0.0.1" in line for line in box.log().splitlines()) == 1


@pytest.mark.parametrize("version", [ssl.TLSVersion.TLSv1, ssl.TLSVersion.TLSv1_1])
@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_old_versions_are_refused(box, version):
    settings = tls_settings(box, version)
    settings.set_ciphers("ALL:@SECLEVEL=0")
    with pytest.raises(ssl.SSLError, match="ALERT_PROTOCOL_VERSION"):
        TlsConnection(box, settings)


def test_stop_while_connected(certificates):
    with serving(certificates) as a:
        idle = [TlsConnection(a) for _ in range(3)]
        silent = a.connect(tcp=True)
        waiting = TlsConnection(a)
        waiting.send("set A.slow=2\napply A.slow\n")
        assert waiting.read_lines(1) == b"A.slow=2\n"
        threading.Timer(0.3, lambda: a.write("/go", "")).start()
        a.stop()
        for c in (*idle, silent, waiting):
            with contextlib.suppress(OSError):
                c.read_all()
            c.close()


# ---- Whom the client trusts ----


def test_qvc_checks_the_server(box, certificates):
    ca = ["--tls", "--ca", box.ca]
    untrusted = "qvc: certificate of {}:{} is not trusted: {}\n"
    cases = [
        ("127.0.0.1", ["--tls"], "unable to get local issuer certificate"),
        ("127.0.0.1", ["--tls", "--ca", certificates("other_ca.pem")], "unable to get local issuer certificate"),
        ("127.0.0.2", ca, "IP address mismatch"),
    ]
    for host, options, reason in cases:
        said = qvc(box, *options, "set", "A.b=9", host=host)
        assert said == (124, "", untrusted.format(host, box.tcp.port, reason))
    for server, reason in (("expired", "certificate has expired"), ("elsewhere", "hostname mismatch")):
        with serving(certificates, server=server) as a:
            said = qvc(a, *ca, "get", "A.b", host="localhost")
            assert said == (124, "", untrusted.format("localhost", a.tcp.port, reason))
    assert box.get("A.b") == "1"


def test_qvc_where_the_other_side_speaks_something_else(box):
    code, text, why = qvc(box, "get", "A.b")
    assert (code, text) == (124, "")
    with Appliance(META) as plain:
        plain.start(tcp=True)
        code, text, why = qvc(plain, "--tls", "get", "A.b")
        assert (code, text) == (124, "") and why.startswith(f"qvc: no TLS with 127.0.0.1:{plain.tcp.port}: ")
    with socket.create_server(("127.0.0.1", 0)) as silent:
        said = qvc(box, "-t", "0.3", "--tls", "get", "A.b", port=silent.getsockname()[1])
        assert said == (124, "", "qvc: no answer within the time limit\n")


def test_qvc_with_files_that_cannot_be_used(box, certificates):
    cases = [
        (["--ca", "/no/such"], "authorities in /no/such: No such file or directory"),
        (["--cert", certificates("admin.key"), "--key", certificates("admin.key")], "no start line"),
        (["--cert", certificates("admin.pem"), "--key", certificates("viewer.key")], "key values mismatch"),
    ]
    for options, reason in cases:
        code, text, why = qvc(box, "--tls", *options, "get", "A.b")
        assert (code, text) == (2, "") and reason in why


# ---- Whom the daemon lets in ----


def test_the_certificate_names_the_user(strict, certificates):
    tls = ["--tls", "--ca", strict.ca]
    as_admin = [*tls, *certificates.of_client("admin")]
    as_viewer = [*tls, *certificates.of_client("viewer")]
    assert qvc(strict, *as_admin, "set", "A.mine=2") == (0, "A.mine=2\n", "")
    assert qvc(strict, *as_viewer, "get", "A.b") == (0, "A.b=1\n", "")
    assert qvc(strict, *as_viewer, "get", "A.mine")[:2] == (1, "")
    # A session is worth what it is, whoever's certificate is shown.
    session = strict.login("admin", "kelpo")
    assert qvc(strict, *as_viewer, "-s", session, "get", "A.mine") == (0, "A.mine=2\n", "")
    assert qvc(strict, *as_viewer, "-s", "5", "get", "A.b")[:2] == (1, "")
    # Rights end with the user.
    assert strict.command("user.rem viewer").code == 0
    assert qvc(strict, *as_viewer, "get", "A.b")[:2] == (1, "")


def test_certificates_that_let_nobody_in(strict, certificates):
    tls = ["--tls", "--ca", strict.ca]
    for name in ("stranger", "nobody", "admin.passwd", "two"):  # the authority's, but no user's
        for words in ("get", "A.b"), ("login", "admin", "kelpo"):
            code, output, problem = qvc(strict, *tls, *certificates.of_client(name), *words)
            assert (code, output) == (1, "") and "nobody it knows is logged in from here" in problem
    broken = "qvc: the connection broke before the end of the reply: "
    for name, reason in (("forged", "unknown ca"), ("late", "certificate expired"), (None, "certificate required")):
        code, text, why = qvc(strict, *tls, *(certificates.of_client(name) if name else []), "get", "A.b")
        assert (code, text) == (124, "") and why.startswith(broken) and reason in why
    for version in (ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3):
        with pytest.raises(ssl.SSLError):
            TlsConnection(strict, tls_settings(strict, version, certificates("forged.pem"))).read_lines(1)


def test_a_session_that_is_resumed_is_the_same_user(strict, certificates):
    settings = tls_settings(strict, ssl.TLSVersion.TLSv1_2, certificates("admin.pem"))
    with TlsConnection(strict, settings) as c:
        c.send("get A.b\n\n")
        assert c.read_all() == b"A.b=1\n@\n0\n"
        session = c.socket.session
    with socket.create_connection(strict.address(tcp=True), PATIENCE) as plain:
        with settings.wrap_socket(plain, server_hostname="localhost", session=session) as again:
            assert again.session_reused
            again.sendall(b"me 0 0\nget A.mine\n\n")
            assert again.recv(7) == b"A.mine="


# ---- The daemon's files ----


def test_files_that_cannot_be_used_end_the_start(certificates):
    c = certificates
    c.openssl("pkcs8", "-topk8", "-in", "server.key", "-passout", "pass:secret", "-out", "locked.key")
    cut = c("cut.pem")
    cut.write_text(c("server.pem").read_text()[:200])
    cases = [
        (["--tls-cert", c("server.pem"), "--tls-key", "/no/such"], "key in /no/such: No such file or directory"),
        (["--tls-cert", c.folder, "--tls-key", c("server.key")], f"certificate in {c.folder}: "),
        (["--tls-cert", cut, "--tls-key", c("server.key")], f"certificate in {cut}: "),
        (["--tls-cert", c("server.pem"), "--tls-key", c("admin.key")], "admin.key: key values mismatch"),
        (["--tls-cert", c("server.pem"), "--tls-key", c("locked.key")], "locked.key: it is encrypted"),
        ([*c.of_server(), "--tls-client-ca", c("server.key")], "authorities in "),
        (["--tls-cert", c("server.pem")], "--tls-cert and --tls-key belong together"),
        (["--tls-client-ca", c("ca.pem")], "--tls-client-ca needs --tls-cert"),
    ]
    with Appliance(META) as a:
        for options, reason in cases:
            for foreground in (["-g"], []):
                code, _, said = run_qvcd("-w", *foreground, *options, env=a.environment())
                assert code == 1 and reason in said, (options, said)
        assert not a.path("/var/run/qv/qvcd.sock").exists() and not a.path("/var/run/qvcd.pid").exists()
