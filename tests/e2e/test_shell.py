"""qvc as a shell: what an administrator types and sees on a terminal."""

import os
import pathlib
import signal
import stat
import subprocess

import pytest

from appliance import QVC, wait_until
from terminal import Terminal


@pytest.fixture
def a(appliance):
    return appliance(shipped=True).start()


def is_stopped(pid):
    threads = pathlib.Path(f"/proc/{pid}/task").iterdir()
    return all((thread / "stat").read_text().rpartition(")")[2].split()[0] == "T" for thread in threads)


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
        f"import -l {a.path('/tmp')}/values/o": f"{a.path('/tmp')}/values/one\\ value",
        "commit -": "-a -c -j -m -n -s",
        "commit -c 60 -m ": "",
        f"--ca {a.path('/tmp')}/values/o": f"{a.path('/tmp')}/values/one\\ value",
        "-H ": "", "login x ": "", "confirm ": "",
    }.items():
        assert bash_offers(a, f"qvc -t 30 {line}", env) == offered, line
        if line[:4] in ("get ", "set "):  # below administrator, too
            assert bash_offers(a, f"qvc -t 30 -s {operator} {line}", env) == offered, line
    assert bash_offers(a, f"qvc -t 30 -s {operator} chec", env) == "checkapp checkdef checkmod"
    a.stop()
    assert bash_offers(a, "qvc -H 127.0.0.1:1 get ", env) == ""


def test_bytes_above_ascii_are_kept_without_a_locale(a):
    env = {name: value for name, value in a.environment().items() if name != "LANG" and not name.startswith("LC_")}
    with Terminal([QVC, "-y"], env) as terminal:  # and is not asked when it leaves
        terminal.press("set Network.Interfaces.Wlan0.ssid='Caféx\x7f 日本'\r")
        terminal.wait_for("ssid=Café 日本\n")
        terminal.press("quit\r")
        assert terminal.wait() == 0
    assert a.get("Network.Interfaces.Wlan0.ssid") == "Café 日本"


def on_terminal(a, *words, say=(), **env):
    """Answers each text that appears with some keys: what stands there in the end, and the exit status."""
    with Terminal([QVC, "-t", "30", *words], a.environment(NO_COLOR="1", **env)) as terminal:
        for text, keys in say:
            terminal.expect(text)
            terminal.press(keys)
        return terminal.wait(), terminal.screen


def test_what_destroys_much_is_asked_for_when_a_person_types_it(a):
    a.command("set Services.HTTP.port=81")
    for words, question in {
        ("default",): "All settings go back",
        ("default", ","): "All settings go back",
        ("factory_reset",): "All settings and the passwords",
        ("user", "default"): "The passwords of all users",
        ("profile.reset",): "All profiles are removed",
        ("preset.store", "02"): "Preset 2 (mobile) is overwritten",
        ("preset.store",): "Preset 1 (studio) is overwritten",
    }.items():
        for answer in ("n\r", "\r", "\x04"):
            status, screen = on_terminal(a, *words, say=[("Go on? [y/N] ", answer)])
            assert status == 1 and question in screen and "nothing was done" in screen, (words, screen)
    assert a.get("Services.HTTP.port") == "81"
    assert on_terminal(a, "default", "Services.HTTP.ssl") == (0, "")  # a name says what is meant
    assert on_terminal(a, "default", say=[("Go on? [y/N] ", "y\r")])[0] == 0 and a.get("Services.HTTP.port") == "80"
    for words in (("-y", "default"), ("default", "-y")):
        a.command("set Services.HTTP.port=81")
        status, screen = on_terminal(a, *words)
        assert status == 0 and "Go on?" not in screen and a.get("Services.HTTP.port") == "80"
    # A script is not asked, with a terminal or without, and may say -y.
    for words in ("default", "default -y"):
        a.command("set Services.HTTP.port=81")
        with Terminal(["sh", "-c", f"qvc {words}; exit $?"], a.environment()) as terminal:
            assert terminal.wait() == 0 and "Go on?" not in terminal.screen
        assert a.get("Services.HTTP.port") == "80"
        a.command("set Services.HTTP.port=81")
        assert subprocess.run([QVC], input=words + "\n", env=a.environment(), text=True).returncode == 0
        assert a.get("Services.HTTP.port") == "80"


