"""Metadata from the first question to an upgrade: qvmeta, and what a start makes of mistakes and of new names."""

import html.parser
import json
import re
import subprocess

from appliance import BIN_DIR, Reply, run_qvcd, wait_until

GOOD = """Lamp {
    perm = 7774
    read = kv_rfunc
    write = kv_wfunc
    file = /etc/lamp.conf
    level {
        attr = level
        type = integer_range 0 100
        default = 50
        help = Level <script>alert("`|x`")</script>
    }
    mode {
        attr = mode
        type = string_set day night
        default = day
        help = Mode
    }
    key {
        attr = key
        type = blank,password 4 20
        default = secret
        perm = 7700
        help = Key
    }
}
"""


def qvmeta(*words, answers=""):
    done = subprocess.run([BIN_DIR / "qvmeta", *words], input=answers, capture_output=True, text=True, timeout=60)
    return done.returncode, done.stdout, done.stderr


class Page(html.parser.HTMLParser):
    """The names of the elements, what they load, and the text outside of scripts."""

    def __init__(self, text):
        super().__init__()
        self.tags, self.loads, self.text = [], [], ""
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.tags.append(tag)
        self.loads += [value for name, value in attrs if name in ("src", "href") and not value.startswith("#")]

    def handle_data(self, data):
        self.text += data if self.tags[-1:] != ["script"] else ""


def test_new_check_doc_diff(appliance):
    a = appliance()
    code, text, err = qvmeta("new", "Lamp.Front.level", answers="Brightness\n\ninteger_range 9 1\n")
    assert (code, text) == (1, "") and err.endswith("integer_range 9 1: the least number is more than the most\n")
    answers = "Brightness\n\ninteger_range 0 100\n7\n\n/etc/lamp.conf\n\n\n\n\n"
    code, text, _ = qvmeta("new", "Lamp.Front.level", answers=answers)
    assert code == 0
    a.write("/new.hdf", text)
    assert qvmeta("check", a.path("/new.hdf")) == (0, "", "")
    a.start("-m", a.path("/new.hdf"))
    assert a.command("update Lamp.Front.level=8").lines[:1] == ["Lamp.Front.level=8"]
    assert a.read("/etc/lamp.conf") == "level=8\n"
    code, text, _ = qvmeta("new", "Amp.__d.level", answers="1 4\nGain\n" + "\n" * 9)
    a.write("/amp.hdf", text)
    assert code == 0 and "attr = level__d" in text and qvmeta("check", a.path("/amp.hdf")) == (0, "", "")
    a.write("/amps.hdf", text.replace("1 4", "1 2"))
    assert qvmeta("diff", a.path("/amp.hdf"), a.path("/amps.hdf"))[:2] == (
        1, 'Amp.__d: LOST: what users have saved in copies that are gone: range "1 2", was "1 4"\n')
    with open("/dev/full", "w") as full:
        assert subprocess.run([BIN_DIR / "qvmeta", "doc", a.path("/amp.hdf")], stdout=full).returncode == 1

    for words in ([], ["nonsense"], ["check"], ["check", "--nonsense", "x"], ["check", "x", "--root"], ["doc"], ["diff", "x"], ["new", "a b"]):
        assert qvmeta(*words)[0] == 2, words
    old, new = a.path("/old.hdf"), a.path("/upgrade.hdf")
    old.write_text(GOOD)
    bad = a.path("/bad.hdf")
    bad.write_text(GOOD.replace("kv_wfunc", "kv_wfnc"))
    finding = 'Lamp: no write function "kv_wfnc"; did you mean "kv_wfunc"?'
    assert qvmeta("check", old, bad)[:2] == (1, f"{bad}:4: {finding}\n")
    code, text, _ = qvmeta("check", "--json", bad)
    assert code == 1 and json.loads(text)["findings"][0] == {
        "severity": "error", "kind": "unknown-writer", "file": str(bad), "line": 4, "api": "Lamp",
        "what": finding.removeprefix("Lamp: ")}

    code, text, _ = qvmeta("doc", old)
    assert code == 0 and "### Lamp.level\n" in text and "secret" not in text
    assert re.search(r'^Level \\<script\\>alert\\\("\\`\\\|x\\`"\\\)', text, re.M)
    code, text, _ = qvmeta("doc", "--html", old)
    page = Page(text)
    assert code == 0 and page.tags.count("script") == 1 and page.tags.count("article") == 3 and page.loads == []
    assert 'Level <script>alert("`|x`")</script>' in page.text and "secret" not in page.text
    assert "prefers-color-scheme: dark" in text

    assert qvmeta("diff", old, old) == (0, "", "")
    upgrade = GOOD.replace("0 100", "10 100").replace("level {", "brightness {\n was = Lamp.level")
    new.write_text(upgrade.replace("day night", "day night dusk").replace("key {", "code {").replace("= 50", "= 60"))
    assert qvmeta("diff", old, new)[:2] == (1, """Lamp.key: LOST: gone, with what users have saved
Lamp.level: renamed to Lamp.brightness
Lamp.brightness: LOST: values that the new type does not take get the default: type "integer_range 10 100", \
was "integer_range 0 100"
Lamp.brightness: default "60", was "50"
Lamp.mode: type "string_set day night dusk", was "string_set day night"
Lamp.code: new
""")
    a.write("/any.hdf", GOOD.replace("type = integer_range 0 100", "type = ip_prefix"))
    a.write("/four.hdf", GOOD.replace("type = integer_range 0 100", "type = ip_prefix 4"))
    assert "LOST" in qvmeta("diff", a.path("/any.hdf"), a.path("/four.hdf"))[1]
    assert "LOST" not in qvmeta("diff", a.path("/four.hdf"), a.path("/any.hdf"))[1]
    new.write_text(GOOD.replace("attr = level", "attr = bright").replace("7700", "7000"))
    assert qvmeta("diff", old, new)[:2] == (1, """Lamp.key: perm 7000, was 7700
Lamp.level: LOST: the value stays behind: "bright" of /etc/lamp.conf, was "level" of /etc/lamp.conf; \
write "was = Lamp.level level"
""")


