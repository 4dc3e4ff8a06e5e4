"""qvc as a shell: what an administrator types and sees on a terminal."""

import subprocess

import pytest

from appliance import QVC
from terminal import Terminal


@pytest.fixture
def a(appliance):
    return appliance(shipped=True).start()


def bash_offers(a, line, env):
    script = """
        source <(qvc completion bash)
        compopt() { echo -n "[$2] "; }
        COMP_LINE=$0; COMP_POINT=${#0}; _qvc qvc "${0##*[ =@]}"; echo "${COMPREPLY[@]}"
    """
    done = subprocess.run(["bash", "-c", script, line], env=env, capture_output=True, text=True)
    assert done.returncode == 0, done
    return done.stdout.strip()


def test_bash_is_told_what_can_stand_there_and_no_file_where_none_can(a):
    env = a.environment(XDG_RUNTIME_DIR=str(a.path("/tmp")))
    a.write("/tmp/values/one value", "x")
    operator = a.login("operator", "operator")
    for line, offered in {
        "get Services.HTTP.p": "Services.HTTP.port",
        "set Services.HTTP.po": "[nospace] Services.HTTP.port=",
        "set Services.HTTP.ssl=": "disable enable",
        "set Network.hostname=": "qv-encoder",
        f"set Network.hostname=@{a.path('/tmp')}/val": f"[nospace] {a.path('/tmp')}/values/",
        f"set Network.hostname=@{a.path('/tmp')}/values/": f"{a.path('/tmp')}/values/one\\ value",
        "user.pa": "user.passwd",
        "user passwd o": "operator",
        "user.mod operator ": "0 1 2 3",
        "preset.load_name st": "studio",
        "preset.store ": "1 2",
        "profile.load ": "default",
        "--json diff sa": "saved",
        "commit -": "-a -c -j -m -n -s",
        "commit -c 60 -m ": "",
        f"--ca {a.path('/tmp')}/values/o": f"{a.path('/tmp')}/values/one\\ value",
        "-H ": "", "login x ": "", "confirm ": "",
    }.items():
        assert bash_offers(a, f"qvc {line}", env) == offered, line
        if line[:4] in ("get ", "set "):  # below administrator, too
            assert bash_offers(a, f"qvc -s {operator} {line}", env) == offered, line
    assert bash_offers(a, f"qvc -s {operator} chec", env) == "checkapp checkdef checkmod"
    a.stop()
    assert bash_offers(a, "qvc -H 127.0.0.1:1 get ", env) == ""


def test_bytes_above_ascii_are_kept_without_a_locale(a):
    env = {name: value for name, value in a.environment().items() if name != "LANG" and not name.startswith("LC_")}
    with Terminal([QVC], env) as terminal:
        terminal.press("set Network.Interfaces.Wlan0.ssid='Caféx\x7f 日本'\r")
        terminal.wait_for("ssid=Café 日本\n")
        terminal.press("quit\r")
        assert terminal.wait() == 0
    assert a.get("Network.Interfaces.Wlan0.ssid") == "Café 日本"
