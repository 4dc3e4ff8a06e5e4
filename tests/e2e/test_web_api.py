"""The gateway as programs meet it: by an ordinary HTTP client, against its own OpenAPI document."""

import base64
import contextlib
import functools
import http.client
import json
import os
import re
import shutil
import socket
import ssl
import subprocess
import warnings

import jsonschema
import pytest
from prometheus_client.parser import text_string_to_metric_families

from appliance import BIN_DIR, PATIENCE, SANITIZER_REPORT, Appliance, die_with_us, wait_until

ADMIN = {"user": "admin", "password": "kelpo"}
JSON = "application/json"


class Gateway:
    """qvweb before an appliance, at a port of its own."""

    def __init__(self, appliance, *options):
        self.appliance = appliance
        self.errors = appliance.path("/qvweb.err")
        self.process = subprocess.Popen(
            [BIN_DIR / "qvweb", "--debug", "--verbosity", "4", "--listen", "127.0.0.1:0", *options],
            env=appliance.environment(), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=open(self.errors, "ab"), preexec_fn=die_with_us)  # fmt: skip
        self.url = self.process.stdout.readline().decode().strip()
        assert self.url, self.errors.read_text()
        self.port = int(re.search(r":(\d+)/", self.url)[1])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        assert self.process.wait(PATIENCE) == 0, self.errors.read_text()
        self.process.stdout.close()
        assert not SANITIZER_REPORT.search(self.errors.read_text()), self.errors.read_text()

    def connect(self, source=None):
        if self.url.startswith("https"):
            unchecked = ssl._create_unverified_context()
            return http.client.HTTPSConnection("127.0.0.1", self.port, timeout=PATIENCE, context=unchecked)
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE, source_address=source and (source, 0))

    def ask(self, method, path, body=None, token=None, **headers):
        """(status, headers, body); JSON as what it is."""
        if token:
            headers["Authorization"] = f"Bearer {token}"
        body = json.dumps(body) if body is not None and not isinstance(body, (str, bytes)) else body
        with contextlib.closing(self.connect()) as connection:
            connection.request(method, path, body, {name.replace("_", "-"): value for name, value in headers.items()})
            answer = connection.getresponse()
            text = answer.read()
        is_json = "json" in answer.headers.get("Content-Type", "")
        return answer.status, answer.headers, json.loads(text) if is_json else text.decode()

    def token(self, user="admin", password="kelpo"):
        status, _, answer = self.ask("POST", "/api/v1/token", {"user": user, "password": password})
        assert status == 201, answer
        return answer["token"]


@pytest.fixture(scope="module")
def gateway():
    with Appliance(shipped=True) as a, Gateway(a.start(), "--plain") as g:
        yield g


class Stream:
    """A stream of events: blocks of fields."""

    def __init__(self, gateway, token, last=None, source=None):
        self.connection = gateway.connect(source)
        headers = {"Authorization": f"Bearer {token}", **({"Last-Event-ID": last} if last else {})}
        self.connection.request("GET", "/api/v1/events", headers=headers)
        self.answer = self.connection.getresponse()
        assert self.answer.status == 200, self.answer.read()
        self.last = last

    def next(self):
        fields = {}
        while line := self.answer.readline().decode():
            if line == "\n" and fields:
                return fields
            name, _, value = line.rstrip("\n").partition(": ")
            if name and not line.startswith(":"):
                fields[name] = value
                self.last = value if name == "id" else self.last
        return None

    def wait_for(self, text):
        while (event := self.next()) is not None:
            if text in json.dumps(event):
                return event
        raise AssertionError(f"the stream ended before {text}")

    def close(self):
        self.answer.close()
        self.connection.close()


