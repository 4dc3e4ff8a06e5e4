"""Presets and profiles on the shipped model."""

import random

import pytest

from appliance import Reply

ENCODER = "VideoEncoder.Configuration.bitrate"
CURRENT = "System.Configuration.Profiles.current"


@pytest.fixture
def box(appliance):
    return appliance(shipped=True).start()


def change(box, assignment):
    reply = box.command("update " + assignment)
    assert reply.code == 0, reply


def test_switching_profiles(box):
    change(box, f"{ENCODER}=5000000")
    assert "Profile.fast.name=fast" in box.command("profile.save fast VideoEncoder.Configuration").lines
    change(box, f"{ENCODER}=1000000")
    assert "Profile.slow.name=slow" in box.command("profile.save slow VideoEncoder.Configuration").lines
    change(box, f"{CURRENT}=fast")
    assert box.get(ENCODER) == "5000000"
    assert box.command(f"checkmod {ENCODER}").lines == []  # the load saved it
    assert f"{CURRENT}=fast" in box.command(f"get {CURRENT}").lines
    change(box, f"{CURRENT}=slow")
    assert box.get(ENCODER) == "1000000"
    box.restart()
    assert (box.get(CURRENT), box.get(ENCODER)) == ("slow", "1000000")
    assert "Profile.current=slow" in box.command("profile.list").lines
    reply = box.command("profile.remove slow")
    assert reply == Reply([*reply.lines[:-1], "Profile.default.name=default"], 0)
    assert box.get(CURRENT) == "default"
    assert not box.path("/etc/profiles/slow.hdf").exists() and box.path("/etc/profiles/fast.hdf").exists()


def test_a_killed_daemon_keeps_the_profile(box):
    change(box, f"{ENCODER}=5000000")
    box.command("profile.save fast VideoEncoder.Configuration")
    box.kill()
    box.start()
    assert box.get(ENCODER) == "5000000"
    assert "Profile.fast.name=fast" in box.command("profile.list").lines


def test_members_of_a_profile_group(box):
    assert box.command("add VideoEncoder.Profiles.name=My+Cam+%231%21").code == 0
    assert (box.get("VideoEncoder.Profiles.name"), box.get("VideoEncoder.Profiles.desc")) == ("My_Cam_1", "My Cam #1!")
    listed = box.command("profile.list VideoEncoder.Profiles.name").lines
    assert listed == ["Profile.My_Cam_1.name=My_Cam_1"]
    described = box.command("introspect VideoEncoder.Profiles.name").lines
    # The text stands in the profile as an export writes it, URL-encoded.
    assert "VideoEncoder.Profiles.name.0=My_Cam_1,My+Cam+%231!" in described, described
    assert box.command("set VideoEncoder.Profiles.name=unknown").code == 1
    assert box.command("remove VideoEncoder.Profiles.name=My_Cam_1").code == 0
    assert box.get("VideoEncoder.Profiles.name") == ""
    assert not box.path("/etc/profiles/My_Cam_1.hdf").exists()


@pytest.mark.parametrize("name", ["../evil", "a/b", ".hidden", "x" * 251])
def test_names_that_would_leave_the_folder(box, name):
    before = sorted(p for p in box.root.rglob("*") if p.name not in ("log", "stderr"))
    for command in (f"profile.save {name}", f"profile.copy default {name}"):
        reply = box.command(command)
        assert reply == Reply(["##Invalid arguments#"], 1), command
    assert sorted(p for p in box.root.rglob("*") if p.name not in ("log", "stderr")) == before


def test_customised_settings_are_told(box):
    box.command("profile.save mine VideoEncoder.Configuration")
    change(box, f"{CURRENT}=mine")
    assert box.get("System.Info.Profile.current") == "mine"
    assert box.command(f"set {ENCODER}=1234000").code == 0
    assert box.get("System.Info.Profile.current") == "custom"


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


def test_storing_a_preset_whole(box):
    change(box, f"{ENCODER}=3210000")
    assert box.command("preset.store 2").code == 0
    assert f"{ENCODER}=3210000" in box.read("/etc/presets/preset2").replace(" = ", "=")
    box.restart()
    assert f"Preset.2.{ENCODER}=3210000" in box.command("preset.get 2").lines


def test_kills_leave_whole_files(box):
    """Each file holds one of the two states that are stored in turn, or the import's, which is the first."""
    files = ("/etc/profiles/fast.hdf", "/etc/presets/preset2")
    store = ["profile.save fast VideoEncoder.Configuration", "preset.set 2", "preset.save 2"]
    states = []
    turns = []
    for rate in (5000000, 1000000):
        turn = [f"set {ENCODER}={rate}", *store]
        box.talk(turn)
        states.append({name: box.read(name) for name in files})
        if not turns:
            box.talk("preset.export /tmp/presets.hdf")
        turns += [*turn, "preset.import /tmp/presets.hdf"]
    assert states[0] != states[1]
    lines = "".join(f"{line}\n" for line in ["kill 0 0", *turns * 200])
    draw = random.Random(6)
    for _ in range(20):
        connection = box.connect(greeting=lines)
        connection.read_lines(draw.randrange(20, 200))
        box.kill()
        for name in files:
            assert box.read(name) in [state[name] for state in states], name
        box.start(level=1)
        assert "Error loading" not in box.log()
        assert "Profile.fast.name=fast" in box.command("profile.list").lines
