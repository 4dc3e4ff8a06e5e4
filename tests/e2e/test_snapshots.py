"""Presets and profiles."""

import shutil
import threading

import pytest

from appliance import WAIT_FOR_GO, Reply, metadata, wait_until

CURRENT = "System.Configuration.Profiles.current"


@pytest.fixture
def box(appliance):
    return appliance(shipped=True).start()


def change(box, assignment):
    reply = box.command("update " + assignment)
    assert reply.code == 0, reply


def test_loading_and_applying_a_preset(box):
    assert "Preset.Current.number=1" in box.command("preset.info").lines
    assert box.command("preset.load_apply 2").code == 0
    expected = dict(line.split("=", 1) for line in box.read("/etc/presets/preset2").splitlines() if not line.startswith("Config"))
    assert {name: box.get(name) for name in expected} == expected
    assert box.read("/etc/presets/preset.conf") == "Preset.current=2"
    assert box.command("checkmod").lines == [] and box.command("preset.check").lines[0] == "Preset.Current.number=2"
    box.restart()
    assert {name: box.get(name) for name in expected} == expected
    assert "Preset.Current.number=2" in box.command("preset.check").lines
    assert box.command("preset.load 3").lines == ["##Invalid preset number#"]


# ---- A small model of its own ----

META = metadata(f"""
Enc: perm = 7774; file = /etc/enc.conf; read = quotedkv_rfunc; write = quotedkv_wfunc
Enc.rate: attr = RATE; type = integer_range 1 99; default = 10; apply = initd_restart enc
Enc.text: attr = TEXT; type = string_length 0 1023; default = plain
Enc.look: attr = LOOK; perm = 4444; default = seen
Enc.key: attr = KEY; perm = 7700; type = password 1 32; default = hush
Enc.live: dynamic = true; default = 0; read = syscall_rfunc; attr = $QV_SYSROOT/reader
Enc.last: attr = LAST; type = integer_range 1 99; default = 10
Enc.Profiles: file = /etc/group/selection.conf
Enc.Profiles.name: attr = NAME; type = blank,profile2; default =; apply = profile2_apply
Enc.Profiles.name: add = profile_addfunc Enc.rate Enc.text; remove = profile_removefunc
Enc.Profiles.desc: attr = DESC; type = blank,string_length 1 255; default =; apply = no_apply
{CURRENT}: perm = 7774; read = quotedkv_rfunc; write = quotedkv_wfunc; file = /etc/profiles.conf
{CURRENT}: attr = CURRENT; type = profile; default = default; apply = profile_apply current
State: perm = 4444; dynamic = true; read = profile_rfunc; file = /etc/profiles.conf; attr = CURRENT; default =
""")
NAME = "Enc.Profiles.name"


@pytest.fixture
def make(appliance):
    """Starts the small model with these profiles, {name: text}, and other files."""

    def run(profiles=(), **files):
        files = {f"/etc/{name}": text for name, text in files.items()}
        files |= {f"/etc/profiles/{name}.hdf": text for name, text in dict(profiles).items()}
        return appliance(META, {"/reader": ("#!/bin/sh\necho 7\n", 0o755), "/etc/group/selection.conf": "", **files}).start()

    return run


def files_of(box, *names):
    """What stands in the files below these folders."""
    return {p: p.read_bytes() for name in names for p in box.path(name).rglob("*") if p.is_file()}


def get(box, *apis):
    return [box.get(api) for api in apis]


def refused(box, command, *lines):
    """The command gives these lines at the end, and result 1."""
    reply = box.command(command)
    assert reply.code == 1 and reply.lines[len(reply.lines) - len(lines) :] == list(lines), (command, reply)


def test_a_profile_holds_what_a_load_sets(make):
    a = make()
    change(a, "Enc.text=a+b%2B")
    assert a.command("profile.save all.v1").code == 0
    text = a.read("/etc/profiles/all.v1.hdf")
    assert [word for word in ("look", "live", "current", "Profiles", "State") if word in text] == []
    assert a.path("/etc/profiles/all.v1.hdf").stat().st_mode & 0o777 == 0o600  # it holds a password
    assert "Enc.key=*******" in a.command("profile.read all.v1").lines
    assert a.command(f"profile.list {NAME}").lines == []
    change(a, f"{CURRENT}=all.v1")
    assert a.get("State") == "all.v1"
    change(a, "Enc.text=other")
    assert a.get("State") == "custom"
    shown = a.command("profile.load all.v1").lines
    assert shown == ["Enc.text=a b+", "Profile.all.v1.name=all.v1"] and a.get("State") == "all.v1"
    change(a, "Enc.key=changed")
    assert "Enc.key=*******" in a.command("profile.load all.v1").lines
    a.write("/etc/profiles/all.v1.hdf", "Enc {\n")
    assert a.get("State") == "custom"
    a.path("/etc/profiles/all.v1.hdf").unlink()
    assert a.get("State") == "all.v1"


