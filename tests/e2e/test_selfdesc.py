"""The appliance describes itself: help, the menu, export and import; the shipped one, as a whole."""

import shutil
import subprocess

import pytest

EXPORT = "/tmp/settings.hdf"


def lines(appliance, command, **kwargs):
    return appliance.command(command, **kwargs).lines


def test_the_table_is_whole_and_in_order(shipped):
    listed = [line.split(":")[0] for line in lines(shipped, "help.cmd")]
    everything = [
        "undefined help get geti getv getd getdv set sets seta setn apply save modify update introspect browse preset",
        "profile add remove revert reload export import checkmod checkapp checkdef meta metav user group menu login",
        "logout sessions get_session default factory_reset insert delete plan diff commit confirm abort history",
        "rollback document failures version events describe pages pending stats",
    ]
    assert listed == " ".join(everything).split()  # session 0 has level-0 bits
    admin = shipped.login("admin", "kelpo")
    for_admin = [line.split(":")[0] for line in lines(shipped, "help.cmd", session=admin)]
    hidden = "undefined getv getd getdv sets seta setn preset add remove reload export import meta metav user group"
    hidden += " menu sessions get_session insert delete document"
    assert for_admin == [name for name in listed if name not in hidden.split()]


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


# For each shell: prints what it offers for the lines that are its arguments.
OFFERS = {
    "bash": """source <(qvc completion bash)
        for line; do COMP_LINE=$line; COMP_POINT=${#line}; _qvc qvc "${line##* }"; echo "${COMPREPLY[@]}"; done""",
    "zsh": """compdef() { :; }; compadd() { shift ${@[(i)--]}; (( ! $# )) || print -r -- $@; }
        source <(qvc completion zsh)
        for line; do words=("${(@s: :)line}"); CURRENT=$#words PREFIX=$words[-1]; _qvc; done""",
    "fish": 'qvc completion fish | source; for line in $argv; echo (complete -C "$line"); end',
}


@pytest.mark.parametrize("shell, before", [("bash", ["-c", OFFERS["bash"], "bash"]), ("zsh", ["-fc", OFFERS["zsh"], "zsh"]),
                                           ("fish", ["-N", "-c", OFFERS["fish"]])])
def test_completion_knows_what_the_daemon_knows(shipped, shell, before):
    if not shutil.which(shell):
        pytest.skip(f"there is no {shell}")
    offers = {"get Services.HTTP.p": "Services.HTTP.port", "user.pa": "user.passwd", "factory": "factory_reset",
              "--json diff sa": "saved", "commit -c 60 -m": "-m", "completion ": "bash fish zsh"}
    environment = shipped.environment(XDG_RUNTIME_DIR=str(shipped.path("/tmp")))
    done = subprocess.run([shell, *before, *(f"qvc {line}" for line in offers)], env=environment, capture_output=True, text=True)
    assert done.stdout.splitlines() == list(offers.values()), done
