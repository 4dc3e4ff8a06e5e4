"""One appliance at its broker, as anybody with an MQTT client sees it."""

import os
import time

from appliance import Appliance, metadata, user_file, wait_until

META = metadata("""
System.Configuration.Label.name: type = string; default = Studio; perm = 7774; read = kv_rfunc; write = kv_wfunc; file = /etc/label; attr = label
System.Info.Version.firmware: type = string; perm = 4444; dynamic = true; read = kv_rfunc; file = /etc/version; attr = v
Net.state: type = string; perm = 4444; dynamic = true; read = linkstate_rfunc; attr = lo
Web.port: type = integer_range 1 99999; default = 80; perm = 7744; read = kv_rfunc; write = kv_wfunc; file = /etc/web; attr = port
Web.secret: type = password 1 80; default = x; perm = 7700; read = kv_rfunc; write = kv_wfunc; file = /etc/web; attr = secret
Web.slow: type = string; perm = 7744; default = 0; dynamic = true; read = syscall_rfunc; attr = $QV_SYSROOT/slow; write = no_wfunc
Web.much: type = string; perm = 7744; default = 0; dynamic = true; read = syscall_rfunc; attr = echo much; write = no_wfunc
""")
USERS = user_file({1: "0fff", 3: "000f"}, {"admin": (1, "Kennwort"), "guest": (3, "guest")})
BIG = 3000


def member(running, broker, id="enc1", **conf):
    files = {
        "/etc/user.conf": USERS,
        "/etc/version": "v=1.2r7\n",
        "/slow": ('#!/bin/sh\nwhile [ ! -e "$QV_SYSROOT/go" ]; do sleep 0.01; done\necho 42\n', 0o755),
        **broker.notify_conf(id, **conf),
    }
    many = metadata("".join(f"Many.a{i}: type = string; perm = 7744; default = {'x' * 90}; read = kv_rfunc; file = /etc/many; attr = a{i}\n" for i in range(BIG)))
    return running(Appliance(META + many, files)).start()


def test_status_follows_what_happens(running, broker, operator):
    b = broker("enc1")
    a = member(running, b)
    op = operator(b)
    first = op.wait_for_status("enc1", online=True, label="Studio", version="1.2r7", modified=0)
    assert first["links"] == {"lo": "unknown"} or first["links"]["lo"] in ("up", "down"), first
    assert len(first["revision"]) == 16
    assert op.ask("enc1", "set Web.port=81") == "Web.port=81\n@\n0\n"
    assert op.wait_for_status("enc1", modified=1)["revision"] == first["revision"]
    assert op.ask("enc1", "save").endswith("@\n0\n")
    op.wait_for_status("enc1", modified=0)
    wait_until(lambda: op.status["enc1"]["revision"] != first["revision"], "another revision")
    assert op.ask("enc1", "set Web.port=80\nsave").endswith("@\n0\n")
    op.wait_for_status("enc1", modified=0, revision=first["revision"])
    assert op.ask("enc1", "set Web.secret=Kennung\nsave").endswith("@\n0\n")
    assert "Kenn" not in a.log()
    a.stop()
    gone = op.wait_for_status("enc1", online=False)
    assert gone["label"] == "Studio" and "revision" not in gone
    a.start()
    op.wait_for_status("enc1", online=True, revision=op.wait_for_status("enc1", modified=0)["revision"])
    a.kill()
    op.wait_for_status("enc1", online=False)