SECRET = "Network.Interfaces.Wlan0.passphrase"


def test_values_and_passwords_come_from_files_pipes_and_unseen_keys(a):
    a.write("/tmp/value", "one, two % +\n")

    def piped(*words, text):
        done = subprocess.run([QVC, *words], input=text, env=a.environment(), capture_output=True, text=True)
        return done.returncode, done.stdout, done.stderr

    ssid = "Network.Interfaces.Wlan0.ssid"
    for given, value in {
        f"@{a.path('/tmp/value')}": "one, two % +", "-": "from input", "\\@x": "@x", "\\-": "-", "?": "?", "\\?": "?",
        "\\\\?": "\\?", "\\x": "\\x", "-5": "-5",
    }.items():
        assert piped("set", f"{ssid}={given}", text="from input\n")[0] == 0
        assert a.get(ssid) == value, given
    assert piped("plan", f"{ssid}=-", text="planned")[1].startswith(f"{ssid}=qv -> planned\n")
    assert "cannot read '/nowhere'" in piped("set", f"{ssid}=@/nowhere", text="")[2]
    assert "of one name only" in piped("set", f"{ssid}=-", f"{ssid}=-", text="")[2]
    script = piped(text=f"set {ssid}=@{a.path('/tmp/value')}\nset {ssid}=-\n")
    assert script[0] == 2 and "input:2" in script[2] and a.get(ssid) == "one, two % +"
    assert piped("set", f"{SECRET}=-", text="from-input")[:2] == (0, f"{SECRET}=*******\n")
    # A password is typed twice; the first attempt has a slip.
    twice = [("New password of", "first=one\r"), ("Once more", "first=0ne\r"), ("not the same", ""),
             ("New password of", "first=one\r"), ("Once more", "first=one\r")]
    status, screen = on_terminal(a, "set", f"{SECRET}=?", say=twice)
    assert status == 0 and "first" not in screen, screen
    assert "passphrase = first%3Done" in "".join(a.command("export stdout 2").lines)
    refused = [("New password of", "two words\r"), ("Once more", "two words\r")]
    status, screen = on_terminal(a, "set", f"{SECRET}=?", say=refused)
    assert status == 1 and "##Invalid password character#: *******\n" in screen and "two words" not in screen
    status, _, error = piped("set", f"{SECRET}=?", text="")
    assert status == 2 and "no terminal to ask" in error
    for words in (("user.passwd", "viewer"), ("user", "passwd", "viewer"), ("user.add", "newcomer", "3")):
        status, screen = on_terminal(a, *words, say=[("New password of", "a b?\r"), ("Once more", "a b?\r")])
        assert status == 0 and ".passwd=*******" in screen and "a b?" not in screen
        assert a.login(words[-1] if words[-1] == "viewer" else "newcomer", "a b?")
    assert piped("user.passwd", "viewer", text="piped\n")[:2] == (0, "User.viewer.passwd=*******\n")
    assert a.login("viewer", "piped")