# What each path is asked, in this order: (query or tail, body).
REQUESTS = {
    ("GET", "/openapi.json"): [("", None)],
    ("GET", "/metrics"): [("", None)],
    ("POST", "/api/v1/session"): [("", ADMIN)],
    ("POST", "/api/v1/token"): [("", ADMIN)],
    ("GET", "/api/v1/session"): [("", None)],
    ("GET", "/api/v1/values"): [("", None), ("?name=Services.HTTP&name=No.such", None)],
    ("GET", "/api/v1/values/{name}"): [("Services.HTTP.port", None)],
    ("GET", "/api/v1/describe"): [("", None)],
    ("GET", "/api/v1/schema"): [("?name=Services", None)],
    ("GET", "/api/v1/menu"): [("", None)],
    ("GET", "/api/v1/wizard"): [("", None)],
    ("POST", "/api/v1/wizard"): [("", {"done": True})],
    ("PATCH", "/api/v1/values"): [
        ("", {"values": {"Services.HTTP.port": 8088, "Network.hostname": "a-b"}}),
        ("", {"values": {"Services.HTTP.ssl": "enable"}, "mode": "commit", "confirm": 60, "message": "50 % off, now"}),
    ],
    ("GET", "/api/v1/state"): [("", None)],
    ("POST", "/api/v1/confirm"): [("", {"seconds": 90}), ("", {})],
    ("POST", "/api/v1/plan"): [("", {}), ("", {"values": {"Services.HTTP.port": None}})],
    ("GET", "/api/v1/diff"): [("?against=default&name=Services", None)],
    ("POST", "/api/v1/save"): [("", {"names": ["Services.HTTP"]})],
    ("POST", "/api/v1/apply"): [("", {"names": ["Services.HTTP"]})],
    ("POST", "/api/v1/revert"): [("", {})],
    ("POST", "/api/v1/commit"): [("", {"values": {"Network.hostname": "b"}, "confirm": 60})],
    ("POST", "/api/v1/abort"): [("", {})],
    ("GET", "/api/v1/history"): [("?limit=5", None)],
    ("POST", "/api/v1/rollback"): [("", {"number": -1})],
    ("GET", "/api/v1/presets"): [("", None)],
    ("PUT", "/api/v1/presets/{number}"): [("3", None)],
    ("PATCH", "/api/v1/presets/{number}"): [("3", {"name": "Studio: 50 % = half", "desc": "of the evening"})],
    ("GET", "/api/v1/presets/{number}"): [("3", None)],
    ("POST", "/api/v1/presets/{number}"): [("2", {"apply": True})],
    ("PUT", "/api/v1/profiles/{name}"): [("evening", {"names": ["VideoEncoder"]}), ("night", {"from": "evening"})],
    ("GET", "/api/v1/profiles"): [("", None)],
    ("GET", "/api/v1/profiles/{name}"): [("evening", None)],
    ("POST", "/api/v1/profiles/{name}"): [("evening", {})],
    ("DELETE", "/api/v1/profiles/{name}"): [("evening", None)],
    ("PUT", "/api/v1/users/{name}"): [("bob", {"group": "3", "password": "p w,%+"})],
    ("GET", "/api/v1/users"): [("", None)],
    ("DELETE", "/api/v1/users/{name}"): [("bob", None)],
    ("GET", "/api/v1/export"): [("?name=Services", None), ("?what=presets", None)],
    ("POST", "/api/v1/import"): [("", "Services.HTTP.port = 81\nServices.HTTP.enable = 7\n")],
    ("GET", "/api/v1/events"): [("", None)],
    ("DELETE", "/api/v1/session"): [("", None)],
}


def public_validator_finds(document):
    """What is wrong with the document. Debian 12 has no validator of OpenAPI, so one is asked only where somebody has
    installed it. Elsewhere each schema is checked against the meta-schema of JSON Schema 2020-12, which OpenAPI 3.1 takes,
    and all references and parameters of paths are followed."""
    try:
        from openapi_spec_validator import OpenAPIV31SpecValidator
    except ImportError:
        warnings.warn("no openapi-spec-validator: the document is checked against JSON Schema 2020-12 alone")
    else:
        return [error.message for error in OpenAPIV31SpecValidator(document).iter_errors()]
    schemas = document["components"]["schemas"]
    found = [f"{name}: {error.message}" for name, schema in schemas.items()
             for error in jsonschema.Draft202012Validator(jsonschema.Draft202012Validator.META_SCHEMA).iter_errors(schema)]
    wanted = set(re.findall(r'"#/components/schemas/(\w+)"', json.dumps(document)))
    found += [f"no schema {name}" for name in wanted - schemas.keys()]
    for path, methods in document["paths"].items():
        for method, operation in methods.items():
            named = {p["name"] for p in operation.get("parameters", []) if p["in"] == "path"}
            if named != set(re.findall(r"{(\w+)}", path)) or not operation["responses"]:
                found.append(f"{method} {path}: parameters or responses")
    return found


