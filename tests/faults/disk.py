"""Trees of files, and what a power cut leaves of one.

A tree is {path below the root: File or Link}. Disk follows the preload library's log of what changed and knows at
every moment what had been flushed: a file's content by a flush of the file, a name (created, renamed, removed) by a
flush of its folder.
"""

import os
import pathlib
import typing


class File(typing.NamedTuple):
    data: bytes
    mode: int
    owner: tuple = (os.geteuid(), os.getegid())


class Link(typing.NamedTuple):
    target: str


BLOCK = 512  # what a disk writes whole


class Folder:
    """Stands for a folder among the names."""


class Spare:
    """Paths that do not count: a name, or with "/" at its end all below it."""

    def __init__(self, *names):
        self.names = names

    def __contains__(self, path):
        return any(path == n or (n.endswith("/") and (path + "/").startswith(n)) for n in self.names)

    def __str__(self):
        return ":".join(self.names)


def read_tree(root, spare, with_folders=False):
    tree = {}
    for folder, folders, names in os.walk(root):
        below = folder[len(str(root)):]
        if with_folders and below:
            tree[below] = Folder()
        folders[:] = [d for d in folders if f"{below}/{d}" not in spare]
        for name in [*names, *(d for d in folders if os.path.islink(f"{folder}/{d}"))]:
            path = f"{below}/{name}"
            if path in spare:
                continue
            full = f"{folder}/{name}"
            st = os.lstat(full)
            if os.path.islink(full):
                tree[path] = Link(os.readlink(full))
            elif os.path.isfile(full):
                with open(full, "rb") as file:
                    tree[path] = File(file.read(), st.st_mode & 0o7777, (st.st_uid, st.st_gid))
    return tree


def write_tree(root, tree):
    for path, entry in tree.items():
        full = pathlib.Path(f"{root}{path}")
        full.parent.mkdir(parents=True, exist_ok=True)
        if isinstance(entry, Link):
            full.symlink_to(entry.target)
            continue
        full.write_bytes(entry.data)
        full.chmod(entry.mode)
        if entry.owner != (os.geteuid(), os.getegid()):
            os.chown(full, *entry.owner)


def differences(found, wanted):
    """For people: one line a path."""
    lines = []
    for path in sorted({*found, *wanted}):
        a, b = found.get(path), wanted.get(path)
        if a == b:
            continue
        if a is None or b is None:
            lines.append(f"{path} {'is missing' if a is None else 'is there'}")
        elif isinstance(a, Link) or isinstance(b, Link):
            lines.append(f"{path} is {a}, not {b}")
        elif a.data != b.data:
            at = next((i for i, (x, y) in enumerate(zip(a.data, b.data)) if x != y), min(len(a.data), len(b.data)))
            lines.append(f"{path} has {len(a.data)} bytes, not {len(b.data)}; from byte {at}: {a.data[at:at + 40]!r}")
        else:
            lines.append(f"{path} has mode {a.mode:o} and owner {a.owner}, not {b.mode:o} and {b.owner}")
    return lines


class Content:
    """A file's content: what is on the disk for certain, and what may be there."""

    def __init__(self, file):
        self.flushed = self.current = file
        self.versions = []  # contents since the last flush, in order

    def change(self, **what):
        self.current = self.current._replace(**what)
        self.versions.append(self.current)

    def flush(self):
        self.flushed = self.current
        self.versions = []

    def flush_data(self):
        """fdatasync(2): mode and owner may be lost."""
        self.flushed = self.flushed._replace(data=self.current.data)
        self.versions = [v for v in self.versions if v[1:] != self.flushed[1:]]

    def after(self, choice):
        if not self.versions:
            return self.flushed
        return choice.of_content(self.flushed, self.versions)


class Step(typing.NamedTuple):
    """One change of names, not flushed in these folders yet."""

    names: dict  # path -> Content, Link, Folder or None
    folders: set


