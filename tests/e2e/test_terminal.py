"""What a person sees of changes: qvc on a terminal."""

import json
import re
import subprocess

import pytest

from appliance import QVC, metadata, wait_until
from terminal import Terminal

META = metadata("""
A: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/a.conf
A.port: attr = port; type = integer_range 1 99; default = 1; apply = syscall true
A.name: attr = name; type = string_length 0 99; default = x; apply = syscall true
A.bad: attr = bad; type = boolean; default = 0; apply = syscall kill -9 $$
""")
PLAN = """A.port=1 -> 5
--- /etc/a.conf
+++ /etc/a.conf
@@ -1,3 +1,3 @@
-port=1
+port=5
 name=x
 bad=0
apply: syscall true
"""
COLOURED_PLAN = """A.port=<31>1<0> -> <32>5<0>
<1>--- /etc/a.conf<0>
<1>+++ /etc/a.conf<0>
<36>@@ -1,3 +1,3 @@<0>
<31>-port=1<0>
<32>+port=5<0>
 name=x
 bad=0
<33>apply: syscall true<0>
"""
ASKED = "Keep this change? [y/N] "


@pytest.fixture
def a(appliance):
    return appliance(META, {"/etc/a.conf": "port=1\nname=x\nbad=0\n"}).start()


def shown(a, *words, **env):
    """What stands on a terminal in the end, and the exit status."""
    with Terminal([QVC, *words], a.environment(**env)) as terminal:
        status = terminal.wait()
        return status, re.sub("\033\\[(\\d+)m", r"<\1>", terminal.screen)


def history(a):
    return json.loads(a.command("history -j").lines[0])["entries"]


def test_colours_are_for_terminals(a):
    plan = ("plan", "A.port=5")
    assert shown(a, *plan) == (0, COLOURED_PLAN)
    assert shown(a, *plan, NO_COLOR="1") == (0, PLAN)
    assert shown(a, *plan, TERM="dumb") == (0, PLAN)
    assert a.qvc(*plan) == (0, PLAN)
    status, text = shown(a, "--json", *plan)
    assert status == 0 and json.loads(text) == {
        "values": [{"name": "A.port", "old": "1", "new": "5"}],
        "files": [{"file": "/etc/a.conf", "diff": "".join(PLAN.splitlines(True)[3:8])}],
        "actions": [{"action": "syscall true", "status": 0}]}
    failed = "syscall kill -9 $$<0><31>: ended by signal 9<0>"
    assert shown(a, "commit", "A.bad=1") == (1, "A.bad=<31>0<0> -> <32>1<0>\nA.bad=<31>##Apply failed#<0>\n"
                                             f"<33>apply: {failed}\n<33>undo: {failed}\nCommit.end=undone\nCommit=1\n")


def test_no_value_rules_the_terminal(appliance):
    hostile, harmless = "\u009b31m\u00e9\u009d0 x", "\\u009b31m\u00e9\\u009d0 x"
    a = appliance(META + metadata("A.ssid: attr = ssid; type = ssid; default = x")).start()
    assert a.qvc("set", f"A.ssid={hostile}")[0] == 0
    assert a.qvc("get", "A.ssid") == (0, f"A.ssid={hostile}\n")
    for words in (("get", "A.ssid"), ("get", "A"), ("tree", "A"), ("-e", "get", "A")):
        status, text = shown(a, *words)
        assert status == 0 and hostile not in text and harmless in text, words
    status, text = shown(a, "--json", "get", "A.ssid")
    assert "\u009b" not in text and json.loads(text)["values"] == {"A.ssid": hostile}


@pytest.mark.parametrize("answer, value, end", [
    ("y", "5", "confirmed"), ("n", "1", "undone: aborted"), ("\r", "1", "undone: aborted"),
    ("?Y", "5", "confirmed"), ("", "1", "undone: not confirmed in time")])
def test_the_countdown_is_answered(a, answer, value, end):
    seconds = "600" if answer else "2"
    with Terminal([QVC, "commit", "-c", seconds, "A.port=5"], a.environment()) as terminal:
        terminal.wait_for(f"{ASKED}{seconds} s")
        assert a.get("A.port") == "5"
        terminal.press(answer)
        assert terminal.wait() == (0 if end == "confirmed" else 1), terminal.screen
    wait_until(lambda: history(a)[-1]["end"] == end, "the end of the commit")
    assert a.get("A.port") == value
    assert a.command("commit -s").lines == ["Commit=none"]


@pytest.mark.parametrize("answer", "yn")
def test_the_answer_is_for_this_change_only(a, answer):
    with Terminal([QVC, "commit", "-c", "600", "A.port=5"], a.environment()) as terminal:
        terminal.wait_for(ASKED)
        a.command("abort")
        a.command("commit -c 600 A.name=theirs")
        terminal.press(answer)
        assert terminal.wait() == 1
        assert "##Nothing awaits confirmation#" in terminal.screen
    assert a.command("commit -s").lines[0] == "Commit=3"
    assert a.get("A.name") == "theirs"


@pytest.mark.parametrize("ender", ["\x03", "\x04"])
def test_who_leaves_leaves_it_to_the_daemon(a, ender):
    with Terminal([QVC, "commit", "-c", "600", "A.port=5"], a.environment()) as terminal:
        terminal.wait_for(ASKED)
        terminal.press(ender)
        terminal.wait_for("left to the daemon")
        assert terminal.wait() == 1
    assert a.command("commit -s").lines[0] == "Commit=1"


def test_texts_and_values_arrive_as_they_were_typed(a):
    text = "\"Grüße\", it's 100%; a=b + -c 日本 #1"
    name = "a,b 100% -> c"
    assert a.qvc("commit", "-m", text, f"A.name={name}") == (
        0, f"A.name=x -> {name}\napply: syscall true\nCommit=1\n")
    [entry] = history(a)
    assert (entry["text"], entry["values"]) == (text, [{"name": "A.name", "old": "x", "new": name}])
    # On a terminal with times of here, as JSON as it comes.
    status, lines = shown(a, "history", TZ="UTC-2", NO_COLOR="1")
    hours = (int(entry["time"][11:13]) + 2) % 24
    assert status == 0 and re.fullmatch(
        rf"1  \d{{4}}-\d\d-\d\d {hours:02}:\d\d:\d\d +\d+ \w+ ago  root \(.*, qvc\) commit: done", lines.splitlines()[0])
    assert lines.splitlines()[1:] == [f'    "{text}"', f"    A.name=x -> {name}", "    apply: syscall true"]
    status, line = shown(a, "--json", "history")
    assert json.loads(line) == {"entries": [entry]} and "\033" not in line
    # Line by line, too, with the quotes of a shell.
    done = subprocess.run([QVC], input="commit -m 'two words' \"A.name=p q\"\n", env=a.environment(),
                          capture_output=True, text=True)
    assert (done.returncode, history(a)[0]["text"], a.get("A.name")) == (0, "two words", "p q")