def test_rights_are_those_of_who_logs_in(running, broker, operator):
    b = broker("enc1")
    a = member(running, b)
    op = operator(b)
    op.wait_for_status("enc1", online=True)
    refused = "##Log in first#\n@\n1\n"
    guest = {"user": "guest", "password": "guest"}
    for properties, answer in [
        (guest, "##Invalid permission#\n@\n1\n"),
        ({"user": "admin", "password": "wrong"}, "##Invalid password#\n@\n1\n"),
        ({"user": "x:admin", "password": "Kennwort"}, "##Invalid user#\n@\n1\n"),
        ({"user": "admin"}, "##Invalid password#\n@\n1\n"),
        ({"client": "me"}, refused),
        ({"session": "0"}, refused),
        ({"session": "00"}, refused),
        ({"session": "-1"}, refused),
        ({"session": "12345"}, refused),
    ]:
        got = op.ask("enc1", "set Web.port=82", **properties)
        assert got == answer or properties is guest and "##Invalid permission#" in got, (properties, got)
    session = op.ask("enc1", "login admin Kennwort").split("\n")[0].removeprefix("Session=")
    assert op.ask("enc1", "get Web.port", session=session) == "Web.port=80\n@\n0\n"
    local = a.login("admin", "Kennwort")  # what was logged in elsewhere is for elsewhere
    assert local == int(session) or op.ask("enc1", "get Web.port", session=str(local)) == refused
    for _ in range(5):
        op.ask("enc1", "get Web.port", user="admin", password="wrong")
    assert "##Try again in " in op.ask("enc1", "get Web.port")
    assert "##Try again" not in op.ask("enc1", "get Web.port", **guest)
    assert "by mqtt" in a.log() and "wrong" not in a.log()


def test_a_broker_that_repeats_and_floods(running, broker, operator):
    b = broker("enc1")
    a = member(running, b)
    op = operator(b)
    op.wait_for_status("enc1", online=True)
    for _ in range(3):
        op.send("enc1", "history -n 1\nset Web.port=90", correlation=b"once")
    op.send("enc1", "get Web.port", correlation=b"twice")
    assert [op.reply()[0] for _ in "12"][1] == "Web.port=90\n@\n0\n"
    assert a.log().count("cmd: [set]") == 1
    # Elsewhere nothing is written, and without a number nothing is run.
    for topic in ("qv/enc1/set", "qv/fleet/status/enc1", "qv/fleet/reply/operator/enc2", "qv/fleet/reply/enc1",
                  "qv/fleet/reply/operator/x enc1", "other/fleet/reply/operator/enc1"):  # fmt: skip
        op.send("enc1", "set Web.port=91", topic=topic)
    op.send("enc1", "set Web.port=91", correlation=b"")
    assert op.reply()[0] == "##Invalid correlation data#\n@\n1\n"
    assert op.ask("enc1", "get Web.port") == "Web.port=90\n@\n0\n"
    # While one of a caller's waits, the others do, in order; too many are refused; others are served.
    op.send("enc1", "get Web.slow")
    wait_until(lambda: "Web.slow" in a.log(), "the slow one's begin")
    sent = 200
    for i in range(sent):
        op.send("enc1", f"set Web.port={1000 + i}")
    refused = [op.reply() for _ in range(sent - 64)]
    assert {(text, p.get("refused")) for text, p in refused} == {("##Too many requests wait#\n@\n1\n", "1")}
    assert a.get("Web.port") == "90"
    a.write("/go", "")
    assert op.reply()[0].startswith("Web.slow=42\n")
    assert [op.reply()[0] for _ in range(64)] == [f"Web.port={1000 + i}\n@\n0\n" for i in range(64)]
    # A long reply comes in parts, and a reply of everything is the same as over the socket.
    text = op.ask("enc1", "get Many")
    assert text.encode() == a.talk("get Many") and len(text) > 300_000


def test_broker_that_goes_and_comes_back(running, broker, operator):
    b = broker("enc1")
    a = member(running, b)
    op = operator(b)
    op.wait_for_status("enc1", online=True)
    b.stop()
    wait_until(lambda: " is away: " in a.log(), "the loss in the log")
    a.command("set System.Configuration.Label.name=Stage")
    op.status.clear()
    b.start()
    op.wait_for_status("enc1", online=True, label="Stage")
    assert op.ask("enc1", "get Web.port") == "Web.port=80\n@\n0\n"


def test_commands_need_tls(running, broker):
    b = broker("enc1")
    for conf, line in [
        ({"cafile": ""}, "commands need TLS"),
        ({"id": "a/b"}, "the id is no level of a topic"),
        ({"certfile": "/etc/fleet.pem"}, "certfile and keyfile belong together"),
    ]:
        a = member(running, b, **conf)
        assert line in a.log()
        a.stop()
