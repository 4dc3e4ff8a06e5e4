"""What stands in fenced blocks of the documentation, and a shell to type it into."""

import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import threading
import typing

from appliance import PATIENCE, QVCD, REPOSITORY, die_with_us, end_session, wait_until

END = "-- end of the example --"


class Block(typing.NamedTuple):
    language: str
    options: dict  # what stands behind the language: title=lamps.hdf
    lines: list
    place: str  # for messages


def blocks_of(page):
    """All blocks of a page. Code must be fenced: what is indented is seen by nobody."""
    found, fence, before = [], None, ""
    for number, line in enumerate((REPOSITORY / page).read_text().splitlines(), 1):
        if fence is None and line.startswith("```"):
            words = line[3:].split()
            fence = Block(words[0] if words else "", dict(word.partition("=")[::2] for word in words[1:]), [], f"{page}:{number}")
        elif line.startswith("```"):
            found.append(fence)
            fence = None
        elif fence is not None:
            fence.lines.append(line)
        else:
            assert before or not line.startswith("    "), f"{page}:{number}: code without a fence"
        before = line.strip()
    assert fence is None, f"{fence.place}: a fence without an end"
    return found


def examples(lines):
    """[(command, lines of its output)] of a block of a terminal: "$ " comes before a command, "# " before one of root on
    a device, "> " before further lines of it."""
    found = []
    for line in lines:
        if line.startswith(("$ ", "# ")):
            found.append((line, []))
        elif line.startswith("> ") and not found[-1][1]:
            found[-1] = (f"{found[-1][0]}\n{line[2:]}", [])
        else:
            found[-1][1].append(line)
    return found


class Shell:
    """A shell that keeps its folder and its variables from one command to the next."""

    def __init__(self, command, env, folder=None):
        self.process = subprocess.Popen(
            command, env=env, cwd=folder, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            start_new_session=True, preexec_fn=die_with_us)
        self.status = 0
        self.roots = set()  # folders that it has made to be an appliance
        self.given = env.get("QV_SYSROOT", "")

    def type(self, command):
        """The lines that it prints; its status is kept."""
        self.process.stdin.write(f"{{ {command}\n}} </dev/null\necho '{END}' $? \"$QV_SYSROOT\"\n")
        self.process.stdin.flush()
        lines = []
        deadline = threading.Timer(2 * PATIENCE, self.end)
        deadline.start()
        try:
            return self._lines(lines)
        finally:
            deadline.cancel()

    def _lines(self, lines):
        for line in self.process.stdout:
            if END in line:
                rest, _, words = line.removesuffix("\n").partition(END)
                status, _, root = words.strip().partition(" ")
                self.status = int(status)
                self.roots |= {root} - {"", self.given}
                return lines + ([rest] if rest else [])
            lines.append(line.removesuffix("\n"))
        raise AssertionError(f"the shell has ended: {lines}")

    def path(self, name):
        """What a file named in the text is here: absolute names are the appliance's."""
        return pathlib.Path(self.type('echo "$QV_SYSROOT"' if name.startswith("/") else "pwd")[-1], name.lstrip("/"))

    def daemons(self):
        """The processes of those that went into the background."""
        for root in self.roots:
            with contextlib.suppress(OSError, ValueError):
                pid = int(pathlib.Path(root, "var/run/qvcd.pid").read_text())
                if os.readlink(f"/proc/{pid}/exe") == str(QVCD):
                    yield pid

    def stop_daemons(self):
        for pid in self.daemons():
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGINT)
            wait_until(lambda pid=pid: not os.path.exists(f"/proc/{pid}"), "the daemon's end")

    def end(self):
        end_session(self.process.pid)
        self.process.kill()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop_daemons()
        self.end()
        self.process.communicate()
        for root in self.roots:
            if re.fullmatch(r"/tmp/qv\.\w+", root):
                shutil.rmtree(root, ignore_errors=True)
