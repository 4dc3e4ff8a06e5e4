"""Network namespaces: networks of a test's own, without names, that are gone with the test."""

import contextlib
import ctypes
import os
import shutil
import subprocess

from appliance import die_with_us

CLONE_NEWNET = 0x40000000
LIBC = ctypes.CDLL(None, use_errno=True)


def check(result, what):
    if result != 0:
        raise OSError(ctypes.get_errno(), what)


def enter_new_network():
    """In a child."""
    check(LIBC.unshare(CLONE_NEWNET), "unshare")


def namespaces_allowed():
    if not all(map(shutil.which, ("ip", "nsenter"))):
        return False
    with contextlib.suppress(OSError, subprocess.SubprocessError):
        probe = "ip link add eth0 type veth peer name far && ip link set lo up"
        return subprocess.run(["sh", "-c", probe], preexec_fn=enter_new_network, capture_output=True).returncode == 0
    return False


class Namespace:
    """A network that lives as long as a process which does nothing else."""

    def __init__(self):
        self.holder = subprocess.Popen(
            ["sleep", "infinity"], preexec_fn=lambda: (die_with_us(), enter_new_network()), stdin=subprocess.DEVNULL
        )
        self.ip("link set lo up")

    def enter(self):
        """In a child."""
        network = os.open(f"/proc/{self.holder.pid}/ns/net", os.O_RDONLY)
        check(LIBC.setns(network, CLONE_NEWNET), "setns")
        os.close(network)

    def inside(self, *command):
        """The words that run a command in it."""
        return ["nsenter", "--target", str(self.holder.pid), "--net", *map(str, command)]

    def ip(self, command):
        return subprocess.run(self.inside("ip", *command.split()), check=True, capture_output=True, text=True).stdout

    def connect(self, name, other):
        """A cable between interfaces of this name, here and in the other network."""
        self.ip(f"link add {name} type veth peer name {name} netns {other.holder.pid}")
        for one in (self, other):
            one.ip(f"link set {name} up")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.holder.kill()
        self.holder.wait()