def test_every_path_answers_what_the_document_promises(gateway):
    _, _, document = gateway.ask("GET", "/openapi.json")
    assert document["openapi"].startswith("3.1.") and public_validator_finds(document) == []
    token = gateway.token()
    promised = {(m.upper(), p) for p, methods in document["paths"].items() for m in methods}
    assert promised == REQUESTS.keys()

    def check(schema, value):
        jsonschema.Draft202012Validator({**schema, "components": document["components"]}).validate(value)

    for (method, path), requests in REQUESTS.items():
        operation = document["paths"][path][method.lower()]
        [(status, good)] = [(s, r) for s, r in operation["responses"].items() if s != "default"]
        for tail, body in requests:
            if (method, path) == ("GET", "/api/v1/events"):
                Stream(gateway, token).close()
                continue
            takes = operation.get("requestBody", {}).get("content", {}).get(JSON)
            if takes:
                check(takes["schema"], body)
            got, headers, answer = gateway.ask(method, re.sub(r"\{.*\}", "", path) + tail, body, token)
            assert got == int(status) or (method, got) == ("PUT", 201), (method, path, got, answer)
            for kind, content in good.get("content", {}).items():
                assert headers["Content-Type"].startswith(kind), (method, path)
                check(content["schema"], answer)
            if operation.get("security") != [] and (method, path) != ("DELETE", "/api/v1/session"):
                got, headers, problem = gateway.ask(method, re.sub(r"\{.*\}", "", path) + tail, body)
                assert (got, headers["Content-Type"]) == (401, "application/problem+json"), (method, path)
                check({"$ref": "#/components/schemas/Problem"}, problem)
    assert gateway.ask("GET", "/api/v1/session", token=token)[0] == 401  # it has ended


def test_values_are_what_they_are_and_refusals_are_the_daemons(gateway):
    token = gateway.token()
    _, _, schema = gateway.ask("GET", "/api/v1/schema", token=token)
    jsonschema.Draft202012Validator.check_schema(schema)
    _, _, values = gateway.ask("GET", "/api/v1/values?name=Services.HTTP", token=token)
    checker = jsonschema.Draft202012Validator(schema)
    assert checker.is_valid(values["values"]) and not checker.is_valid({"Services.HTTP.port": 99999})
    change = {"Services.HTTP.port": 99999, "Services.HTTP.min_tls": "1.3"}
    for mode, now in (("commit", "1.2"), ("set", "1.3")):
        status, _, problem = gateway.ask("PATCH", "/api/v1/values", {"values": change, "mode": mode}, token)
        assert status == 422
        assert problem["errors"] == [{"name": "Services.HTTP.port", "detail": "Invalid port number format"}]
        assert gateway.appliance.get("Services.HTTP.min_tls") == now
    change["Services.Notify.password"] = "hush-hush"
    status, _, problem = gateway.ask("PATCH", "/api/v1/values", {"values": change}, token)
    assert status == 422 and problem["changes"][-1]["to"] == "*******" and "hush" not in json.dumps(problem)
    other = gateway.token("operator", "operator")
    _, _, state = gateway.ask("GET", "/api/v1/state", token=other)
    assert state["others"]["Services.HTTP.min_tls"] == "admin" and not state["own"]
    gateway.ask("POST", "/api/v1/revert", {}, token)
    for name in ("", "A B", "Services.HTTP.port,Network", "%0aset", "Network", "../x"):
        status, _, problem = gateway.ask("GET", "/api/v1/values/" + name.replace(" ", "%20"), token=token)
        assert status == 404, (name, problem)


def test_what_is_kept_and_who_logs_in(gateway):
    token = gateway.token()
    ask = functools.partial(gateway.ask, token=token)
    named = {"name": "=<< Studio #1", "desc": "{of the evening}"}
    assert ask("PATCH", "/api/v1/presets/3", named)[0] == 200
    assert ask("PUT", "/api/v1/presets/3", {})[0] == 200  # other values, the same name
    [preset] = [p for p in ask("GET", "/api/v1/presets")[2]["presets"] if p["number"] == 3]
    assert preset | named == preset
    for tail, body in (("3", {"name": "two\nlines"}), ("3", {}), ("99", named)):
        assert ask("PATCH", f"/api/v1/presets/{tail}", body)[0] in (404, 422), (tail, body)
    # A new user and his password are one change: refused, there is no user.
    assert ask("PUT", "/api/v1/users/carol", {"group": "3", "password": "no\x01"})[0] == 422
    assert "carol" not in str(ask("GET", "/api/v1/users")[2])
    assert ask("PUT", "/api/v1/users/carol", {"group": "3", "password": "right"})[0] == 201
    for password, expected in [("wrong", 401)] * 5 + [("right", 429)]:
        status, headers, _ = gateway.ask("POST", "/api/v1/token", {"user": "carol", "password": password})
        assert status == expected and (status != 429 or int(headers["Retry-After"]) > 0)
    status = gateway.appliance.path("/var/run/qv-engine/update.status")
    status.parent.mkdir(parents=True, exist_ok=True)
    for state in ("restart-needed", "idle"):
        status.write_text(f"state={state}\n")
        signs = ask("GET", "/api/v1/state")[2]["restart"]
        assert len(signs) == (state != "idle") and all(sign.endswith(".Update.Info.state") for sign in signs), signs