def test_a_profile_is_of_one_moment(make):
    a = make()
    a.write("/reader", WAIT_FOR_GO, 0o755)
    done = []
    saver = threading.Thread(target=lambda: done.append(a.command("profile.save p")))
    saver.start()
    wait_until(lambda: done or a.path("/started").exists(), "the save, or the reader that it waits for")
    assert a.command("set Enc.rate=20 Enc.last=20").code == 0
    a.write("/go", "")
    saver.join()
    assert done[0].code == 0
    values = [line.split("=")[1] for line in a.command("profile.read p").lines if line.startswith(("Enc.rate", "Enc.last"))]
    assert values in (["10", "10"], ["20", "20"])


@pytest.mark.parametrize("text", ["# nothing\n", "Enc.rate = 20\nEnc {\n"])
def test_loading_reads_before_it_reverts(make, text):
    a = make({"bad": text, "good": "Enc.text = x\n"})
    assert a.command("set Enc.last=33").code == 0
    refused(a, "profile.load bad", "##Error loading profile#")
    assert get(a, "Enc.last", "Enc.rate") == ["33", "10"] and a.command("checkmod").lines == ["Enc.last=33"]
    assert a.command("profile.load good").code == 0
    assert get(a, "Enc.last", "Enc.text") == ["10", "x"]


def test_what_is_set_while_a_load_waits_goes_too(make):
    a = make({"p": "Enc.rate = 20\n"})
    a.write("/usr/share/qvcontrol/post_revert_script", WAIT_FOR_GO, 0o755)
    loader = threading.Thread(target=a.command, args=["profile.load p"])
    loader.start()
    wait_until(a.path("/started").exists, "the script that the revert runs")
    assert a.command("set Enc.last=55").code == 0
    a.write("/go", "")
    loader.join()
    assert get(a, "Enc.rate", "Enc.last") == ["20", "10"]


def test_what_is_not_stored_leaves_the_old_profile(make):
    a = make({"p": "Enc.rate = 20\n", "broken": "Enc {\n"})
    before = files_of(a, "/etc/profiles")
    refused(a, "profile.save p Enc.rate Enc.rte", "Enc.rte=##Parameter not found#")
    refused(a, "profile.save p Enc.live", "##Nothing to save#")
    refused(a, "profile.save p System.Configuration.Profiles", "##Nothing to save#")
    refused(a, "profile.save default", "##Can not use default profile#")
    refused(a, "profile.copy p default", "##Can not use default profile#")
    refused(a, "profile.copy broken p", "##Error copying profile#")
    for name in ("a\tb", "a\x7fb"):
        refused(a, f"profile.save {name}", "##Invalid arguments#")
    assert files_of(a, "/etc/profiles") == before


def test_selecting_keeps_the_running_selection(make):
    # As older versions wrote it: with the selections of the time when it was made.
    a = make({"p": f"Enc.rate = 20\n{CURRENT} = default\nEnc.look = x\nEnc.live = 1\n", "q": "Enc.rate = 30\n"})
    assert a.command(f"set {CURRENT}=p Enc.last=44").code == 0
    assert a.command(f"apply {CURRENT}") == Reply([f"{CURRENT}=p"], 0)
    assert get(a, CURRENT, "Enc.rate", "Enc.last", "Enc.look") == ["p", "20", "10", "seen"]
    assert a.command("checkmod").lines == [f"{CURRENT}=p"] and a.command("checkapp").lines == []
    assert "CURRENT" not in a.read_or_empty("/etc/profiles.conf") or 'CURRENT="default"' in a.read("/etc/profiles.conf")
    assert "Profile.current=p" in a.command("profile.list").lines
    assert a.command("save").code == 0
    assert a.command(f"set {CURRENT}=q").code == 0
    assert a.command("profile.load p").code == 0  # neither changes nor drops what is selected
    assert a.get(CURRENT) == "q" and f"{CURRENT}=q" in a.command("checkapp").lines
    a.restart()
    assert get(a, CURRENT, "Enc.rate") == ["p", "20"]
    a.write("/etc/profiles/q.hdf", "Enc {\n")
    assert a.command(f"set {CURRENT}=q Enc.last=44").code == 0
    assert f"{CURRENT}=##Apply failed#" in a.command(f"apply {CURRENT}").lines
    assert get(a, "Enc.rate", "Enc.last") == ["20", "44"]