def test_a_kept_session_is_used_by_its_owner_for_its_daemon_until_logout(a):
    env = {"XDG_RUNTIME_DIR": str(a.path("/tmp/run")), "HOME": str(a.path("/tmp"))}

    def qvc(*words, **more):
        done = subprocess.run([QVC, *words], input="operator\n", env=a.environment(**env, **more),
                              capture_output=True, text=True)
        return done.returncode, done.stdout

    refused = (1, "Services.HTTP.port=##Invalid permission#\n")
    assert qvc("login", "--keep", "operator") == (0, "")
    [file] = a.path("/tmp/run/qvc").glob("session-*")
    assert stat.S_IMODE(file.stat().st_mode) == 0o600
    assert qvc("set", "Services.HTTP.port=81") == refused
    assert qvc("-s", "0", "set", "Services.HTTP.port=81")[0] == 0
    viewer = a.login("viewer", "viewer")
    assert qvc("get_session", str(viewer), QVC_SESSION=str(viewer))[1].startswith(f"session={viewer}\nuser=viewer")
    assert qvc("get", "Network.hostname", QVC_SESSION="x") == (2, "")
    os.chmod(file, 0o644)  # somebody may have put it there
    assert qvc("set", "Services.HTTP.port=82")[0] == 0
    os.chmod(file, 0o600)
    assert qvc("set", "Services.HTTP.port=83") == refused
    # Who has a session can become somebody else, also when it is over.
    assert qvc("login", "operator") == (0, f"Session={a.login('operator', 'operator')}\n")
    a.command(f"logout {a.login('operator', 'operator')}")
    assert qvc("get", "Services.HTTP.port")[0] == 1 and qvc("login", "--keep", "operator") == (0, "")
    assert qvc("set", "Services.HTTP.port=83") == refused
    kept = file.read_text()
    file.write_text("zz\n")
    assert qvc("get", "Network.hostname") == (2, "")  # not root all of a sudden
    file.write_text(kept)
    assert qvc("logout") == (0, "") and not file.exists()
    # The daemon's scripts, which have the same home, do not use it.
    assert a.qvc("login", "--keep", "operator", "operator") == (0, "")
    assert a.qvc("set", "Services.HTTP.port=85")[0] == 1
    a.write("/usr/share/qvcontrol/post_revert_script", "#!/bin/sh\nqvc set Services.HTTP.port=85\n", 0o755)
    a.command("revert Services")
    assert a.get("Services.HTTP.port") == "85" and a.qvc("logout") == (0, "")
    assert qvc("logout")[0] == 2
    assert qvc("set", "Services.HTTP.port=84")[0] == 0


class Shell:
    """A person before the shell, whose terminal shows escape sequences where the line is edited."""

    def __init__(self, terminal):
        self.terminal = terminal

    def expect(self, *texts):
        for text in texts:
            self.terminal.expect(text)

    def type(self, line, *texts, prompt=None):
        """A line, what must come of it in this order, and the prompt behind it."""
        self.terminal.press(line + "\r")
        self.expect("\n", *texts, *([prompt + "> "] if prompt else []))