def test_the_daemon_keeps_the_rights(gateway):
    viewer = gateway.token("viewer", "viewer")
    for method, path, body in (
        ("PATCH", "/api/v1/values", {"values": {"Services.HTTP.port": 1}}),
        ("PATCH", "/api/v1/values", {"values": {"Services.HTTP.port": 1}, "mode": "commit"}),
        ("GET", "/api/v1/users", None),
        ("PUT", "/api/v1/users/viewer", {"group": "1"}),
        ("GET", "/api/v1/presets", None),
        ("GET", "/api/v1/export?what=presets", None),
        ("POST", "/api/v1/wizard", {"done": True}),
        ("POST", "/api/v1/import", "Services.HTTP.port = 1\n"),
        ("GET", "/api/v1/values/Services.Certificate.key", None),
    ):
        status, _, problem = gateway.ask(method, path, body, viewer)
        assert status in (403, 404), (path, status, problem)
    assert gateway.appliance.get("Services.HTTP.port") != "1"
    _, _, menu = gateway.ask("GET", "/api/v1/menu", token=viewer)
    assert menu["pages"]
    _, _, about = gateway.ask("GET", "/api/v1/describe?name=Services.HTTP.port", token=viewer)
    assert not about["apis"][0]["writable"]
    assert gateway.ask("DELETE", "/api/v1/session", token=viewer)[0] == 204
    assert "viewer" not in gateway.appliance.qvc("sessions")[1]


def test_what_other_sites_ask_is_refused(gateway):
    own = f"http://127.0.0.1:{gateway.port}"
    status, headers, _ = gateway.ask("POST", "/api/v1/session", ADMIN)
    cookie = headers["Set-Cookie"].split(";")[0]
    assert "HttpOnly" in headers["Set-Cookie"] and "SameSite=Strict" in headers["Set-Cookie"]
    change = {"values": {"Services.HTTP.port": 80}}
    for expected, headers in (
        (200, {"Origin": own}),
        (200, {"Sec_Fetch_Site": "same-origin"}),
        (403, {}),
        (403, {"Origin": "http://evil.example"}),
        (403, {"Origin": "null"}),
        (403, {"Origin": f"https://127.0.0.1:{gateway.port}"}),
        (403, {"Origin": own, "Sec_Fetch_Site": "cross-site"}),
        (403, {"Origin": own, "Sec_Fetch_Site": "same-site"}),
        (421, {"Origin": "http://evil.example", "Host": "evil.example"}),  # a name that was given our address
        (421, {"Origin": own, "Host": "127.0.0.1.evil.example"}),
    ):
        status, answered, _ = gateway.ask("PATCH", "/api/v1/values", change, Cookie=cookie, **headers)
        assert status == expected, headers
        assert "default-src 'self'" in answered["Content-Security-Policy"] and answered["X-Content-Type-Options"] == "nosniff"
    for path in ("/../etc/passwd", "/%2e%2e/etc/passwd", "/.hidden", "/nothing.html", "/js"):
        assert gateway.ask("GET", path)[0] == 404, path
    assert gateway.ask("GET", "/api/v1/session", Cookie=cookie, Sec_Fetch_Site="cross-site")[0] == 403


def test_too_much_is_refused(gateway):
    token = gateway.token()
    assert gateway.ask("PATCH", "/api/v1/values", "x" * 70_000, token)[0] == 413
    assert gateway.ask("POST", "/api/v1/import", "x" * 5_000_000, token)[0] == 413
    assert gateway.ask("POST", "/api/v1/import", "x" * 1_000_000)[0] == 413  # the place is for who is logged in
    assert gateway.ask("GET", "/", X="x" * 20_000)[0] == 431
    with socket.create_connection(("127.0.0.1", gateway.port)) as c:
        c.sendall(b"HELLO\r\n\r\n")
        assert c.recv(1000).startswith(b"HTTP/1.1 400 ")
    with contextlib.ExitStack() as stack:
        half = [stack.enter_context(socket.create_connection(("127.0.0.1", gateway.port))) for _ in range(32)]
        for c in half:
            c.sendall(b"GET / HTTP/1.1\r\n")
        with socket.create_connection(("127.0.0.1", gateway.port)) as one_more:
            assert one_more.recv(1) == b""  # so many of one address
        with contextlib.closing(gateway.connect("127.0.0.2")) as elsewhere:
            elsewhere.request("GET", "/openapi.json")
            assert elsewhere.getresponse().status == 200


