"""Every block of the pages is run as it stands there, in its order, in a folder that looks like a built clone.

    console           what is typed ("$ "), and what it prints; "..." stands for anything. What needs a device has the
                      prompt of its root, "# ", is not run, and is counted
    sh                a script, which must end with 0; with title=FILE it becomes that file
    hdf [title=FILE]  a model in which qvmeta finds nothing
    wire [stranger]   what a client sends ("> ") and gets; "$ " is typed in a shell meanwhile. A stranger comes over TCP
    json              what is sent to a broker; tests/fleet has one, here the names are compared with the sources
    events            the same at the socket of the events
"""

import contextlib
import json
import os
import pathlib
import re
import subprocess
import tempfile

import pytest

from appliance import BIN_DIR, REPOSITORY, Connection, Reservation, wait_until
from pages import Shell, blocks_of, examples

BUILD = BIN_DIR.parent
PLAIN = "QVCD_SANITIZE:STRING=\n" in (BUILD / "CMakeCache.txt").read_text()

# Page: how many commands are for a device.
PAGES = {"README.md": 3, "docs/model.md": 0, "docs/protocol.md": 0, "docs/operations.md": 4}

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
        self.port = Reservation()

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
                running = list(self.shell.daemons()) if command.startswith("$ kill") else []
                printed = self.shell.type(self.here(command[2:]))
                # A daemon in the background says what it finds about its metadata when it finds it.
                expect(lines, [line for line in printed if not line.startswith("qvcd: ")], what)
                for pid in running:
                    wait_until(lambda pid=pid: not os.path.exists(f"/proc/{pid}"), what)

    def here(self, command):
        """Other machines of the pages are this one."""
        command = re.sub(r"\b(192\.0\.2\.7|encoder):7000", f"127.0.0.1:{self.port.port}", command)
        return command.replace("IP:192.0.2.7", "IP:127.0.0.1").replace("-P 7000", f"-P {self.port.port}")

    def run_sh(self, block):
        if "title" not in block.options:
            lines = self.shell.type(self.here("\n".join(block.lines)))
            assert self.shell.status == 0, f"{block.place}: {lines}"

    def run_hdf(self, block):
        file = self.shell.path(block.options.get("title", "model.hdf"))
        file.write_text("\n".join(block.lines) + "\n")
        done = subprocess.run([BIN_DIR / "qvmeta", "check", file], capture_output=True, text=True)
        assert (done.returncode, done.stdout) == (0, ""), block.place

    def run_json(self, block):
        sources = "".join(path.read_text() for path in REPOSITORY.glob("src/fleet/*.cpp"))
        assert all(re.search(rf'[",]{name}["=]', sources) for name in json.loads("\n".join(block.lines))), block.place

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
        with contextlib.closing(walk.port):
            for block in blocks_of(page):
                walk.run(block)
    assert walk.on_device == PAGES[page]


def test_readme_names_all_documents():
    named = set(re.findall(r"\]\((docs/[\w-]+\.md)\)", (REPOSITORY / "README.md").read_text()))
    assert named == {str(path.relative_to(REPOSITORY)) for path in REPOSITORY.glob("docs/*.md")}


@pytest.mark.skipif(not PLAIN, reason="once is enough")
def test_builds_without_what_tests_need(folder):
    """GoogleTest is not looked for, and there are no test programs."""
    configure = ["cmake", "-G", "Ninja", "-S", REPOSITORY, "-B", folder, "-D", "QVCD_TESTS=OFF", "-D", "CMAKE_DISABLE_FIND_PACKAGE_GTest=ON"]
    done = subprocess.run(configure, capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    targets = subprocess.run(["ninja", "-C", folder, "-t", "targets", "all"], capture_output=True, text=True, check=True).stdout
    assert re.search(r"^bin/qvcd:", targets, re.M) and not re.search(r"^bin/(test_|qvcd_bench)", targets, re.M)
