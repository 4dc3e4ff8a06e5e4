"""A program on a terminal of its own, and the person before it."""

import contextlib
import fcntl
import os
import pty
import select
import subprocess
import termios
import time

from appliance import PATIENCE, die_with_us


class Terminal:
    def __init__(self, command, env):
        self.screen = ""
        self.expected = 0  # the end of what was found last
        self.keys, theirs = pty.openpty()

        def take_terminal():
            die_with_us()
            fcntl.ioctl(theirs, termios.TIOCSCTTY, 0)

        self.process = subprocess.Popen(
            [*map(str, command)], stdin=theirs, stdout=theirs, stderr=theirs,
            env={"TERM": "xterm", "TZ": "UTC", **env}, start_new_session=True, preexec_fn=take_terminal,
        )
        os.close(theirs)

    def read_some(self, deadline):
        """False at the end."""
        assert select.select([self.keys], [], [], max(0, deadline - time.monotonic()))[0], f"waited in vain:\n{self.screen}"
        data = b""
        with contextlib.suppress(OSError):  # EIO: nobody has it open any more
            data = os.read(self.keys, 1 << 16)
        self.screen += data.decode().replace("\r\n", "\n")
        return bool(data)

    def wait_for(self, text):
        deadline = time.monotonic() + PATIENCE
        while text not in self.screen:
            assert self.read_some(deadline), f"ended without {text!r}:\n{self.screen}"

    def expect(self, text):
        """Waits for a text behind the one before."""
        deadline = time.monotonic() + PATIENCE
        while text not in self.screen[self.expected:]:
            assert self.read_some(deadline), f"ended without {text!r}:\n{self.screen}"
        self.expected = self.screen.index(text, self.expected) + len(text)

    def press(self, keys):
        os.write(self.keys, keys.encode())

    def wait(self):
        """The exit status, when all is on the screen."""
        deadline = time.monotonic() + PATIENCE
        while self.read_some(deadline):
            pass
        return self.process.wait(PATIENCE)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self.keys)
        self.process.kill()
        self.process.wait()
