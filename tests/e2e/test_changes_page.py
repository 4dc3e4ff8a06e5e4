"""docs/changes.md shows what the daemon does: its examples, typed as they stand there and in their order, at the other end
of the appliance's network cable."""

import json
import re
import subprocess

from appliance import REPOSITORY, die_with_us

END = "-- end of the example --"

# What differs from one run to the next.
PLACEHOLDERS = [
    (r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", "TIME"),
    (r"(seconds\"?[:=])\d+", r"\g<1>0"),
    (r"user \d+", "user UID"),
    (r"(cannot reach the daemon at \S+?):? .*", r"\1 FOR SOME REASON"),
]


def examples():
    """[(command, lines of its output)]"""
    found = []
    for block in re.findall(r"^```console\n(.*?)^```$", (REPOSITORY / "docs/changes.md").read_text(), re.S | re.M):
        assert block.startswith("$ ")
        for line in block.splitlines():
            if line.startswith("$ "):
                found.append((line[2:], []))
            else:
                found[-1][1].append(line)
    return found


def comparable(text):
    for pattern, placeholder in PLACEHOLDERS:
        text = re.sub(pattern, placeholder, text)
    return json.loads(text) if text.startswith('{"') else text


class Shell:
    def __init__(self, command, env):
        self.process = subprocess.Popen(
            command, env=env, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            preexec_fn=die_with_us)

    def type(self, command):
        """The lines that it prints."""
        self.process.stdin.write(f"{command}\necho '{END}'\n")
        self.process.stdin.flush()
        lines = []
        for line in self.process.stdout:
            if line == END + "\n":
                return lines
            lines.append(line.removesuffix("\n"))
        raise AssertionError(f"the shell has ended: {lines}")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()


def test_the_page_shows_what_happens(site):
    a = site.appliance
    shown = examples()
    assert len(shown) > 30
    with Shell(site.our_network.inside("bash"), a.environment()) as shell:
        for command, lines in shown:
            assert comparable("\n".join(shell.type(command))) == comparable("\n".join(lines)), command