def test_an_applied_group_profile_is_settled(make):
    a = make()
    for text, rate in (("One", 20), ("Two", 30)):
        change(a, f"Enc.rate={rate}")
        assert a.command(f"add {NAME}={text}") == Reply([], 0)
    assert a.command("profile.copy Two Three").code == 0
    assert a.command(f"set {NAME}=One").code == 0
    assert a.command(f"apply {NAME}").code == 0
    assert get(a, NAME, "Enc.Profiles.desc", "Enc.rate") == ["One", "One", "20"]
    assert a.command("checkapp").lines == [] and f"{NAME}=One" in a.command("checkmod").lines
    assert a.command("set Enc.last=55").code == 0
    assert a.command("apply") == Reply([], 0) and a.get("Enc.last") == "55"
    change(a, f"{NAME}=Three")  # whose file says that it is Two
    assert get(a, NAME, "Enc.rate", "Enc.last") == ["Three", "30", "10"]
    assert a.command(f"apply {NAME}") == Reply([], 0)
    # A load by hand selects, and nothing waits to load it again.
    assert a.command("profile.load One").code == 0
    assert a.get(NAME) == "One" and NAME not in " ".join(a.command("checkapp").lines)
    change(a, f"{NAME}=")
    assert get(a, NAME, "Enc.Profiles.desc") == ["", ""]


def test_an_addition_that_fails_changes_nothing(make):
    a = make({"whole": "Enc.rate = 20\n"})
    assert a.command(f"add {NAME}=One").code == 0
    change(a, "Enc.rate=30")

    def everything():
        return files_of(a, "/etc/profiles"), get(a, NAME, "Enc.Profiles.desc"), a.command("profile.list").lines

    before = everything()
    impossible = ["whole", "default", "x%09y", "%23", "y" * 251, "y" * 256]
    shutil.move(a.path("/etc/group"), a.path("/etc/elsewhere"))
    a.write("/etc/group", "where the selection's folder was")
    for change_of_list in (*(f"add {NAME}={name}" for name in ["One", "Another", *impossible]), f"remove {NAME}=One"):
        assert a.command(change_of_list).code == 1, change_of_list
    a.command(f"remove {NAME}=whole")
    assert everything() == before
    a.path("/etc/group").unlink()
    shutil.move(a.path("/etc/elsewhere"), a.path("/etc/group"))
    assert [a.command(f"add {NAME}={name}").code for name in impossible] == [1] * len(impossible)
    assert everything() == before
    assert a.command(f"add {NAME}=Another").code == 0
    assert a.command(f"remove {NAME}=Another") == Reply(["Profile.Another.name=Another"], 0)
    a.restart()
    assert get(a, NAME, "Enc.Profiles.desc") == ["", ""]


def test_the_list_says_what_the_files_say(make):
    a = make({name: "Enc.rate = 20\n" for name in ("v1", "v1.2", "current")})

    def listed(names):
        return ["Profile.current=default", *(f"Profile.{name}.name={name}" for name in ["default", *names])]

    assert a.command("profile.list").lines == listed(["v1.2", "v1", "current"])
    assert a.command("profile.remove v1").code == 0
    assert a.command("profile.list").lines == listed(["v1.2", "current"])
    offered = [line.split("=")[1] for line in a.command(f"introspect {CURRENT}").lines if line.split("=")[0][-1].isdigit()]
    assert offered == ["default", "v1.2", "current"]

    def group():
        return [line.split("=")[1] for line in a.command(f"profile.list {NAME}").lines]

    assert a.command(f"add {NAME}=One").code == 0
    assert a.command("profile.copy One Two").code == 0
    assert group() == ["One", "Two"] and f"Profile.Two.group={NAME}" in a.command("profile.list").lines
    assert a.command("profile.save Two Enc.rate").code == 0
    a.write("/etc/profiles/One.hdf", "Enc.rate = 20\n")
    assert a.command("profile.load One").code == 0
    assert group() == []
    before = a.command("profile.list").lines
    a.restart()
    assert a.command("profile.list").lines == before