def test_an_afternoon_in_the_shell(a):
    env = {"HOME": str(a.path("/tmp/home")), "XDG_RUNTIME_DIR": str(a.path("/tmp/run")), "LANG": "C.UTF-8", "NO_COLOR": "1"}
    env = {**a.environment(), **env}
    env.pop("XDG_STATE_HOME", None)
    host = os.uname().nodename.split(".")[0]
    root, operator = f"root@{host}", f"operator@{host}"
    history = a.path("/tmp/home/.local/state/qvc/history")
    with Terminal([QVC, "-t", "30"], env) as terminal:
        me = Shell(terminal)
        me.expect(f"{root}> ")
        # Names are short in a level; the mark says what is not saved.
        me.type("edit Services.HTTP", prompt=f"{root} Services.HTTP")
        me.type("set port=8081; get port .Network.hostname", "Services.HTTP.port=8081", "Services.HTTP.port  8081",
                "Network.hostname    qv-encoder", prompt=f"{root} Services.HTTP*")
        me.type("get | match enable", "Services.HTTP.enable=1", prompt=f"{root} Services.HTTP*")
        me.type("set s\tena\t", "Services.HTTP.ssl=enable", prompt=f"{root} Services.HTTP*")
        me.type("..", prompt=f"{root} Services*")
        me.type("edit HTTP.port", "is a setting", prompt=f"{root} Services*")
        me.type("edit Nowhere", "no group 'Services.Nowhere'", prompt=f"{root} Services*")
        me.type("get .Services.HTTP | match s.l | except PORT", "Services.HTTP.ssl=enable\n", prompt=f"{root} Services*")
        me.type("get HTTP | match P.port | count; top", "1\n", prompt=f"{root}*")
        # Nothing of a wrong line is run.
        for wrong, why in {
            "set Services.HTTP.port=1 ; set 'A": "left open", "set Services.HTTP.port=1 ;; get A": "nothing stands",
            "set Services.HTTP.port=1 | grep x": "stand match", "set Services.HTTP.port=1 | match [": "is no pattern",
        }.items():
            me.type(wrong, why, prompt=f"{root}*")
        assert a.get("Services.HTTP.port") == "8081"
        # Passwords are typed unseen, and are nowhere later.
        me.type(f"set {SECRET}=swordfish", "=", prompt=f"{root}*")
        me.type(f"set {SECRET}=?", "New password of")
        me.type("hidden99", "Once more")
        me.type("hidden99", f"{SECRET}=*******", prompt=f"{root}*")
        me.type("swordfish", "unknown command 'swordfish'", prompt=f"{root}*")  # at the wrong prompt
        me.type("user.passwd viewer", "New password of viewer")
        me.type("hidden98", "Once more")
        me.type("hidden98", "User.viewer.passwd=*******", prompt=f"{root}*")
        me.type("login operator wrong-one", "##Invalid password#", prompt=f"{root}*")
        me.type("preset.store 2", "Preset 2 (mobile) is overwritten", "Go on?")
        me.type("n", "nothing was done", prompt=f"{root}*")
        # Somebody else for a while, who completes as well as an administrator.
        me.type("login operator", "Password of operator: ")
        me.type("operator", prompt=f"{operator}*")
        me.type("set Services.HTTP.port=82", "##Invalid permission#", prompt=f"{operator}*")
        me.type("checkm\tServices.HT\tpo\t", "Services.HTTP.port=8081", prompt=f"{operator}*")
        me.type("logout", prompt=f"{root}*")
        me.type("logout", "not logged in", prompt=f"{root}*")
        # Who leaves with changes of his own is asked; those of others are not his.
        a.command("set Network.hostname=theirs")
        me.type("quit", "You have changed Network.Interfaces.Wlan0.passphrase, Services.HTTP.port, Services.HTTP.ssl and not",
                "Leave all the same? [y/N] ")
        me.type("", prompt=f"{root}*")
        me.type("save Services Network.Interfaces", prompt=f"{root}*")
        me.type("quit")
        assert terminal.wait() == 0
        assert "hidden" not in terminal.screen
    lines = history.read_text().splitlines()
    assert stat.S_IMODE(history.stat().st_mode) == 0o600
    assert lines[:2] == ["edit Services.HTTP", "set port=8081; get port .Network.hostname"]
    assert "login operator" in lines and "user.passwd viewer" in lines and f"set {SECRET}=?" in lines
    assert not [line for line in lines if "swordfish" in line or "wrong-one" in line]
    # The next shell has the history, and outlives its daemon.
    with Terminal([QVC, "-t", "30"], env) as terminal:
        me = Shell(terminal)
        me.expect(f"{root}*> ")
        terminal.press("\x1b[A\x1b[A")
        me.expect("save Services Network.Interfaces")  # the line before "quit"
        me.type("", prompt=f"{root}*")
        a.stop()
        me.type("get Services.HTTP.port", "cannot reach the daemon", prompt=f"{root}?")
        a.start()
        me.type("get Services.HTTP.port", "Services.HTTP.port=8081", prompt=root)
        terminal.press("quit\r")
        assert terminal.wait() == 0
    # One that says nothing holds up nobody for long.
    with Terminal([QVC, "-t", "1"], env) as terminal:
        me = Shell(terminal)
        me.expect("> ")
        os.kill(a.process.pid, signal.SIGSTOP)
        wait_until(lambda: is_stopped(a.process.pid), "all threads to stop")
        try:
            me.type("get Services.HTTP.p\t", "no answer within the time limit", "?> ")
            terminal.press("quit\r")
            assert terminal.wait() == 124
        finally:
            os.kill(a.process.pid, signal.SIGCONT)
