"""qvc in scripts: many commands, where they stop, what the status says, names and values as awkward as they come."""

import subprocess

import pytest

from appliance import QVC, metadata

META = metadata("""
A: perm = 7777; read = kv_rfunc; write = kv_wfunc; file = /etc/a.conf
A.port: attr = port; type = integer_range 1 99; default = 1
A.name: attr = name; type = string_length 0 99; default = x
""")
FILES = {
    "/etc/a.conf": "port=1\nname=x\n",
    "/etc/presets/template": "A.name\n",
    "/etc/presets/preset.conf": "Preset.current=1\n",
    "/etc/presets/preset1": "A.name=day\nConfig.name=Day\nConfig.desc=d\n",
    "/etc/presets/preset2": "A.name=evening\nConfig.name=Evening show, 50%\nConfig.desc=d\n",
    "/etc/profiles/Evening show.hdf": "A {\n  name = night\n}\n",
}


@pytest.fixture
def a(appliance):
    return appliance(META, FILES).start()


def run(a, *words, stdin="", **env):
    """The exit status, standard output and standard error."""
    done = subprocess.run([QVC, *words], input=stdin, env=a.environment(**env), capture_output=True, text=True, timeout=30)
    return done.returncode, done.stdout, done.stderr


SCRIPT = """# comment
set A.port=5 "A.name=a  'b', c"

get A
set A.port=100
save A
"""


@pytest.mark.parametrize("keep_going", [False, True])
@pytest.mark.parametrize("from_file", [False, True])
def test_a_script_ends_at_its_first_error(a, from_file, keep_going):
    a.write("/script", SCRIPT)
    name = str(a.path("/script")) if from_file else "standard input"
    options = [*(["-f", name] if from_file else []), *(["-k"] if keep_going else [])]
    status, out, err = run(a, *options, stdin="" if from_file else SCRIPT)
    end = "" if keep_going else "; what follows is not run"
    assert (status, err.splitlines()[-1]) == (1, f"qvc: {name}:5: set failed{end}")
    assert out.startswith("A.port=5\nA.name=a  'b', c\n" * 2 + "A.port=##Invalid")
    assert ("port=5" in a.read("/etc/a.conf")) == keep_going


@pytest.mark.parametrize("lines, status, last", [
    ("get A.port\nquit\nget No", 0, "A.port=1"),
    ("user.passwd nobody x\nget A.port", 1, "User.nobody.passwd=##user nobody does not exist#"),
    ("set 'A.name=##half#'\nget A.name", 0, "A.name=##half#"),
    ("get 'A.port\nget A.port", 2, ""),
    ("watch\nget A.port", 2, ""),
    ("login admin\nadmin", 2, ""),  # the next line is no password
    ("get A.port\0 No", 2, ""),
    ("", 0, ""),
])
def test_what_counts_as_an_error(a, lines, status, last):
    result, out, err = run(a, stdin=lines)
    assert (result, out.splitlines()[-1:]) == (status, [last] if last else [])
    assert bool(err) == bool(status)


def test_without_a_daemon_nothing_goes_on(a):
    a.write("/script", "get A.port\nget A.name\n")
    a.stop()
    status, out, err = run(a, "-k", "-f", a.path("/script"))
    assert (status, out, err.count("\n"), "script:1: cannot reach" in err) == (124, "", 1, True)
    assert run(a, "-f", a.path("/none"))[0] == 2


def test_values_may_look_like_the_end_of_a_reply(a):
    assert run(a, "set", "A.name=\\@")[:2] == (0, "A.name=@\n")
    assert run(a, "getv", "A.name", "A.port", "A.name") == (0, "@\n1\n@\n", "")


def test_names_with_blanks_arrive(a):
    assert run(a, "preset.load_name", "Evening show, 50%") == (0, "A.name=evening\n", "")
    assert run(a, "profile.load", "Evening show")[:2] == (0, "A.name=x\nA.name=night\nProfile.Evening show.name=Evening show\n")
    assert a.get("A.name") == "night"
    assert run(a, "profile.copy", "Evening show", "late")[0] == 0
    assert run(a, "profile", "remove", "Evening show")[0] == 0
    assert "late" in run(a, "profile.list")[1] and "Evening" not in run(a, "profile.list")[1]
    assert run(a, "profile.save", "a b", "A")[0] == 2
    assert run(a, "commit", "-m", "", "A.port=7")[0] == 0


def test_the_session_may_stand_in_the_environment(a):
    a.command("user.passwd admin kelpo")
    session = run(a, "login", "admin", "kelpo")[1].strip().removeprefix("Session=")
    shown = run(a, "get_session", session, QVC_SESSION=session)
    assert shown[0] == 0 and "user=admin" in shown[1]
    assert run(a, "get", "A.port", QVC_SESSION="77777")[0] == 1
    assert run(a, "-s", "0", "get", "A.port", QVC_SESSION="77777") == (0, "A.port=1\n", "")
    assert run(a, "get", "A.port", QVC_SESSION="x")[0] == 2
