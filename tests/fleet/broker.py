"""A real Mosquitto with TLS, log-ins and the ACL file that ships, and somebody who talks to appliances over it."""

import contextlib
import json
import pathlib
import queue
import shutil
import socket
import subprocess
import sys
import uuid

import paho.mqtt.client as mqtt
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties
from paho.mqtt.subscribeoptions import SubscribeOptions

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))
from appliance import REPOSITORY, PATIENCE, Reservation, die_with_us, wait_until  # noqa: E402

SBIN = "/usr/sbin:/usr/local/sbin:/usr/bin:/usr/local/bin"
PASSWORD = "pass of "  # and the user's name


def run(*words):
    subprocess.run([str(w) for w in words], check=True, capture_output=True, timeout=PATIENCE)


def make_certificates(folder):
    """An authority and the broker's certificate."""
    new = ["openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"]
    run(*new, "-x509", "-days", "2", "-subj", "/CN=Fleet", "-keyout", folder / "ca.key", "-out", folder / "ca.pem")
    run(*new, "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1",
        "-keyout", folder / "broker.key", "-out", folder / "broker.csr")  # fmt: skip
    run("openssl", "x509", "-req", "-in", folder / "broker.csr", "-CA", folder / "ca.pem", "-CAkey", folder / "ca.key",
        "-CAcreateserial", "-days", "2", "-copy_extensions", "copy", "-out", folder / "broker.pem")  # fmt: skip


class Broker:
    def __init__(self, folder, users, more_acl=""):
        self.folder = folder
        self.reservation = Reservation()
        self.port = self.reservation.port
        self.process = None
        make_certificates(folder)
        passwords = folder / "passwords"
        passwords.write_text("".join(f"{user}:{PASSWORD}{user}\n" for user in [*users, "operator", "watcher"]))
        run(shutil.which("mosquitto_passwd", path=SBIN), "-U", passwords)
        acl = folder / "acl"
        acl.write_text((REPOSITORY / "share/fleet/acl.example").read_text() + more_acl)
        settings = {
            "cafile": folder / "ca.pem",
            "certfile": folder / "broker.pem",
            "keyfile": folder / "broker.key",
            "password_file": passwords,
            "acl_file": acl,
        }
        lines = [f"listener {self.port} 127.0.0.1", *(f"{k} {v}" for k, v in settings.items()), "user root"]
        more = "allow_anonymous false\npersistence false\nmax_queued_messages 10000\n"
        (folder / "mosquitto.conf").write_text("\n".join(lines) + "\n" + more)

    def start(self):
        self.process = subprocess.Popen(
            [shutil.which("mosquitto", path=SBIN), "-c", self.folder / "mosquitto.conf"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, preexec_fn=die_with_us,
        )  # fmt: skip
        wait_until(self._listens, "the broker")
        return self

    def _listens(self):
        with contextlib.suppress(ConnectionError), socket.create_connection(("127.0.0.1", self.port), 1):
            return True
        return False

    def stop(self):
        if self.process:
            self.process.kill()
            self.process.wait()
            self.process = None

    def close(self):
        self.stop()
        self.reservation.close()

    def notify_conf(self, id, **more):
        """An appliance's /etc/qv/notify.conf."""
        keys = {"host": "127.0.0.1", "port": self.port, "user": id, "password": PASSWORD + id, "id": id,
                "cafile": "/etc/fleet.pem", "commands": "yes", **more}  # fmt: skip
        return {
            "/etc/qv/notify.conf": "".join(f"{k}={v}\n" for k, v in keys.items()),
            "/etc/fleet.pem": (self.folder / "ca.pem").read_text(),
        }


class Operator:
    """Knows all statuses, and asks."""

    def __init__(self, broker, user="operator"):
        self.user = user
        self.status = {}
        self.replies = queue.Queue()
        ready = []
        self.client = mqtt.Client(protocol=mqtt.MQTTv5)
        self.client.tls_set(str(broker.folder / "ca.pem"))
        self.client.username_pw_set(user, PASSWORD + user)
        self.client.on_message = self._on_message
        self.client.on_subscribe = lambda *_: ready.append(True)
        self.client.on_connect = lambda client, *_: client.subscribe(
            [(f"qv/fleet/{what}", SubscribeOptions(qos=1)) for what in ("status/+", f"reply/{user}/+")]
        )
        self.client.connect("127.0.0.1", broker.port)
        self.client.loop_start()
        wait_until(lambda: ready, "our subscription")

    def _on_message(self, client, data, message):
        if message.topic.startswith("qv/fleet/status/"):
            self.status[message.topic.split("/")[-1]] = json.loads(message.payload)
        else:
            self.replies.put(message)

    def wait_for_status(self, id, **facts):
        def fits():
            return all(self.status.get(id, {}).get(name) == value for name, value in facts.items())

        wait_until(fits, f"{facts} in the status of {id}")
        return self.status[id]

    def send(self, id, lines, correlation=None, topic=None, **properties):
        packet = Properties(PacketTypes.PUBLISH)
        packet.ResponseTopic = topic or f"qv/fleet/reply/{self.user}/{id}"
        if correlation != b"":
            packet.CorrelationData = correlation or uuid.uuid4().bytes
        packet.UserProperty = list((properties or {"user": "admin", "password": "Kennwort"}).items())
        self.client.publish(f"qv/fleet/request/{id}", lines, qos=1, properties=packet)

    def reply(self):
        """The next reply: its text, all parts of it, and the user properties of the last part."""
        text = b""
        while True:
            message = self.replies.get(timeout=PATIENCE)
            text += message.payload
            properties = dict(message.properties.UserProperty)
            if properties["part"] == properties["parts"]:
                return text.decode(), properties

    def ask(self, id, lines, **properties):
        self.send(id, lines, **properties)
        return self.reply()[0]

    def close(self):
        self.client.disconnect()
        self.client.loop_stop()