def test_what_is_http_to_the_letter(gateway):
    host = b"Host: localhost\r\n"
    for header in (b"Transfer-Encoding: gzip, chunked\r\n", b"Transfer-Encoding: xchunked\r\n", host, b"X : 1\r\n",
                   b"Transfer-Encoding: chunked\r\nContent-Length: 5\r\n"):  # fmt: skip
        with socket.create_connection(("127.0.0.1", gateway.port)) as c:
            c.sendall(b"POST /api/v1/token HTTP/1.1\r\n" + host + header + b"\r\n0\r\n\r\nGET / HTTP/1.1\r\n" + host + b"\r\n")
            answer = b"".join(iter(lambda: c.recv(4096), b""))
        assert answer.startswith(b"HTTP/1.1 400 ") and answer.count(b"HTTP/1.1") == 1, header
    token = gateway.token()
    for path in ("/openapi.json", "/api/v1/session", "/api/v1/events"):
        with contextlib.closing(gateway.connect()) as connection:
            connection.request("HEAD", path, headers={"Authorization": f"Bearer {token}"})
            answer = connection.getresponse()
            assert (answer.status, answer.read()) == (200, b""), path
    assert gateway.ask("OPTIONS", "/api/v1/profiles/x")[1]["Allow"] == "GET, HEAD, POST, PUT, DELETE"
    assert gateway.ask("GET", "/api/v1/state")[1]["WWW-Authenticate"] == "Bearer"


def test_wrong_passwords_are_delayed_for_who_gives_them(gateway):
    wrong = {"user": "operator", "password": "s3cret,"}
    for _ in range(5):
        assert gateway.ask("POST", "/api/v1/session", wrong)[0] == 401
    status, headers, _ = gateway.ask("POST", "/api/v1/session", {**wrong, "password": "operator"})
    assert status == 429 and int(headers["Retry-After"]) >= 1
    with contextlib.closing(gateway.connect("127.0.0.3")) as elsewhere:  # who comes from another place is not held up
        elsewhere.request("POST", "/api/v1/token", json.dumps({**wrong, "password": "operator"}))
        assert elsewhere.getresponse().status == 201


def threads_of(process):
    return len(os.listdir(f"/proc/{process.pid}/task"))


def test_events_go_to_hundreds_and_are_resumed(gateway):
    token = gateway.token()
    before = threads_of(gateway.process)
    with contextlib.ExitStack() as stack:
        streams = [Stream(gateway, token, source=f"127.0.1.{i // 20 + 1}") for i in range(200)]
        for stream in streams:
            stack.callback(stream.close)
            stream.next()  # where it begins
        assert threads_of(gateway.process) == before
        gateway.ask("PATCH", "/api/v1/values", {"values": {"Network.search": "first.example"}}, token)
        assert len({json.dumps(stream.wait_for("Network.search=first.example")) for stream in streams}) == 1
    last = streams[0].last
    for value in ("second.example", "third.example"):
        gateway.ask("PATCH", "/api/v1/values", {"values": {"Network.search": value}}, token)
    for seen, missed in ((last, ["second", "third"]), ("1-1", None)):
        with contextlib.closing(Stream(gateway, token, seen)) as stream:
            if missed is None:
                assert stream.next()["event"] == "reset"
            for value in missed or []:
                assert f"Network.search={value}.example" in stream.next()["data"]
    with contextlib.closing(Stream(gateway, token)) as stream:
        gateway.ask("DELETE", "/api/v1/session", token=token)
        while stream.next():
            pass
    for _ in range(300):  # who logs out while his stream begins
        own = gateway.token()
        with contextlib.ExitStack() as stack:
            for method, path in (("GET", "events"), ("DELETE", "session")):
                connection = stack.enter_context(contextlib.closing(gateway.connect()))
                connection.request(method, f"/api/v1/{path}", headers={"Authorization": f"Bearer {own}"})
            connection.getresponse().read()
    assert gateway.process.poll() is None


