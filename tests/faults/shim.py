"""The preload library as the driver sees it: what it is told, and what it wrote down."""

import errno
import mmap
import os
import pathlib
import re
import struct
import typing

# As in faults_preload.cpp.
CLASSES = (
    "open-read open-write create read write truncate flush rename unlink mode mkdir link close list look map"
).split()
COUNT, FAIL, FAIL_FROM_THERE, HALF, HALF_AND_KILL, KILL_BEFORE, KILL_AFTER = range(7)
HEAD = struct.Struct("<IIIIQ")
COUNTERS = struct.Struct("<QQ")
MEMORY = struct.Struct("<IIQQQ")
COUNTERS_AT = HEAD.size
MEMORY_AT = HEAD.size + COUNTERS.size
SIZE = MEMORY_AT + MEMORY.size


class Fault(typing.NamedTuple):
    action: int
    classes: frozenset
    error: int = errno.EIO

    def meets(self, call):
        return call.kind in self.classes


def classes(*names):
    assert set(names) <= set(CLASSES), names
    return frozenset(names)


CHANGING = classes("open-write", "create", "write", "truncate", "rename", "unlink", "mode", "mkdir", "link")
EVERY = classes(*CLASSES)

FAULTS = {
    # once
    "EIO": Fault(FAIL, EVERY, errno.EIO),
    "EACCES": Fault(FAIL, classes("open-read", "list", "look") | CHANGING - {"write", "truncate"}, errno.EACCES),
    "torn": Fault(HALF, classes("read"), errno.EIO),
    "torn-full": Fault(HALF, classes("write"), errno.ENOSPC),
    # from there on, until the cause is gone
    "EMFILE": Fault(FAIL_FROM_THERE, classes("open-read", "open-write", "create"), errno.EMFILE),
    "ENOSPC": Fault(FAIL_FROM_THERE, classes("create", "write", "rename", "mkdir", "link", "flush"), errno.ENOSPC),
    "EROFS": Fault(FAIL_FROM_THERE, CHANGING - {"write"}, errno.EROFS),
    "dead-disk": Fault(FAIL_FROM_THERE, EVERY, errno.EIO),
    # the end
    "kill-before": Fault(KILL_BEFORE, CHANGING | {"flush", "close"}),
    "kill-after": Fault(KILL_AFTER, CHANGING | {"flush", "close"}),
    "torn-kill": Fault(HALF_AND_KILL, classes("write")),
}


class Call(typing.NamedTuple):
    number: int
    name: str
    kind: str
    path: str
    path2: str
    dealt: bool

    def what(self):
        """The same for the same call of another run."""
        return self.name, re.sub(r"-[-0-9a-f]+$", "", self.path)

    def __str__(self):
        return f"call {self.number}, {self.name} {self.path}{' to ' + self.path2 if self.path2 else ''}"


class Shim:
    def __init__(self, folder, library, spare):
        self.preloaded = library
        self.spare = spare
        self.control = pathlib.Path(folder, "control")
        self.log = pathlib.Path(folder, "calls")
        self.control.write_bytes(bytes(SIZE))
        self.log.write_bytes(b"")
        with open(self.control, "r+b") as file:
            self.map = mmap.mmap(file.fileno(), SIZE)

    def close(self):
        self.map.close()

    def environment(self):
        return {
            "LD_PRELOAD": str(self.preloaded),
            "QVCD_FAULTS_CONTROL": str(self.control),
            "QVCD_FAULTS_LOG": str(self.log),
            "QVCD_FAULTS_SPARE": str(self.spare),
        }

    def arm(self, fault=None, at=0):
        """Counts from now on; without a fault that is all."""
        fault = fault or Fault(COUNT, frozenset())
        mask = sum(1 << CLASSES.index(name) for name in fault.classes)
        self.map[COUNTERS_AT:MEMORY_AT] = COUNTERS.pack(0, 0)
        os.truncate(self.log, 0)
        self.map[:COUNTERS_AT] = HEAD.pack(1, fault.action, fault.error, mask, at)

    def disarm(self):
        self.map[0:4] = bytes(4)

    def calls_so_far(self):
        return COUNTERS.unpack_from(self.map, COUNTERS_AT)[0]

    def dealt(self):
        return COUNTERS.unpack_from(self.map, COUNTERS_AT)[1]

    def count_allocations(self, fail_at=0):
        self.map[MEMORY_AT:SIZE] = MEMORY.pack(1, 0, fail_at, 0, 0)

    def stop_allocations(self):
        self.map[MEMORY_AT:MEMORY_AT + 4] = bytes(4)

    def allocations(self):
        return MEMORY.unpack_from(self.map, MEMORY_AT)[3]

    def allocations_failed(self):
        return MEMORY.unpack_from(self.map, MEMORY_AT)[4]

    def lines(self):
        return [line.split("\t") for line in self.log.read_text(errors="surrogateescape").splitlines()]

    @staticmethod
    def calls(lines):
        return [
            Call(int(w[1]), w[2], CLASSES[int(w[3]).bit_length() - 1], w[4], w[5], w[6] == "1")
            for w in lines
            if w[0] == "call"
        ]

    @staticmethod
    def changes(lines):
        """(number of the call, the words of what it changed)."""
        return [(int(w[1]), w[2:]) for w in lines if w[0] == "done"]
