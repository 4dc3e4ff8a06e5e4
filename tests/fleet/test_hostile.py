"""Appliances that lie, and a person who asks them all the same."""

import json
import os
import subprocess

import paho.mqtt.client as mqtt
import pytest
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties

from appliance import PATIENCE, QVC, wait_until
from broker import PASSWORD


class Liar:
    """At the broker as an appliance; `answer` gets what it is asked."""

    def __init__(self, broker, user):
        self.user, self.requests, ready = user, [], []
        self.answer = lambda request: None
        self.client = mqtt.Client(protocol=mqtt.MQTTv5)
        self.client.tls_set(str(broker.folder / "ca.pem"))
        self.client.username_pw_set(user, PASSWORD + user)
        self.client.on_message = self._on_message
        self.client.on_subscribe = lambda *_: ready.append(True)
        self.client.on_connect = lambda client, *_: client.subscribe(f"qv/fleet/request/{user}", 1)
        self.client.connect("127.0.0.1", broker.port)
        self.client.loop_start()
        wait_until(lambda: ready, "its subscription")

    def _on_message(self, client, data, request):
        self.requests.append(request.payload)
        self.answer(request)

    def tell(self, **status):
        self.tell_text(json.dumps({"online": True, **status}))

    def tell_text(self, text):
        self.client.publish(f"qv/fleet/status/{self.user}", text, 1, True).wait_for_publish(PATIENCE)

    def reply(self, request, text, part=1, parts=1):
        packet = Properties(PacketTypes.PUBLISH)
        packet.CorrelationData = request.properties.CorrelationData
        packet.UserProperty = [("part", str(part)), ("parts", str(parts))]
        self.client.publish(request.properties.ResponseTopic, text, 1, properties=packet)

    def close(self):
        self.client.disconnect()
        self.client.loop_stop()


@pytest.fixture
def site(running, broker, tmp_path):
    b = broker("enc1", "enc2")
    conf = tmp_path / "home/.config/qvc/fleet.conf"
    conf.parent.mkdir(parents=True)
    conf.write_text(
        f"broker=mqtts://operator@127.0.0.1:{b.port}\nbroker_password={PASSWORD}operator\n"
        f"cafile={tmp_path}/ca.pem\nuser=admin\npassword=Kennwort\n"
    )
    conf.chmod(0o600)

    def fleet(*words, options=()):
        kept = {k: v for k, v in os.environ.items() if not k.startswith(("QVC_", "XDG_"))}
        done = subprocess.run([QVC, *options, "fleet", *words], env={**kept, "HOME": tmp_path / "home"}, text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=2 * PATIENCE)  # fmt: skip
        return done.returncode, done.stdout, done.stderr

    return fleet, lambda user: running(Liar(b, user))


def test_what_it_says_of_itself(site):
    fleet, liar = site
    liar("enc1").tell(label="Studio")
    other = liar("enc2")
    other.tell(id="enc1", label="a\nenc9\tonline\t\x1b[2J")
    assert [json.loads(line)["id"] for line in fleet("list", "--json")[1].splitlines()] == ["enc1", "enc2"]
    rows = [line.split("\t") for line in fleet("list")[1].splitlines()]
    assert [row[0] for row in rows] == ["ID", "enc1", "enc2"]
    assert rows[2][2] == "a\\u000aenc9\\u0009online\\u0009\\u001b[2J"
    deep = 400_000
    for text in ('{"online":true,"x":' + "[" * deep + "]" * deep + "}", '{"online":true,"x":' + "[" * 99 + "]" * 99 + "}", "[]", "{"):
        other.tell_text(text)
        assert fleet("list", "--json", "--where", "id=enc1")[0] == fleet("list", "--json", "--where", "x=*")[0] == 0
    watcher = liar("watcher")  # no appliance: nobody may send it the password
    watcher.tell()
    assert fleet("get", "--where", "id=watcher", "A")[0] == 1 and watcher.requests == []


def test_what_it_answers(site):
    fleet, liar = site
    one, other = liar("enc1"), liar("enc2")
    one.tell()
    other.tell()
    one.answer = lambda request: one.reply(request, "A=1\n@\n0\n")

    def in_its_name(request):
        for _ in range(2):  # of these and in the other order
            other.reply(request, "A=2\n@\n", 1, 2)
            other.reply(request, "0\n", 2, 2)

    other.answer = in_its_name
    assert fleet("get", "A")[:2] == (0, "NAME\tenc1\tenc2\nA\t1\t2\n")
    other.answer = lambda request: [other.reply(request, b"x" * 500_000, i + 1, 10**9) for i in range(20)]
    code, output, errors = fleet("get", "A")
    assert (code, output) == (1, "NAME\tenc1\nA\t1\n") and "enc2: its reply is too long" in errors
    other.answer = lambda request: other.reply(request, "@\n0\n", 2, 2)
    assert fleet("get", "A", options=["-t", "1"])[2] == "qvc: enc2: it did not answer in time\n"
    refused = {"values": [], "errors": [{"name": "A", "error": "no\nenc1: done: entry 7"}]}
    other.answer = lambda request: other.reply(request, json.dumps(refused) + "\n@\n1\n")
    code, output, _ = fleet("commit", "--settle", "0", "--where", "id=enc2", "A=1")
    assert code == 1 and output.splitlines()[0] == "enc2: failed: A=no\\u000aenc1: done: entry 7"
    assert fleet("commit", "--settle", "31", "A=1")[0] == 2