class Disk:
    def __init__(self, root, tree):
        self.root = str(root)
        self.current = {path: Content(e) if isinstance(e, File) else e for path, e in tree.items()}
        self.flushed = dict(self.current)
        self.steps = []
        self.inodes = {}

    def _path(self, text):
        assert text.startswith(self.root), text
        return text[len(self.root):]

    def _content(self, path, inode):
        """A file that was open before may be written to when it has another name."""
        if inode and inode in self.inodes:
            return self.inodes[inode]
        content = self.current[self._path(path)]
        if inode:
            self.inodes[inode] = content
        return content

    def _step(self, names):
        self.steps.append(Step(names, {path.rpartition("/")[0] for path in names}))
        self._apply(self.current, names)

    @staticmethod
    def _apply(where, names):
        for path, what in names.items():
            if what is None:
                where.pop(path, None)
            else:
                where[path] = what

    def follow(self, what, *words):
        """One "done" line of the log, without its number."""
        getattr(self, f"_{what}")(*words)

    def _create(self, path, inode, mode):
        content = Content(File(b"", int(mode, 8)))
        self.inodes[inode] = content
        if path:
            self._step({self._path(path): content})

    def _open(self, path, inode):
        content = self.current.get(self._path(path))
        if isinstance(content, Content):
            self.inodes[inode] = content

    def _write(self, path, inode, at, data):
        content = self._content(path, inode)
        old, new, at = content.current.data, bytes.fromhex(data), int(at)
        content.change(data=old[:at].ljust(at, b"\0") + new + old[at + len(new):])

    def _truncate(self, path, inode, size):
        content = self._content(path, inode)
        content.change(data=content.current.data[:int(size)].ljust(int(size), b"\0"))

    def _mode(self, path, inode, mode):
        self._content(path, inode).change(mode=int(mode, 8))

    def _owner(self, path, inode, user, group):
        content = self._content(path, inode)
        owner = (int(user), int(group))
        content.change(owner=tuple(old if new == 0xFFFFFFFF else new for old, new in zip(content.current.owner, owner)))

    def _rename(self, source, target, flags):
        assert flags == "0", "a rename with flags is not modelled"
        source, target = self._path(source), self._path(target)
        self._step({source: None, target: self.current[source]})

    def _unlink(self, path):
        self._step({self._path(path): None})

    def _link(self, path, inode):
        self._step({self._path(path): self.inodes[inode]})

    def _symlink(self, path, text):
        self._step({self._path(path): Link(text)})

    def _mkdir(self, path):
        self._step({self._path(path): Folder()})

    def _flush(self, path, inode):
        self._content(path, inode).flush()

    def _flushdata(self, path, inode):
        self._content(path, inode).flush_data()

    def _flushfolder(self, path, _inode):
        folder = self._path(path)
        for step in self.steps:
            step.folders.discard(folder)
        for step in [s for s in self.steps if not s.folders]:
            self._apply(self.flushed, step.names)
            self.steps.remove(step)

    def _flushall(self):
        for step in self.steps:
            self._apply(self.flushed, step.names)
        self.steps = []
        for content in {*self.current.values(), *self.inodes.values()}:
            if isinstance(content, Content):
                content.flush()

    def _unknown(self, name, path):
        raise AssertionError(f"the model of the disk does not know {name}({path})")

    def after_cut(self, choice, spare=Spare()):
        """The tree that is found after a power cut now."""
        names = dict(self.flushed)
        for step in self.steps:
            if choice.keeps(step):
                self._apply(names, step.names)
        tree = {}
        chosen = {}  # two names of one file see the same
        for path, what in names.items():
            if path in spare or isinstance(what, Folder) or not self._has_folders(names, path):
                continue
            if isinstance(what, Content):
                what = chosen.setdefault(what, what.after(choice))
            tree[path] = what
        return tree

    @staticmethod
    def _has_folders(names, path):
        while path := path.rpartition("/")[0]:
            if not isinstance(names.get(path), Folder):
                return False
        return True


class Choice:
    """What of the unflushed survives: all names or none, all contents or none."""

    def __init__(self, names, contents):
        self.names = names
        self.contents = contents

    def keeps(self, _step):
        return self.names

    def of_content(self, flushed, versions):
        return versions[-1] if self.contents else flushed


CHOICES = {
    "power-kept": Choice(True, True),
    "power-lost": Choice(False, False),
    "power-names": Choice(True, False),  # a rename before its data
    "power-data": Choice(False, True),
}


class RandomChoice:
    def __init__(self, draw):
        self.draw = draw

    def keeps(self, _step):
        return self.draw.random() < 0.5

    def of_content(self, flushed, versions):
        """An earlier content, one of the later ones, one whose end is not there yet, or one of old and new blocks; a
        block that never came is zero where the file grew."""
        kind = self.draw.randrange(4)
        version = self.draw.choice(versions)
        old, new = flushed.data, version.data
        size = self.draw.randint(min(len(old), len(new)), max(len(old), len(new)))
        if kind == 0:
            return flushed
        if kind == 1:
            return version
        if kind == 2:
            return version._replace(data=new[:size] + old[len(new):size])
        blocks = [self.draw.choice((old.ljust(len(new), b"\0"), new))[at:at + BLOCK] for at in range(0, len(new), BLOCK)]
        return version._replace(data=b"".join(blocks)[:len(new)])
