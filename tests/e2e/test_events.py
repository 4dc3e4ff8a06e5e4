"""Events: the local socket, and a real broker."""

import contextlib
import json
import select
import shutil
import socket
import subprocess

import paho.mqtt.client
import pytest

from appliance import QVC, Reply, Reservation, die_with_us, metadata, wait_until

META = metadata("""
Web: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/web.conf; apply = no_apply
Web.port: attr = port; type = portnumber; default = 80
Web.password: attr = password; type = password 1 64; default = initial
Web.text: attr = text; default =
""")
USERS = "Group.1.perm = 777\nUser.admin.group = 1\nUser.admin.passwd = kelpo\n"


@pytest.fixture
def a(appliance):
    return appliance(META, {"/etc/user.conf": (USERS, 0o600)})


# ---- The local socket ----


def test_every_event_in_order(a):
    events = a.start().subscribe()
    session = a.login("admin", "kelpo")
    a.command("update Web.port=81")
    a.command("sets Web.port=82,Web.text=x")
    a.command("save")
    a.command(f"logout {session}")
    events.wait_for("logout", f"session={session}")
    assert events.seen() == [
        ("login", f"admin={session}"),
        ("set", "Web.port=81"),
        ("save", "Web.port=81"),
        ("apply", "Web.port=81"),
        ("set", "Web.port=82"),
        ("set", "Web.text=x"),
        ("save", "Web.port=82"),
        ("save", "Web.text=x"),
        ("logout", f"session={session}"),
    ]
    assert events.objects[1] == {
        "identity": "qvc", "class": "event", "event": "set", "payload": "Web.port=81", "topic": "qvc set",
    }  # fmt: skip
    assert a.logged("notify: set: Web.port=81 (qvc set)")


def test_what_changes_nothing_is_no_event(a):
    events = a.start().subscribe()
    for command in ("set Web.port=80", "set Web.port=x", "set Nowhere=1", "save", "apply", "get", "logout 5",
                    "login admin wrong", "default", "revert", "insert Web.new=1", "delete Web.new"):  # fmt: skip
        a.command(command)
    a.command("set Web.port=81")
    events.wait_for("set", "Web.port=81")
    assert events.seen() == [("set", "Web.port=81")]


def test_watching_client(a):
    a.start()
    watch = subprocess.Popen(
        [QVC, "watch", "--json"],
        env=a.environment(),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        preexec_fn=die_with_us,
    )
    with watch:
        try:
            # Events are seen from when the daemon has taken the subscriber in.
            def sees():
                a.command("login admin kelpo")
                return select.select([watch.stdout], [], [], 0.02)[0]

            wait_until(sees, "a line of the client")
            first = json.loads(watch.stdout.readline())
            assert (first["event"], first["payload"].split("=")[0]) == ("login", "admin")
        finally:
            watch.terminate()


# ---- A broker ----

MOSQUITTO = shutil.which("mosquitto", path="/usr/sbin:/usr/local/sbin:/usr/bin:/usr/local/bin")


class Broker:
    def __init__(self, folder):
        self.reservation = Reservation()
        self.port = self.reservation.port
        self.config = folder / "mosquitto.conf"
        self.config.write_text(f"listener {self.port} 127.0.0.1\nallow_anonymous true\npersistence false\n")
        self.process = None
        self.client = None
        self.messages = []

    def start(self):
        assert MOSQUITTO, "mosquitto is not installed"
        self.process = subprocess.Popen(
            [MOSQUITTO, "-c", self.config],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            preexec_fn=die_with_us,
        )
        wait_until(self._listens, "the broker")
        ready = []
        self.client = paho.mqtt.client.Client()
        self.client.on_message = lambda client, data, m: self.messages.append((m.topic, m.payload.decode(), m.qos))
        self.client.on_connect = lambda client, *_: client.subscribe("qv/#", 1)
        self.client.on_subscribe = lambda *_: ready.append(True)
        self.client.connect("127.0.0.1", self.port)
        self.client.loop_start()
        wait_until(lambda: ready, "our subscription")

    def _listens(self):
        with contextlib.suppress(ConnectionError), socket.create_connection(("127.0.0.1", self.port), 1):
            return True
        return False

    def stop(self):
        if self.client:
            self.client.disconnect()
            self.client.loop_stop()
            self.client = None
        if self.process:
            self.process.kill()
            self.process.wait()
            self.process = None

    def wait_for(self, event, payload):
        message = (f"qv/{socket.gethostname()}/{event}", payload, 1)
        wait_until(lambda: message in self.messages, f"message {message}")

    def close(self):
        self.stop()
        self.reservation.close()


