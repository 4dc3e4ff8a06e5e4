#!/usr/bin/python3
"""Makes a man page of a document in Markdown, as far as docs/ uses it, on stdout.
Usage: make_man_page.py FILE.md NAME SECTION "what it is, in a line" "SEE ALSO, comma-separated" """

import re
import sys

BULLET = re.compile(r"(?:- (?:\[ \] )?|(\d+)\. +)(.*)")


def escape(text):
    return text.replace("\\", "\\e").replace("-", "\\-")


def guard(line):
    """A line that a request could be taken for."""
    return "\\&" + line if line.startswith((".", "'")) else line


def inline(text):
    """Code and strong text bold, emphasis and links underlined or plain."""
    parts = []
    for part in re.split(r"(`[^`]+`)", text):
        if part.startswith("`") and len(part) > 1:
            parts.append(f"\\fB{escape(part[1:-1])}\\fR")
            continue
        part = escape(re.sub(r"\[([^\]]+)\]\([^)]*\)", r"\1", part))
        part = re.sub(r"\*\*([^*]+)\*\*", r"\\fB\1\\fR", part)
        parts.append(re.sub(r"\*([^* ][^*]*)\*", r"\\fI\1\\fR", part))
    return "".join(parts)


def paragraph(lines):
    return [guard(inline(" ".join(line.strip() for line in lines)))]


def code(lines):
    return [".PP", ".RS 4", ".EX", *(guard(escape(line)) for line in lines), ".EE", ".RE"]


def cells(row):
    return [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", row.strip().strip("|"))]


def paragraphs_of(head, body):
    """What is too wide for a table: the first cell, and below it the others, each with its title, and the last."""
    made = []
    for row in body:
        titled = "; ".join(f"\\fI{inline(title)}\\fR {inline(cell)}" for title, cell in zip(head[1:-1], row[1:-1]) if cell)
        made += [".TP", guard(inline(row[0])), guard(f"{titled}: {inline(row[-1])}" if titled else inline(row[-1]))]
    return made


def table(rows):
    head, body = cells(rows[0]), [cells(row) for row in rows[2:]]
    if len(head) > 3:
        return paragraphs_of(head, body)
    # The last column takes what the others leave; those are as wide as what stands in them, up to a limit.
    columns = [[row[i] for row in [head, *body]] for i in range(len(head) - 1)]
    most = 44 // max(len(columns), 1)
    widths = [max(max(map(len, " ".join(column).split())), min(max(map(len, column)), most)) for column in columns]
    layout = "".join(f"lw({width}n) " for width in widths) + "lx."
    made = [".PP", ".TS", "tab(\t);"]
    if any(head):
        made += [" ".join("lb" for _ in head), layout, "\t".join(map(inline, head))]
    else:
        made += [layout]
    for row in body:
        made.append("\t".join(f"T{{\n{guard(inline(cell))}\nT}}" for cell in row))
    return [*made, ".TE"]


def items(lines):
    """A list; what is indented deeper than its items belongs to them."""
    made, texts = [], []
    for line in lines:
        if found := BULLET.match(line):
            texts.append((f"{found[1]}." if found[1] else "\\(bu", [found[2]]))
        elif line.strip():
            texts[-1][1].append(line)
    for tag, text in texts:
        made += [f".IP {tag} 4", *paragraph(text)]
    return made


def blocks(text):
    """Its blocks as (kind, lines)."""
    lines = text.splitlines()
    at = 0

    def take(condition):
        nonlocal at
        start = at
        while at < len(lines) and condition(lines[at]):
            at += 1
        return lines[start:at]

    while at < len(lines):
        line = lines[at]
        if line.startswith("```"):
            at += 1
            yield "code", take(lambda each: not each.startswith("```"))
            at += 1
        elif line.startswith("#"):
            at += 1
            yield "title", [line]
        elif line.startswith("|"):
            yield "table", take(lambda each: each.startswith("|"))
        elif line.startswith("    "):
            yield "code", [each[4:] for each in take(lambda each: each.startswith("    "))]
        elif BULLET.match(line):
            yield "list", take(lambda each: BULLET.match(each) or each.startswith(" ") or not each)
        elif line.strip() and not line.startswith("<!--"):
            yield "text", take(lambda each: each.strip() and not re.match(r"[#|]|```", each))
        else:
            at += 1


def page(text, name, section, summary, see_also):
    made = ["'\\\" t", f'.TH {name.upper()} {section} "" "qvcd"', ".ad l", ".nh", ".SH NAME", f"{escape(name)} \\- {summary}", ".SH DESCRIPTION"]
    for kind, lines in blocks(text):
        if kind == "title":
            level, title = re.match(r"(#+) (.*)", lines[0]).groups()
            if len(level) > 1:
                made.append(f'.{"SH" if len(level) == 2 else "SS"} "{inline(title)}"')
        elif kind == "text":
            made += [".PP", *paragraph(lines)]
        elif kind == "list" and all(re.match(r"\d+\. \[.*\]\(#.*\)$", line) for line in lines if line):
            continue  # the table of contents
        else:
            made += {"code": code, "table": table, "list": items}[kind](lines)
    references = [f".BR {each.partition('(')[0].strip()} ({each.partition('(')[2]}," for each in see_also.split(",")]
    return "\n".join([*made, ".SH SEE ALSO", *references]).rstrip(",") + "\n"


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8")
    with open(sys.argv[1], encoding="utf-8") as file:
        sys.stdout.write(page(file.read(), *sys.argv[2:]))