# ---- Presets ----

PRESET = "Config.name=one\nConfig.desc=First\nEnc.rate=10\nEnc.text=plain\n"


@pytest.fixture
def presets(make):
    def run(template="Enc.rate\nEnc.text\n", **files):
        presets = {"presets/template": template, "presets/preset.conf": "Preset.current=1", **files}
        return make(**{"presets/preset1": PRESET, "presets/preset2": PRESET, **presets})

    return run


def test_values_with_blanks_at_their_ends(presets):
    a = presets()
    values = ["x ", " x", " ", "x EOM ", " x=1 << EOM", "plain"]
    for n, value in enumerate(values, 3):
        assert a.command("set Enc.text=plain Enc.text=" + value.replace(" ", "%20").replace("=", "%3D")).code == 0
        assert "##Can not save preset#" not in a.command(f"preset.store {n}").lines, value
    assert a.read(f"/etc/presets/preset{2 + len(values)}") == "Enc.rate=10\nEnc.text=plain\n"
    a.restart()
    for n, value in enumerate(values, 3):
        assert f"Preset.{n}.Enc.text={value}" in a.command("preset.export").lines
        a.command("set Enc.text=zzz")
        assert a.command(f"preset.load {n}").lines == [f"Enc.text={value}"]
    before = a.command("preset.export").lines
    a.command("preset.export /tmp/out")
    for n in range(3, 9):
        a.command(f"preset.store {n}")
    a.write("/tmp/out", a.read("/tmp/out") + "Preset.1.Enc.none=1\n")
    assert a.command("preset.import /tmp/out").lines == ["Enc.none=##Parameter not found#"]
    assert a.command("preset.export").lines == before


def test_presets_with_passwords(presets):
    a = presets("Enc.rate\nEnc.key\n")
    for command in ("preset.store 1", "preset.get 1", "preset.current", "preset.set 1", "preset.save 1", "preset.read 1"):
        assert "hush" not in str(a.command(command)), command
    a.command("preset.export /tmp/out")
    assert "KEY" not in a.read("/etc/presets/preset1") and "Enc.key=hush" in a.read("/etc/presets/preset1")
    for name in ("/etc/presets/preset1", "/tmp/out"):
        assert a.path(name).stat().st_mode & 0o777 == 0o600, name
    assert a.command("set Enc.key=other").code == 0
    assert a.command("preset.load 1").lines == ["Enc.key=*******"]


def test_a_preset_that_is_not_saved_leaves_everything_as_it_was(presets):
    a = presets()
    a.command("preset.export /tmp/good")
    a.write("/tmp/import", "Preset.current=2\nPreset.1.Enc.rate=77\nPreset.2.Enc.rate=77\n")
    a.write("/tmp/tab", "Preset.current=2\nPreset.1.Enc.text=a\tb\n")
    a.write("/tmp/other", "Enc.rate=77\n")
    for name in ("/etc/presets/preset2", "/etc/presets/preset.conf"):
        shutil.move(a.path(name), a.path("/aside"))
        a.path(name).mkdir()
        before = files_of(a, "/etc/presets"), a.command("preset.export").lines
        change(a, "Enc.rate=44")
        failing = ["preset.import /tmp/import"]
        failing += ["preset.store 2"] if name.endswith("2") else ["preset.load 2", "preset.load_apply 2"]
        for command in failing:
            assert a.command(command).lines == ["##Can not save preset#"], command
        for command in ("preset.import /tmp/tab", "preset.import /tmp/other"):
            assert a.command(command).lines == ["##Import failed#"], command
        assert (files_of(a, "/etc/presets"), a.command("preset.export").lines) == before
        assert a.get("Enc.rate") == "44"
        a.path(name).rmdir()
        shutil.move(a.path("/aside"), a.path(name))
    assert a.command("preset.import /tmp/import").lines == []
    assert a.read("/etc/presets/preset.conf") == "Preset.current=2" and "Enc.rate=77" in a.read("/etc/presets/preset1")
