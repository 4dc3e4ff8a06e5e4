"""The model that ships, as a whole, on the root that ships with it."""

import re

CURRENT = "System.Configuration.Profiles.current"
NO_SETTINGS = "hardware.conf version resolv.conf user.conf wizard.hdf init.d presets sysconfig".split()
SECRET = re.compile(r"(password|passphrase|secret|token|community|wepkey|pin|(?<!public_)key)$")


def lists_of_pages(a):
    """(page, name) for all that the pages of the menu and of the wizard name."""
    for line in a.command("menu.get").lines:
        found = re.fullmatch(r"main\.(\w+)\.(?:load|introspect)=(.*)", line)
        yield from ((found[1], name) for name in (found[2].split() if found else []))


def test_every_api_tells_its_value_and_what_it_is(shipped):
    values = dict(line.split("=", 1) for line in shipped.command("get").lines)
    links = {name for name in values if name.startswith("VideoStreamer.Links.1.")}  # published, with a name only
    assert 500 <= len(values) - len(links) <= 700
    alone = shipped.talk([f"get {name}" for name in values]).decode().splitlines()
    assert [line.split("=")[0] for line in alone if "=" in line] == list(values)
    assert not [line for line in alone if "##" in line]
    assert re.fullmatch(r"\d+ days?, [ \d]\d:\d\d", values["System.Info.Uptime.all"])
    assert int(values["System.Info.Memory.total"]) > 0
    assert values["System.Info.Version.linux"] == open("/proc/version").read().split()[2]
    assert values["System.Info.Product.productname"] == "QV Encoder"
    described = shipped.command("introspect").lines
    types = dict(line.split(".type=") for line in described if ".type=" in line)
    assert set(values) - set(types) == links
    shown = {name for name in types if SECRET.search(name) and "password" not in types[name]}
    assert shown == {"System.Factory.support_key", "Network.CurrentSettings.Interfaces.Wlan0.passphrase",
                     "VideoStreamer.Info.viewer_password"}  # their readers give stars
    pages = {line.removeprefix("NAME").strip() for line in shipped.command("help.api").lines if line.startswith("NAME")}
    assert set(types) - pages == set()


def test_pages_name_what_there_is_and_leave_nothing_out(shipped):
    names = [line.split("=")[0] for line in shipped.command("get").lines]
    pages = list(lists_of_pages(shipped))
    assert [one for one in pages if not any(f"{name}.".startswith(f"{one[1]}.") for name in names)] == []
    left_out = [name for name in names if not any(f"{name}.".startswith(f"{on_page}.") for _, on_page in pages)]
    assert {name.rsplit(".", 1)[0] for name in left_out} == {"System.Factory"}  # the maker's


def test_starts_clean_with_its_settings_and_without(appliance):
    a = appliance(shipped=True).start(level=1)
    before = {p: p.read_bytes() for p in a.path("/etc").rglob("*") if p.is_file()}
    assert (a.log(), a.stderr()) == ("", "")
    # Every setting has a valid value in its file: nothing is replaced by a default.
    a.restart()
    assert replaced(a) <= {f"default {CURRENT}=default"}  # is the default anyway
    assert {p: p.read_bytes() for p in a.path("/etc").rglob("*") if p.is_file()} == before
    # Every default is one that its own type and its own file take.
    a.stop()
    for path in before:
        if path.relative_to(a.path("/etc")).parts[0] not in NO_SETTINGS:
            path.write_text("")
    a.start(level=1)
    assert (a.log(), a.stderr()) == ("", "")
    a.restart()
    assert replaced(a) == {"blank System.Time.settime"}  # the time that was last set by hand: never


def replaced(a):
    return set(re.findall(r"^populate ((?:default|blank) .*)", a.log(), re.M))
