#!/usr/bin/python3
"""Makes docs/commands.md and docs/man/qvc-commands.7 of docs/commands/commands.txt. With --check: says whether they
are current, and writes nothing."""

import pathlib
import re
import sys
import textwrap

ROOT = pathlib.Path(__file__).resolve().parents[1]
SOURCE = ROOT / "docs/commands/commands.txt"
PARTS = ("Arguments", "Rights", "Effects", "Example")


def read_pages(text):
    """[(synopsis, {part: text})]. Raises ValueError for what is no page."""
    pages = []
    for line in text.splitlines():
        if line.startswith("#") or not line.strip():
            continue
        if line.startswith("= "):
            pages.append((line[2:], {}))
            continue
        part, colon, rest = line.partition(": ")
        if line.startswith(" "):
            last = list(pages[-1][1])[-1]
            pages[-1][1][last] += line
        elif colon and part in PARTS and part not in pages[-1][1]:
            pages[-1][1][part] = rest
        else:
            raise ValueError(f"no part of a page: {line}")
    for synopsis, parts in pages:
        if tuple(parts) != PARTS:
            raise ValueError(f"{synopsis}: the parts are {', '.join(parts)}")
    return sorted(pages, key=lambda page: name_of(page[0]))


def name_of(synopsis):
    return re.match(r"\w+", synopsis)[0]


def markdown(pages):
    lines = ["# Commands", ""]
    lines += textwrap.wrap(
        "Every command of the daemon and of `qvc`: what it takes, who may run it, what it changes, and an example. Readers, "
        "writers and appliers of an API are the callers whose permission mask shares a bit of that kind with the API's `perm`; "
        "administrators have a bit of level 1. `qvc help NAME` shows the same below what the daemon says itself.", 120)
    lines += ["", "<!-- Made of docs/commands/commands.txt by scripts/make_command_pages.py. -->"]
    for synopsis, parts in pages:
        lines += ["", f"## {name_of(synopsis)}", "", f"`{synopsis}`", ""]
        for part in PARTS[:3]:
            lines += textwrap.wrap(f"- *{part}*: {escape_markdown(parts[part])}", 120, subsequent_indent="  ")
        lines += ["", f"      {parts['Example']}"]
    return "\n".join(lines) + "\n"


def escape_markdown(text):
    return re.sub(r"([*_<>])", r"\\\1", text)


def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text.startswith((".", "'")) else text


def man(pages):
    lines = [
        r'.\" Made of docs/commands/commands.txt by scripts/make_command_pages.py.',
        '.TH QVC-COMMANDS 7 "" "qvcd" "Commands of the configuration daemon"',
        ".ad l",
        ".SH NAME",
        r"qvc\-commands \- what the commands of the configuration daemon take, need and change",
        ".SH DESCRIPTION",
        "Readers, writers and appliers of an API are the callers whose permission mask shares a bit of that kind with the",
        "API's",
        r".BR perm ;",
        "administrators have a bit of level 1.",
        ".BI \"qvc help \" NAME",
        "shows the same below what the daemon says itself.",
        ".SH COMMANDS",
    ]
    for synopsis, parts in pages:
        lines += [f".SS {name_of(synopsis)}", f".B {roff(synopsis)}"]
        for part in PARTS[:3]:
            lines += [".TP", f".I {part}", *map(roff, textwrap.wrap(parts[part], 116))]
        lines += [".PP", ".nf", roff(parts["Example"]), ".fi"]
    return "\n".join([*lines, ".SH SEE ALSO", ".BR qvc (1),", ".BR qvcd (8)", ""])


def main():
    pages = read_pages(SOURCE.read_text())
    made = {ROOT / "docs/commands.md": markdown(pages), ROOT / "docs/man/qvc-commands.7": man(pages)}
    if "--check" not in sys.argv:
        for path, text in made.items():
            path.write_text(text)
        return 0
    old = [str(path) for path, text in made.items() if not path.exists() or path.read_text() != text]
    if old:
        print("not current, run scripts/make_command_pages.py:", *old)
    return 1 if old else 0


if __name__ == "__main__":
    sys.exit(main())
