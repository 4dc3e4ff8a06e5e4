"""Every block of the pages is run as it stands there, in its order, in a folder that looks like a built clone.

    console           what is typed ("$ "), and what it prints; "..." stands for anything. What needs a device has the
                      prompt of its root, "# ", is not run, and is counted
    sh                a script, which must end with 0; with title=FILE it becomes that file
    hdf [title=FILE]  a model in which qvmeta finds nothing
    wire [stranger]   what a client sends ("> ") and gets; "$ " is typed in a shell meanwhile. A stranger comes over TCP
    events            the same at the socket of the events
"""

import json
import os
import pathlib
import re
import subprocess
import tempfile

import pytest

from appliance import BIN_DIR, REPOSITORY, Connection, wait_until
from pages import Shell, blocks_of, examples

BUILD = BIN_DIR.parent
PLAIN = "QVCD_SANITIZE:STRING=\n" in (BUILD / "CMakeCache.txt").read_text()

# Page: how many commands are for a device, and whether an appliance runs beside it.
PAGES = {"README.md": 3, "docs/model.md": 0, "docs/protocol.md": 0, "docs/operations.md": 0}

# What differs from one run to the next.
PLACEHOLDERS = [
    (r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?Z", "TIME"),
    (r"daemon=\d+ entry=\d+", "daemon=N entry=N"),
    (r'"id":\d+', '"id":0'),
]


def comparable(text):
    for pattern, placeholder in PLACEHOLDERS:
        text = re.sub(pattern, placeholder, text)
    return text


def expect(expected, lines, what):
    """Lines as the page has them: "..." alone is any lines, in a line any text."""
    pattern = "".join(r"(?:.*\n)*" if line.strip() == "..." else ".*".join(map(re.escape, comparable(line).split("..."))) + r"\n"
                      for line in expected)
    text = comparable("".join(line + "\n" for line in lines))
    assert re.fullmatch(pattern, text), f"{what}\nprints\n{text}\nand not\n" + "\n".join(expected)


# ---- What builds is not built again: it must be what the tests were built with, or lead there ----


def is_preset(name):
    presets = json.loads((REPOSITORY / "CMakePresets.json").read_text())
    return all(name in [one["name"] for one in presets[kind]] for kind in ("configurePresets", "buildPresets"))


def is_part(script, words):
    usage = re.search(r"usage: \$0 \[([^\]]*?)(?: \.\.\.)?\]", (REPOSITORY / script).read_text())[1].split("|")
    return os.access(REPOSITORY / script, os.X_OK) and set(words.split()) <= set(usage)


CHECKED = [
    (r"cmake --preset (\w+)( -D QVCD_TESTS=OFF)?", lambda found: is_preset(found[1])),
    (r"cmake --build --preset (\w+)", lambda found: is_preset(found[1])),
    (r"(?:\./)?((?:scripts/)?(?:test|install_deps)\.sh)((?: [\w-]+)*)", lambda found: is_part(found[1], found[2])),
    (r"(?:\./)?((?:scripts/)?(?:demo|cross_build)\.sh)", lambda found: os.access(REPOSITORY / found[1], os.X_OK)),
    (r"cpack -G DEB --config build/release/(CPackConfig.cmake) -B \w+", lambda found: (BUILD / found[1]).exists()),
    (r"git clone \S+ (\w+) && cd \1", lambda found: True),
]


class Walk:
    def __init__(self, shell, appliance):
        self.shell = shell
        self.appliance = appliance
        self.on_device = 0
        self.numbers = {}  # of sessions: that of the page, ours

    def run(self, block):
        runner = getattr(self, f"run_{block.language}", None)
        assert runner, f"{block.place}: nobody runs a block of {block.language or 'no language'}"
        if "title" in block.options:
            self.write(block)
        runner(block)

    def write(self, block):
        path = self.shell.path(block.options["title"])
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("\n".join(block.lines) + "\n")
        if block.lines[0].startswith("#!"):
            path.chmod(0o755)

    def run_console(self, block):
        for command, lines in examples(block.lines):
            what = f"{block.place}: {command}"
            if command.startswith("# "):
                self.on_device += 1
                continue
            found = next((check(found) for pattern, check in CHECKED if (found := re.fullmatch(pattern, command[2:]))), None)
            assert found is not False, what
            if found is None:
                expect(lines, self.shell.type(command[2:]), what)

    def run_sh(self, block):
        if "title" not in block.options:
            lines = self.shell.type("{ " + "\n".join(block.lines) + "\n}")
            assert self.shell.status == 0, f"{block.place}: {lines}"

    def run_hdf(self, block):
        file = self.shell.path(block.options.get("title", "model.hdf"))
        file.write_text("\n".join(block.lines) + "\n")
        done = subprocess.run([BIN_DIR / "qvmeta", "check", file], capture_output=True, text=True)
        assert (done.returncode, done.stdout) == (0, ""), block.place

    def run_wire(self, block):
        address = self.appliance.address(tcp="stranger" in block.options)
        self.talk(block, Connection(address))

    def run_events(self, block):
        events = self.appliance.subscribe("secret")
        lines = [line for line in block.lines if not line.startswith("$ ")]
        for command in block.lines:
            if command.startswith("$ "):
                self.shell.type(command[2:])
        wait_until(lambda: len(events.objects) >= len(lines), block.place)
        assert events.objects == [json.loads(line) for line in lines], block.place

    def ours(self, text):
        return re.sub(r"\b\d{6,}\b", lambda found: self.numbers.get(found[0], found[0]), text)

    def talk(self, block, connection):
        with connection as c:
            for line in block.lines:
                what = f"{block.place}: {line}"
                if line.startswith(">"):
                    c.send(self.ours(line[2:]) + "\n")
                elif line.startswith("$ "):
                    self.shell.type(line[2:])
                    assert self.shell.status == 0, what
                else:
                    self.expect_line(line, c.read_lines(1).decode().removesuffix("\n"), what)
            if block.language == "wire" and block.lines[-1] in ("0", "1", "!"):
                assert c.read_all() == b"", block.place

    def expect_line(self, line, got, what):
        session = re.match(r"Session=(\d+)$", line)
        if session and got.startswith("Session="):
            self.numbers[session[1]] = got.removeprefix("Session=")
        expect([self.ours(line)], [got], what)


@pytest.fixture
def folder():
    with tempfile.TemporaryDirectory() as name:
        yield pathlib.Path(name)


@pytest.mark.skipif(not PLAIN, reason="the run-time parts of sanitizers are in the programs")
@pytest.mark.parametrize("page", PAGES)
def test_the_page_is_true(page, appliance, folder):
    for entry in REPOSITORY.iterdir():
        if entry.name not in ("build", ".git"):
            (folder / entry.name).symlink_to(entry)
    (folder / "build").mkdir()
    (folder / "build/release").symlink_to(BUILD)
    a = appliance(shipped=True)
    env = a.environment(HOME=str(folder))
    if page == "docs/protocol.md":
        a.start("--trust-tcp=none", tcp=True)
    else:
        del env["QV_SYSROOT"]
    with Shell("bash", env, folder) as shell:
        walk = Walk(shell, a)
        for block in blocks_of(page):
            walk.run(block)
    assert walk.on_device == PAGES[page]
