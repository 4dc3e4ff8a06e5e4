"""The appliance describes itself: help, browse, introspection, the menu, export and import."""

import re
import subprocess

import pytest

from appliance import Reply

EXPORT = "/tmp/settings.hdf"


def lines(appliance, command, **kwargs):
    return appliance.command(command, **kwargs).lines


def test_every_command_has_a_page_that_fits_a_terminal(shipped):
    names = [line.split(":")[0] for line in lines(shipped, "help.cmd", session=0)]
    assert len(names) == len([n for n in names if n]) > 20
    for name in names:
        page = lines(shipped, f"help.cmd {name}")
        assert page[0] == "NAME" and page[1].startswith(f"\t{name} - "), page
        for line in page:
            # A line ends at the first blank behind its 60th character. Some texts of "profile" are fixed and longer.
            text = line.rstrip().expandtabs(8)
            assert len(text) <= 80 or name == "profile", f"{name}: {line}"


def test_the_table_is_whole_and_in_order(shipped):
    listed = [line.split(":")[0] for line in lines(shipped, "help.cmd")]
    everything = [
        "undefined help get geti getv getd getdv set sets seta setn apply save modify update introspect browse preset",
        "profile add remove revert reload export import checkmod checkapp checkdef meta metav user group menu login",
        "logout sessions get_session default factory_reset insert delete",
    ]
    assert listed == " ".join(everything).split()  # session 0 has level-0 bits
    admin = shipped.login("admin", "kelpo")
    for_admin = [line.split(":")[0] for line in lines(shipped, "help.cmd", session=admin)]
    hidden = "undefined getv getd getdv sets seta setn preset add remove reload export import meta metav user group"
    hidden += " menu sessions get_session insert delete"
    assert for_admin == [name for name in listed if name not in hidden.split()]


def test_pages_hold_the_systems_own_texts(shipped):
    assert lines(shipped, "help.cmd get") == [
        "NAME",
        "\tget - Get a parameter or group",
        "",
        "RETURN VALUES",
        "\tA key/value pair for the requested API",
    ]
    login = [line for line in lines(shipped, "help.cmd login") if line.isupper()]
    assert login == ["NAME", "SYNOPSIS", "RETURN VALUES"]
    assert lines(shipped, "help.cmd nonsense") == []


def test_api_help(shipped):
    page = lines(shipped, "help.api Services.HTTP.port")
    assert page[1] == "NAME    Services.HTTP.port"
    assert "ACCESS TYPE" in page and "VALID OPTIONS" in page
    assert page[page.index("ACCESS TYPE") + 1] == "\tread write apply"
    hdf = lines(shipped, "help.apihdf Services.HTTP")
    assert hdf and all(re.fullmatch(r"Services\.HTTP\.\w+\.(help|desc)=.+", line) for line in hdf)
    assert lines(shipped, "help.api No.such") == []


def test_browse(shipped):
    names = [line.removesuffix("=leaf") for line in lines(shipped, "browse")]
    assert "Services.HTTP.port" in names
    assert lines(shipped, "browse Services.HTTP.port") == ["Services.HTTP.port=leaf"]
    assert shipped.command("browse No.such") == Reply(["No.such=##Parameter not found#"], 1)


def test_menu_page_brings_values_descriptions_and_the_user(shipped):
    reply = shipped.command("menu.getload 0 services")
    assert reply.code == 0 and "user=root" in reply.lines
    assert any(line.startswith("menu.stats=") for line in reply.lines)
    assert any(re.match(r"[\w.]+\.type=", line) for line in reply.lines)
    assert shipped.command("menu.getload 77 services").lines == ["##Session 77 does not exist#"]


def test_menu_without_a_wizard_is_lost_by_a_reload(appliance):
    a = appliance(meta="A.perm = 7777\n", files={"/home/www/menu.hdf": "main.header.load = A\n"}).start()
    assert lines(a, "menu.get") == ["main.header.load=A"]
    a.command("menu.reload")
    assert lines(a, "menu.get") == []
    a.write("/etc/wizard.hdf", "wizard.firstrun = 1\n")
    a.restart()
    a.command("menu.reload")
    assert lines(a, "menu.get") == ["main.header.load=A", "wizard.firstrun=1"]


def test_export_reset_import_brings_every_value_back(appliance):
    a = appliance(shipped=True).start()
    for change in ("Services.HTTP.port=8088", "VideoEncoder.Configuration.gop=31", "Network.Interfaces.Wlan0.ssid=My+net+%25"):
        assert a.command("set " + change).code == 0, change
    mode = 2  # passwords too
    assert a.command(f"export {EXPORT} {mode}").code == 0
    document = a.read(EXPORT)
    assert document.count(" = ") > 150
    a.command("default")
    reset = lines(a, f"export stdout {mode}")
    assert a.get("Services.HTTP.port") == "80" and reset != document.splitlines()
    assert a.command(f"import {EXPORT} 1").code == 0
    assert lines(a, f"export stdout {mode}") == document.splitlines()
    assert a.get("Network.Interfaces.Wlan0.ssid") == "My net %"


@pytest.mark.parametrize(
    "what, document",
    [
        ("includes", '#include "/etc/user.conf"\nServices.HTTP.port = 81\n'),
        ("nests deeply", "a {\n" * 5000),
        ("is megabytes", "Services.HTTP.port = " + "1" * (5 << 20) + "\n"),
        ("is binary", b"Services.HTTP.port = 81\n\x00\xff\xfe\n"),
        ("links", "Services.HTTP.port : Services.HTTP.ssl\n"),
        ("is cut off", "Services {\n  HTTP {\n    port = 81\n"),
        ("is empty", ""),
    ],
)
def test_a_document_from_outside_is_refused_whole(shipped, what, document):
    shipped.write("/tmp/foreign.hdf", document)
    before = shipped.get("Services.HTTP.port")
    assert shipped.command("import /tmp/foreign.hdf") == Reply(["##Import failed#"], 1), what
    assert shipped.get("Services.HTTP.port") == before
    if what != "is empty":
        assert shipped.command("user.import /tmp/foreign.hdf").lines == ["##Error in file format#"]


def test_completion_knows_what_the_daemon_knows(shipped):
    script = """
        source <(qvc completion bash)
        complete_line() { COMP_LINE=$1; COMP_POINT=${#1}; _qvc qvc "${1##* }"; echo "${COMPREPLY[@]}"; }
        complete_line "qvc get Services.HTTP.p"
        complete_line "qvc user.pa"
        complete_line "qvc factory"
    """
    environment = shipped.environment(XDG_RUNTIME_DIR=str(shipped.path("/tmp")))
    done = subprocess.run(["bash", "-c", script], env=environment, capture_output=True, text=True)
    assert done.stdout.split() == ["Services.HTTP.port", "user.passwd", "factory_reset"], done
