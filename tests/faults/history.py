"""The history as it stands in a tree of files, and whether it is in step with them."""

import contextlib
import functools
import os
import pathlib
import shutil
import sqlite3
import typing

from scenarios import ASIDE, HISTORY

FILES = [name + part for name in (HISTORY, ASIDE) for part in ("", "-wal", "-journal")]
MAX_ENTRIES = 10_000
UNDONE = "undone: "
PROBLEM = "History=##"
LOGGED = ("the history cannot be", "the history is damaged")


class Entry(typing.NamedTuple):
    key: str
    command: str
    text: str
    end: str
    values: tuple
    actions: tuple

    def is_undone(self):
        """A commit that came to nothing, or what undid it."""
        return self.end.startswith(UNDONE) or self.key.endswith("-undone")

    def what(self):
        return self._replace(key="", end="")


class History(typing.NamedTuple):
    entries: tuple = ()
    problem: str = ""
    is_aside: bool = False

    def told(self):
        """What counts: its last entries without their keys, which are drawn."""
        return [e._replace(key="") for e in self.entries if not e.is_undone()]

    def same(self):
        """To know it again: one key is as good as another."""
        keys = {}
        names = [keys.setdefault(e.key.removesuffix("-undone"), len(keys)) if e.key else "" for e in self.entries]
        return self._replace(entries=tuple(
            e._replace(key=f"{name}{'-undone' * e.key.endswith('-undone')}") for e, name in zip(self.entries, names)))


def without(tree):
    return {path: entry for path, entry in tree.items() if path not in FILES}


def only(tree):
    return {path: entry for path, entry in tree.items() if path in FILES}


def read(tree, folder):
    """As any program reads it."""
    files = tuple((path, tree[path].data) for path in FILES if path in tree)
    return parse(files, str(folder))


@functools.lru_cache(maxsize=64)
def parse(files, folder):
    files = dict(files)
    is_aside = ASIDE in files
    if HISTORY not in files:
        return History(is_aside=is_aside)
    place = pathlib.Path(folder)
    place.mkdir()
    try:
        for path, data in files.items():
            (place / os.path.basename(path)).write_bytes(data)
        with contextlib.closing(sqlite3.connect(place / os.path.basename(HISTORY))) as db:
            db.text_factory = lambda data: data.decode(errors="surrogateescape")
            return History(entries_of(db), integrity(db), is_aside)
    except sqlite3.Error as error:
        return History((), str(error), is_aside)
    finally:
        shutil.rmtree(place)


def integrity(db):
    [(found,)] = db.execute("PRAGMA integrity_check(1)").fetchall()
    return "" if found == "ok" else found


def entries_of(db):
    if not db.execute("SELECT count(*) FROM sqlite_schema").fetchone()[0]:
        return ()
    parts = {"value": "api, before, after", "action": "action, status"}
    found = {part: {} for part in parts}
    for part, columns in parts.items():
        for number, *rest in db.execute(f"SELECT entry, {columns} FROM {part} ORDER BY entry, position"):
            found[part].setdefault(number, []).append(tuple(rest))
    return tuple(
        Entry(*texts, tuple(found["value"].get(number, ())), tuple(found["action"].get(number, ())))
        for number, *texts in db.execute("SELECT number, key, command, text, end FROM entry ORDER BY number"))


def filled(files, folder, entries):
    """The same history with so many entries in all, as one file."""
    place = pathlib.Path(folder)
    place.mkdir()
    for path, file in files.items():
        (place / os.path.basename(path)).write_bytes(file.data)
    name = place / os.path.basename(HISTORY)
    with contextlib.closing(sqlite3.connect(name)) as db:
        [(there,)] = db.execute("SELECT count(*) FROM entry").fetchall()
        db.executemany(
            "INSERT INTO entry(key, time, user, source, client, command, text, end, more_values) "
            "VALUES('', 0, 'root', 'local', 'test', 'save', '', 'done', 0)", [()] * (entries - there))
        db.commit()
    data = name.read_bytes()
    shutil.rmtree(place)
    return {HISTORY: files[HISTORY]._replace(data=data)}


# ---- Judging ----


def is_part(part, whole):
    """All of it, in the same order."""
    rest = iter(whole)
    return all(any(one == other for other in rest) for one in part)


def shortfalls(found, allowed, attempted, is_told, may_be_aside):
    """What is wrong with it: it must be as one of those that are allowed; where it was said that it cannot be written,
    entries may be missing, and ends."""
    fell = []
    if found.problem:
        fell.append(f"it cannot be read: {found.problem}")
    if found.is_aside and not may_be_aside:
        fell.append("it was put aside")
    keys = [e.key for e in found.entries if e.key]
    if len(keys) != len({*keys}):
        fell.append(f"entries of the same: {found.entries}")
    known = [e.what() for e in attempted]
    for entry in found.entries:
        if entry.end.startswith(UNDONE) and entry.what()._replace(actions=()) not in [k._replace(actions=()) for k in known]:
            fell.append(f"undone, but never was: {entry}")
        if entry.key.endswith("-undone") and not is_told and not any(
                e.key == entry.key.removesuffix("-undone") and e.end.startswith(UNDONE) for e in found.entries):
            fell.append(f"undoes what is not undone: {entry}")
    told = found.told()
    if is_told:
        good = is_part([e.what() for e in told], known)
    else:
        good = any(told == one.told() for one in allowed)
    if not good:
        fell.append(f"{told}\nnot " + "\nor ".join(str(one.told()) for one in allowed))
    return fell