def test_metrics_are_what_prometheus_reads(gateway):
    basic = "Basic " + base64.b64encode(b"viewer:viewer").decode()
    for authorization, expected in ((basic, 200), (basic, 200), (basic.replace("B", "b", 1), 200), ("Basic eDp5", 401), ("Basic =", 401), ("", 401)):
        status, _, text = gateway.ask("GET", "/metrics", Authorization=authorization)
        assert status == expected, authorization
        if status == 200:
            told = text
            families = {family.name: family for family in text_string_to_metric_families(text)}
    if promtool := shutil.which("promtool"):
        done = subprocess.run([promtool, "check", "metrics"], input=told, capture_output=True, text=True)
        complaints = [line for line in (done.stdout + done.stderr).splitlines() if "use base unit" not in line]
        assert done.returncode in (0, 3) and not complaints, complaints  # 3: units, which are those of the settings
    for name in ("qvcd_sessions", "qvcd_refused_logins", "qvcd_unsaved_changes",
                 "qvcd_saves", "qvcd_failed_saves", "qvcd_lost_listeners", "qvcd_resident_memory_bytes"):  # fmt: skip
        assert families[name].samples[0].value >= 0
    logins = [s for s in families["qvcd_command_seconds"].samples if s.labels["command"] == "login"]
    within = [s.value for s in logins if s.name.endswith("_bucket")]
    assert within == sorted(within) and within[-1] == logins[-1].value >= 2 and len(within) == 9
    assert any(name.startswith("qv_") for name in families)


def test_a_daemon_that_goes_and_comes_back(appliance):
    a = appliance(shipped=True).start()
    with Gateway(a, "--plain") as gateway:
        token = gateway.token()
        number = re.search(r"\n  (\d+) \{\n    user = admin", a.command("sessions").lines and a.qvc("sessions")[1])[1]
        stream = Stream(gateway, token)
        stream.next()
        a.kill()
        assert stream.next()["event"] == "lost"
        status, headers, problem = gateway.ask("GET", "/api/v1/values/Network.hostname", token=token)
        assert status == 503 and headers["Retry-After"], problem
        a.start()
        assert stream.next()["event"] == "back"
        assert stream.next() is None  # the new daemon knows no session of the old one
        assert gateway.ask("GET", "/api/v1/values/Network.hostname", token=token)[0] == 401
        assert gateway.ask("GET", "/api/v1/values/Network.hostname", token=gateway.token())[0] == 200
        stream.close()
    log = gateway.errors.read_text()
    assert not any(secret in log for secret in (token, number, "kelpo"))


def test_tls_begins_by_itself(appliance):
    a = appliance(shipped=True).start()
    key = a.path("/var/lib/qvweb/key.pem")
    with Gateway(a) as gateway:
        status, headers, _ = gateway.ask("POST", "/api/v1/session", ADMIN)
        assert status == 201 and "; Secure" in headers["Set-Cookie"] and "max-age" in headers["Strict-Transport-Security"]
        assert key.stat().st_mode & 0o777 == 0o600
        made = ssl.get_server_certificate(("127.0.0.1", gateway.port))
        names = subprocess.run(["openssl", "x509", "-noout", "-text"], input=made, capture_output=True, text=True).stdout
        assert "DNS:localhost" in names and "IP Address:127.0.0.1" in names and "P-256" in names
    with Gateway(a) as gateway:
        assert ssl.get_server_certificate(("127.0.0.1", gateway.port)) == made
    own = key.with_name("certificate.pem")
    subprocess.run(["openssl", "req", "-x509", "-key", key, "-days", "9", "-subj", "/CN=old", "-out", own], check=True, capture_output=True)
    for spoil in (lambda: None, lambda: key.write_text("cut off")):  # the first one ends soon
        spoil()
        before = own.read_text()
        with Gateway(a) as gateway:
            made = ssl.get_server_certificate(("127.0.0.1", gateway.port))
            assert made.strip() == own.read_text().strip() != before.strip()
    for options in (["--plain", "--listen", "0.0.0.0:0"], ["--listen", "nowhere"], ["--key", "x"], ["--idle", "0"]):
        done = subprocess.run([BIN_DIR / "qvweb", *options], env=a.environment(), capture_output=True, timeout=PATIENCE)
        assert done.returncode == 2 and done.stderr.startswith(b"qvweb: "), options