@pytest.fixture
def broker(a):
    broker = Broker(a.root)
    with contextlib.closing(broker):
        yield broker


def test_events_reach_the_broker_without_session_numbers(a, broker):
    broker.start()
    a.write("/etc/qv/notify.conf", f"# The house's broker.\nhost = 127.0.0.1\nport = {broker.port}\n")
    a.start(tcp=True)
    events = a.subscribe()
    a.wait_for_log(f"notify: broker 127.0.0.1 port {broker.port} is there")
    session = a.login("door:admin", "kelpo", tcp=True)
    assert a.command("update Web.port=81", session, tcp=True).code == 0
    assert a.command("update Web.password=hush", session, tcp=True).code == 0
    a.command(f"logout {session}", tcp=True)
    events.wait_for("logout", f"session={session}")
    local = events.seen()
    public = [(event, payload.replace(str(session), "*******")) for event, payload in local]
    assert local[0] == ("login", f"admin={session}") and ("set", "Web.port=81") in local
    shown = []

    def all_there():
        shown[:] = [(topic.split("/")[2], payload) for topic, payload, _ in broker.messages]
        return shown[-len(public) :] == public

    wait_until(all_there, f"the messages {public}")
    assert not [payload for _, payload in shown if str(session) in payload or "hush" in payload]
    assert "hush" not in a.log() and str(session) not in a.log()


def test_broker_that_goes_and_comes_back(a, broker):
    a.write("/etc/qv/notify.conf", f"host=127.0.0.1\nport={broker.port}\n")
    a.start()
    where = f"notify: broker 127.0.0.1 port {broker.port} is"
    wait_until(lambda: f"{where} away: " in a.log(), "the broker's absence in the log")
    assert a.command("set Web.port=81") == Reply(["Web.port=81"], 0)  # nobody waits for it
    broker.start()
    broker.wait_for("set", "Web.port=81")  # what was published meanwhile is kept
    assert a.logged(f"{where} there")
    broker.stop()
    wait_until(lambda: a.log().count(f"{where} away: ") == 2, "the loss in the log")
    assert a.command("set Web.port=82") == Reply(["Web.port=82"], 0)
    broker.start()
    broker.wait_for("set", "Web.port=82")
    assert a.logged(f"{where} back")


def test_stop_while_the_broker_is_away(a, broker):
    a.write("/etc/qv/notify.conf", f"host=127.0.0.1\nport={broker.port}\n")
    a.start()
    assert a.talk([f"set Web.port={n}" for n in range(1000, 2200)]).endswith(b"@\n0\n")
    wait_until(lambda: a.logged("notify: the broker's queue is full, further events are lost"), "a full queue")
    a.stop()


@pytest.mark.parametrize(
    "text, line",
    [
        ("host=127.0.0.1\nport=99999\n", "/etc/qv/notify.conf: the port is no number from 1 to 65535, no events to the broker"),
        ("host=127.0.0.1\nport=x\n", "/etc/qv/notify.conf: the port is no number from 1 to 65535, no events to the broker"),
        ("nonsense=1\n", "/etc/qv/notify.conf: unknown key nonsense"),
        ("host=127.0.0.1\ncafile=/nonexistent\n",
         "notify: no events to the broker, user or cafile cannot be used: "),
    ],
)  # fmt: skip
def test_bad_configuration_of_the_broker(a, text, line):
    a.write("/etc/qv/notify.conf", text)
    events = a.start().subscribe()
    assert line in a.log()
    a.command("set Web.port=81")
    events.wait_for("set", "Web.port=81")