def test_start_tells_of_mistakes(appliance):
    """In the log and on stderr, as many as one can read; the daemon serves all the same."""
    apis = "".join(f"a{i} {{\n attr = a{i}\n type = nonsense\n}}\n" for i in range(30))
    a = appliance(f"A {{\nperm = 7774\nread = kv_rfunc\nwrite = kv_wfunc\nfile = /etc/a.conf\n{apis}}}\n").start(level=2)
    assert a.get("A.a1") == ""
    wait_until(lambda: "more mistakes" in a.log(), "the findings")
    meta = "/usr/share/qvapi/apimeta.hdf"
    assert a.stderr().startswith(f'qvcd: {meta}:8: A.a0: no type "nonsense"\n')
    assert f'{meta}:8: A.a0: no type "nonsense"\n' in a.log() and f"{meta}:6: A.a0: warning: there is no help" in a.log()
    assert len(a.stderr().splitlines()) == 21 and len(a.log().splitlines()) < 60
    a.stop()
    a.write(meta, GOOD.replace("    }\n    mode", "    mode"))
    code, _, err = run_qvcd("-g", env=a.environment())
    assert code == 1 and err == (
        f"qvcd: Can not load metadata {meta}: line 6: the group \"level\" has no closing brace; "
        "line 11 does not look like a part of it\n"
        "qvcd: No usable metadata: the daemon ends; --any-metadata starts it all the same\n")


def test_values_of_renamed_settings(appliance):
    """A value is taken over from where the old name had it, once; copies of templates take theirs."""
    old = "level=30\nmode=dusk\nkey=abcdef\nmine=1\nlamp1=5\nlamp2=6\n"
    renamed = GOOD.replace("/etc/lamp.conf", "/etc/light.conf").replace("level {", "bright {\n was = Lamp.level level /etc/lamp.conf")
    renamed = renamed.replace("mode {", "when {\n was = Lamp.mode mode /etc/lamp.conf").replace("attr = level", "attr = bright")
    copies = """Copy {
    perm = 7774
    read = kv_rfunc
    write = kv_wfunc
    file = /etc/light.conf
    __d {
        range = 1 2
        level {
            attr = copy__d
            type = integer
            default = 0
            was = Old.__d.level lamp__d /etc/lamp.conf
            help = Copy
        }
    }
    first {
        attr = first
        type = integer
        default = 0
        was = Lamp.mine mine /etc/lamp.conf
        help = First
    }
    second {
        attr = second
        type = integer
        default = 0
        was = Lamp.mine mine /etc/lamp.conf
        help = Second
    }
}
"""
    a = appliance(renamed + copies, {"/etc/lamp.conf": old, "/etc/profiles/dark.hdf": "Lamp.level = 7\n",
                                     "/etc/presets/template": "Lamp.bright\n", "/etc/presets/preset1": "Lamp.level=8\n"}).start()
    values = {"Lamp.bright": "30", "Lamp.when": "day", "Copy.1.level": "5", "Copy.2.level": "6",
              "Copy.first": "1", "Copy.second": "0"}
    assert {name: a.get(name) for name in values} == values
    assert a.logged("Can not take over the value of Lamp.mode: Lamp.when does not take it")
    wait_until(lambda: "Lamp.mine is claimed by Copy.first" in a.stderr(), "the finding")
    saved = a.read("/etc/light.conf")
    assert sorted(saved.splitlines()) == sorted(
        ["bright=30", "mode=day", "key=secret", "copy1=5", "copy2=6", "first=1", "second=0"])
    assert a.read("/etc/lamp.conf") == old
    assert a.command("update Lamp.bright=40") == Reply(["Lamp.bright=40"] * 2, 0)
    a.write("/tmp/old.hdf", "Lamp.bright = 41\nLamp.level = 9\nOld.2.level = 7\nLamp.gone = 1\n")  # old names; that of now counts before one
    assert a.command("import /tmp/old.hdf").code == 0
    assert (a.get("Lamp.bright"), a.get("Copy.2.level"), a.get("Copy.1.level")) == ("41", "7", "5")
    a.kill()
    a.start()
    assert a.get("Lamp.bright") == "40" and a.get("Copy.second") == "0"
    a.stop()
    # What was saved under the new name is gone: the old value counts again.
    a.path("/etc/light.conf").unlink()
    a.start()
    assert a.get("Lamp.bright") == "30"
    for command, now in ("profile.load dark", "7"), ("preset.load 1", "8"):
        assert a.command(command).code == 0
        assert a.get("Lamp.bright") == now
