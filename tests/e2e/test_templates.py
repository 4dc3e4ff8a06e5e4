"""Numbered groups, made from templates when the metadata is loaded."""

import re

import pytest

from appliance import Reply, metadata

LEAF = "perm = 7777\n read = no_rfunc\n a {\n attr = x\n default = value __d of __i\n }\n"


def template(range_text, group="T"):
    return f"{group} {{\n __d {{\n range = {range_text}\n {LEAF} }}\n}}\n"


RANGES = {
    "0 5 2": [0, 2, 4],
    "3 3": [3],
    "4 3": [],
    "1 Nowhere.at.all": [],
    "0 Nowhere.at.all": [0],
    "1 Live.three": [1, 2, 3],
    "0 Live.broken": [0],
    "1 Live.file": [1, 2],
    "1 3 0": [1],
    "1 3 -1": [1],
    "1 3 x": [1, 2, 3],
    "1": [],
    "": [],
    "x 1": [0, 1],
    "-2 1": [],  # names have no sign
    "  1 \t 2  ": [1, 2],
    "2147483646 2147483648": [2147483646, 2147483647, 2147483648],
    "9223372036854775806 9223372036854775807": [9223372036854775806, 9223372036854775807],
    "1 9223372036854775807 9223372036854775807": [1],
    "4294967297 1": [],
}


def test_ranges(appliance):
    live = metadata("""
        Live: perm = 7777; dynamic = true
        Live.three: read = syscall_rfunc; attr = echo 3
        Live.broken: read = syscall_rfunc; attr = false
        Live.file: read = kv_rfunc; file = /etc/count; attr = count
    """)
    templates = "".join(template(text, f"T{i}") for i, text in enumerate(RANGES))
    a = appliance(live + templates, {"/etc/count": "count=2\n"}).start()
    for i, (text, numbers) in enumerate(RANGES.items()):
        lines = [f"T{i}.{number}.a=value {number} of {number}" for number in numbers]
        assert [line for line in a.command(f"get T{i}").lines if "##" not in line] == lines, text
        is_mistake = text in ("1 3 0", "1 3 -1", "1 3 x", "1", "x 1", "-2 1")
        assert (f"Template T{i}.__d has a mistake in its range: {text}\n" in a.log()) == is_mistake, text


def test_placeholders_in_values(appliance):
    meta = metadata("""
        T.__d: range = 7 7; perm = 7777; read = no_rfunc
        T.__d.two: attr = x; default = a__db__zc
        T.__d.end: attr = x; default = last__d
        T.__d.short: attr = x; default = last__
        T.__d.many: attr = x; default = ____d__d
        T.__d.plain__d: attr = x; default = its name stays
        F.__d: range = 1 2; perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/stream__d.conf
        F.__d.port: attr = port; default = 80__d
    """)
    a = appliance(meta).start()
    assert a.command("get T.7").lines == [
        "T.7.two=a7b7c",
        "T.7.end=last7",
        "T.7.short=last7",
        "T.7.many=7_d7",  # two marks and the character behind them, from the left
        "T.7.plain__d=its name stays",
        "T.7.7=its name stays",  # a mark anywhere in a name makes a template
    ]
    assert "T.__d.two.default=a__db__zc" in a.command("meta.get T").lines  # templates stay
    assert a.command("update F.2.port=9").code == 0  # each copy in the file of its own
    assert [a.read(f"/etc/stream{n}.conf") for n in (1, 2)] == ["port=801\n", "port=9\n"]


def test_template_in_a_template_counted_by_the_outer_number(appliance):
    """An inner range may name an API of the very copy."""
    meta = metadata("""
        Count.1: attr = one
        Count.2: attr = two
        Count: perm = 7777; read = kv_rfunc; file = /etc/count
        S.__d: range = 1 2; perm = 7777; read = no_rfunc
        S.__d.name: attr = x; default = __d
        S.__d.__i: range = 1 Count.2
        S.__d.__i.a: attr = x; default = __i
    """)
    a = appliance(meta, {"/etc/count": "one=1\ntwo=3\n"}).start()
    lines = a.command("get S.2").lines
    assert lines == ["S.2.name=2", "S.2.1.a=1", "S.2.2.a=2", "S.2.3.a=3"]


def test_two_files_expand_twice(appliance):
    """A later file may add to copies and templates: each load expands the whole tree again."""
    second = metadata("""
        T.__d.b: attr = x; default = late __d
        T.__d.a: default = changed __d
        T.2.special: attr = x; default = only here
        T.2.a: default = lost to the template
    """)
    a = appliance(files={"/1": template("1 2"), "/2": second})
    a.start("-m", a.path("/1"), "-m", a.path("/2"))
    assert sorted(a.command("get").lines) == [
        "T.1.a=changed 1",
        "T.1.b=late 1",
        "T.2.a=changed 2",
        "T.2.b=late 2",
        "T.2.special=only here",
    ]
    expansions = re.findall(r"^Expanding node T.__d for 1-2$", a.log(), re.M)
    assert len(expansions) == 2


@pytest.mark.parametrize("range_text", ["1 100000", "0 9223372036854775807", "1 99999999999999999999"])
def test_huge_ranges_are_refused(appliance, range_text):
    a = appliance(template(range_text) + "Good.perm = 7777\nGood.a.attr = x\nGood.a.default = 1\n").start()
    assert a.command("get") == Reply(["Good.a=1"], 0)
    assert re.search(r"^Template T.__d asks for \d+ copies, which is too many$", a.log(), re.M)


def test_nested_ranges_do_not_exhaust_the_daemon(appliance):
    nested = "".join(f"__{c} {{\nrange = 1 60000\n" for c in "abc") + LEAF + "}\n" * 3
    a = appliance("Good.perm = 7777\nGood.a.attr = x\nGood.a.default = 1\nN {\n" + nested + "}\n")
    a.start(level=1)
    assert a.get("Good.a") == "1"
    assert len(re.findall(r"^Template N\.\S+ asks for 60000 copies, which is too many$", a.log(), re.M)) == 10
    assert len(a.log().splitlines()) < 25
