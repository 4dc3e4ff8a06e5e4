"""The model that ships: it comes up clean, and it uses what the daemon can do."""

import re

from appliance import REPOSITORY


def names_of_map(source, table):
    text = (REPOSITORY / "src/funcs" / source).read_text()
    rows = text[text.index(table) :]
    return set(re.findall(r'\{"(\w+)", ', rows[: rows.index("};")])) - {"undefined"}


def used(attribute):
    text = (REPOSITORY / "share/apimeta.hdf").read_text()
    values = re.findall(rf"^\s*(?:\w+\.)*{attribute} = *(.*)$", text, re.M)
    return {word.split()[0] for value in values for word in value.split(",") if word.strip()}


def test_every_function_is_reached_by_an_api():
    assert names_of_map("read_map.cpp", "rfuncCmdMap[]") - used("read") == set()
    assert names_of_map("write_map.cpp", "wfuncCmdMap[]") - used("write") == set()
    assert names_of_map("apply_map.cpp", "afuncCmdMap[]") - used("apply") - used("apply2") == set()


def test_no_attribute_names_an_unknown_function():
    assert used("read") <= names_of_map("read_map.cpp", "rfuncCmdMap[]")
    assert used("write") <= names_of_map("write_map.cpp", "wfuncCmdMap[]")


def test_it_comes_up_without_complaints(shipped):
    log = shipped.log()
    assert not re.search(r"^populate blank ", log, re.M)
    assert not re.search(r"^(Undefined|Can not|can't) ", log, re.M), log
    assert shipped.command("checkmod").lines == shipped.command("checkapp").lines == []


def test_every_value_is_told_and_described(shipped):
    """Every API answers get, and what is settable has a type that its value satisfies."""
    values = dict(line.split("=", 1) for line in shipped.command("get").lines)
    assert len(values) > 250
    assert re.fullmatch(r"\d+ days?, [ \d]\d:\d\d", values["System.Info.Uptime.all"])
    assert int(values["System.Info.Memory.total"]) > 0
    assert values["System.Info.Version.linux"] == open("/proc/version").read().split()[2]
    assert values["System.Info.Product.productname"] == "QV Encoder"
    described = shipped.command("introspect").lines
    typed = {line.split(".type=")[0] for line in described if ".type=" in line}
    links = {name for name in values if name.startswith("VideoStreamer.Links.1.")}  # published, with a name only
    assert set(values) - typed - links == set()
