"""What is done to the daemon while its disk fails: one row a scenario, on one small appliance."""

import dataclasses
import os

from disk import File, Link, Spare

JOURNAL = "/var/lib/qv/save.journal"  # empty it says nothing
UNDO = "/var/lib/qv/commit.undo"
HISTORY = "/var/lib/qv/history.db"
ASIDE = HISTORY + ".damaged"
# SQLite changes this one in mapped memory, never flushes it, and makes it anew.
SHARED = [name + "-shm" for name in (HISTORY, ASIDE)]
# What the daemon keeps for the time it runs is not on the disk, and its model is not its to write.
RUNNING = Spare("/var/run/")
SPARE = Spare("/var/run/", "/tmp/", "/usr/share/qvapi/", *SHARED)
TEMPORARY = "/.qvcd-new"  # begins the name of a new text beside its file

MODEL = """
A {
    perm = 7777
    read = kv_rfunc
    write = kv_wfunc
    file = /etc/a.conf
    shadow = /etc/shadow.d/a.conf
    first {
        attr = first
        type = integer
        default = 0
    }
    second {
        attr = second
        type = integer
        default = 0
    }
}
B {
    perm = 7777
    read = quotedkv_rfunc
    write = quotedkv_wfunc
    file = /etc/b.conf
    only {
        attr = only
        type = string
        default = zero
    }
}
Linked {
    perm = 7777
    read = kv_rfunc
    write = kv_wfunc
    file = /etc/linked.conf
    only {
        attr = only
        default = 0
    }
}
Secret {
    perm = 7777
    read = kv_rfunc
    write = kv_wfunc
    file = /etc/secret.conf
    shadow = /etc/shadow.d/secret.conf
    key {
        attr = key
        type = password
        default = none
    }
}
Services {
    perm = 7777
    NTP {
        read = ntp_rfunc
        write = ntp_wfunc
        file = /etc/ntp.conf
        server {
            attr = server
            default = pool.ntp.org
        }
    }
}
Live {
    perm = 7777
    dynamic = true
    read = kv_rfunc
    write = kv_wfunc
    file = /etc/live.conf
    level {
        attr = level
        default = 0
    }
}
Net {
    perm = 7777
    read = kv_rfunc
    write = kv_wfunc
    address {
        file = /etc/net.conf
        shadow = /etc/shadow.d/net.conf
        attr = address
        default = one
        apply = syscall $QV_SYSROOT/home/take net.conf
    }
    alias {
        file = /etc/alias.conf
        attr = alias
        apply = syscall $QV_SYSROOT/home/take alias.conf
    }
}
Web {
    perm = 7777
    Wizard {
        read = kv_rfunc
        write = kv_wfunc
        file = /etc/web.conf
        firstrun {
            attr = firstrun
            type = boolean
            default = 0
        }
    }
}
Cam {
    perm = 7777
    Configuration {
        read = kv_rfunc
        write = kv_wfunc
        file = /etc/cam.conf
        rate {
            attr = rate
            type = integer
            default = 1
        }
        mode {
            attr = mode
            default = day
        }
    }
    Profiles {
        read = quotedkv_rfunc
        write = quotedkv_wfunc
        file = /etc/cam_profiles.conf
        name {
            attr = NAME
            type = blank,profile2
            default =
            apply = profile2_apply
            add = profile_addfunc Cam.Configuration
            remove = profile_removefunc
        }
        desc {
            attr = DESC
            default =
            apply = no_apply
        }
    }
}
System {
    perm = 7777
    Configuration {
        Profiles {
            read = quotedkv_rfunc
            write = quotedkv_wfunc
            file = /etc/profiles.conf
            current {
                attr = CURRENT
                type = profile
                default = default
                apply = profile_apply current
            }
        }
    }
}
"""

USERS = """Group {
  1 {
    perm = 777
  }
  2 {
    perm = 77
  }
}
User {
  admin {
    group = 1
    passwd = kelpo
    default = kelpo
  }
  op {
    group = 2
    passwd = oper
    default = oper
  }
}
"""
MORE_USERS = USERS.replace("passwd = oper", "passwd = other") + "User {\n  carl {\n    group = 2\n    passwd = c\n  }\n}\n"

# More than one block of a reader, so that a torn read leaves a stump.
FILLER = "".join(f"# line {i} of somebody else's settings\n" for i in range(500))
PRESET = "Config.name={}\nConfig.desc=stored\nB.only={}\nCam.Configuration.rate={}\n"
PROFILE = "A {{\n  first = {0}\n}}\nB {{\n  only = p{0}\n}}\n"
CAM_PROFILE = "Cam {{\n  Configuration {{\n    mode = {1}\n    rate = {0}\n  }}\n  Profiles {{\n    name = {1}\n    desc = {1}\n  }}\n}}\n"
# The action of a service: takes what the file has, and fails when that is bad.
TAKE = """#!/bin/sh
cp "$QV_SYSROOT/etc/$1" "$QV_SYSROOT/var/run/applied/" || : >"$QV_SYSROOT/var/run/applied/$1"
case $(cat "$QV_SYSROOT/var/run/applied/$1") in *bad*) exit 3 ;; esac
"""
# A service's own file: only root can make it somebody else's.
SERVICE = (1234, 1234) if os.geteuid() == 0 else (os.geteuid(), os.getegid())


def text(content, mode=0o644, **more):
    return File(content.encode(), mode, **more)


BASE = {
    "/etc/a.conf": text(f"first=0\n{FILLER}second=0\n"),
    "/etc/shadow.d/a.conf": text(f"first=0\n{FILLER}second=0\n"),
    "/etc/b.conf": text(f'{FILLER}only="zero"\n', 0o640, owner=SERVICE),
    "/etc/linked.conf": Link("../data/linked.conf"),
    "/data/linked.conf": text("# elsewhere\nonly=0\n"),
    "/etc/secret.conf": text("key=none\n", 0o600),
    "/etc/shadow.d/secret.conf": text("key=none\n", 0o600),
    "/etc/ntp.conf": text("server pool.ntp.org\ndriftfile /var/drift\n"),
    "/etc/live.conf": text("level = 0\n"),
    "/etc/net.conf": text("address=one\n"),
    "/etc/shadow.d/net.conf": text("address=one\n"),
    "/home/take": text(TAKE, 0o755),
    "/etc/web.conf": text("firstrun=0\n"),
    "/etc/cam.conf": text("rate=1\nmode=day\n"),
    "/etc/cam_profiles.conf": text('NAME=""\nDESC=""\n'),
    "/etc/profiles.conf": text('CURRENT="default"\n'),
    "/etc/user.conf": text(USERS, 0o600),
    "/etc/profiles/v0.hdf": text(PROFILE.format(5), 0o600),
    "/etc/profiles/g0.hdf": text(CAM_PROFILE.format(7, "g0"), 0o600),
    "/etc/presets/preset.conf": text("Preset.current=2"),
    "/etc/presets/preset1": text(PRESET.format("one", "zero", 1)),
    "/etc/presets/preset2": text(PRESET.format("two", "two", 2)),
    "/etc/presets/template": text("B.only\nCam.Configuration.rate\n"),
    "/home/in.hdf": text("A {\n  first = 3\n}\nB {\n  only = imported\n}\n"),
    "/home/users.hdf": text(MORE_USERS),
    "/home/presets.hdf": text(
        "Preset {\n  1 {\n    B {\n      only = new\n    }\n  }\n  2 {\n    Config {\n      name = renamed\n    }\n  }\n}\n"
    ),
}

# In place of a command: waits until a commit is undone.
UNDONE = "(undone)"
# Opens the history, so that it is mended where that can be.
HISTORY_QUESTION = "history -n 1"

# Answered from the files after a start, and by a daemon that undid what it refused.
SETTINGS = ["get"]
LIVE_ANSWERS = [*SETTINGS, "checkmod"]
LOGINS = [f"login {name} {word}" for name in ("admin", "op", "carl", "bob") for word in ("kelpo", "oper", "new", "other", "c")]
USER_ANSWERS = ["user.list", *LOGINS]
PROFILE_ANSWERS = ["profile.list", "profile.list Cam.Profiles.name"]
PRESET_ANSWERS = ["preset.get"]
ANSWERS = [*SETTINGS, "get Live", "checkmod", *USER_ANSWERS, *PROFILE_ANSWERS, *PRESET_ANSWERS]


@dataclasses.dataclass(eq=False)
class Scenario:
    name: str
    # Sent one after the other, until one is refused. None of a start: its calls are those of the start itself.
    commands: list
    # Sent before, on a good disk.
    before: list = ()
    # What differs from BASE; None removes a file.
    files: dict = dataclasses.field(default_factory=dict)
    # How one asks for the same again when the cause is gone; else the commands.
    again: list = None
    # What a daemon that refused must answer as it does after a restart.
    agrees: list = ()
    # After a crash all files are old or all new; False: of a command that is several changes, each file is.
    whole: bool = True
    # Of a start that writes defaults: each line of a file is an old or a new one, and no good one is lost.
    by_line: bool = False
    # False: beside a file that a client named nobody looks again after a crash.
    tidy: bool = True
    # Of a commit, with its history and after errors too.
    atomic: bool = False
    # The last command is refused on a good disk too.
    fails: bool = False
    # Of a start: commands of a daemon that was killed behind them, and what was on the disk otherwise then.
    killed_after: list = ()
    then: dict = dataclasses.field(default_factory=dict)
    # What there is of it (box.py), and which calls are looked at: those on other "files", those on the "history", "all".
    history: str = "ready"
    points: str = "files"
    # False: what it does others do too, so that --all looks at each kind of call on a file once.
    thorough: bool = True

    def tree(self):
        tree = {**BASE, **self.files}
        return {path: entry for path, entry in tree.items() if entry is not None}

    @property
    def is_start(self):
        return not self.commands


SELECTED = {"/etc/profiles.conf": text('CURRENT="v0"\n')}
IN_GROUP = {"/etc/cam_profiles.conf": text('NAME="g0"\nDESC="g0"\n')}
OF_V0 = {
    "/etc/a.conf": text(f"first=5\n{FILLER}second=0\n"),
    "/etc/shadow.d/a.conf": text(f"first=5\n{FILLER}second=0\n"),
    "/etc/b.conf": text(f'{FILLER}only="p5"\n', 0o640, owner=SERVICE),
}
SET_ALL = ["sets A.first=1 A.second=1 B.only=one Linked.only=1 Secret.key=k1 Services.NTP.server=ntp.example.com Web.Wizard.firstrun=1"]

# Several files with shadows, one behind a link, a secret, a new one; two actions.
PLAIN = "A.first=1 Net.address=two Net.alias=x Linked.only=1"
VALUES = PLAIN + " Secret.key=k1"


def commit(name, commands, before=(), **more):
    settles = {"confirm", "abort", UNDONE}.intersection(commands)  # where that fails a start undoes it
    return Scenario(name, commands, before, atomic=True, points="all", agrees=() if settles else LIVE_ANSWERS, **more)


OLD_COMMANDS = [
    ("save", ["save"], SET_ALL, {}),
    ("update", ["update A.first=1"], (), {"again": ["save"]}),
    ("import", ["import /home/in.hdf", "save"], (), {}),
    ("user.add", ["user.add bob 2"], (), {"agrees": USER_ANSWERS}),
    ("profile.load", ["profile.load v0", "save"], (), {}),
    ("preset.load", ["preset.load_apply 1"], (), {"whole": False}),
]

SCENARIOS = [
    # ---- Settings ----
    Scenario("save of one file", ["save B"], ["sets B.only=one"]),
    Scenario("save with a shadow", ["save A"], ["sets A.first=1 A.second=1"]),
    Scenario("save of seven files", ["save"], SET_ALL),
    Scenario("save of new files", ["save A Linked"], ["sets A.first=1 Linked.only=1"],
             {"/etc/a.conf": None, "/etc/shadow.d/a.conf": None, "/etc/linked.conf": None, "/data/linked.conf": None}),
    # What a failed save left must not come back over what is saved after it.
    Scenario("save of two files, then of one", ["save Linked B", "update B.only=two"], ["sets B.only=one Linked.only=1"],
             again=["update B.only=two", "save"]),
    Scenario("update", ["update A.first=1 Cam.Configuration.rate=2"], again=["save"]),
    Scenario("set of a live value", ["set Live.level=1"], agrees=["get Live"]),
    Scenario("import and save", ["import /home/in.hdf", "save"]),
    Scenario("export", ["export /home/out.hdf 3"], tidy=False),
    Scenario("export over a file", ["export /home/in.hdf 3"], tidy=False),
    Scenario("firstrun", ["menu.firstrun 1"]),
    Scenario("factory reset", ["factory_reset", "save"], files={
        **OF_V0, "/etc/cam.conf": text("rate=2\nmode=night\n"),
        "/etc/user.conf": text(USERS.replace("passwd = oper", "passwd = other"), 0o600)}),
    # ---- Users ----
    Scenario("user.add", ["user.add bob 2"], agrees=USER_ANSWERS),
    Scenario("user.add without a file", ["user.add bob 1"], agrees=USER_ANSWERS, files={"/etc/user.conf": None}),
    Scenario("user.passwd", ["user.passwd op new"], agrees=USER_ANSWERS),
    Scenario("user.rem", ["user.rem op"], agrees=USER_ANSWERS),
    Scenario("user.import", ["user.import /home/users.hdf"], agrees=USER_ANSWERS),
    # ---- Profiles ----
    Scenario("profile.save", ["profile.save v1 A B"], agrees=PROFILE_ANSWERS),
    Scenario("profile.save over one", ["profile.save v0 A B"], agrees=PROFILE_ANSWERS),
    Scenario("profile.copy", ["profile.copy v0 v2"], agrees=PROFILE_ANSWERS),
    Scenario("profile.load and save", ["profile.load v0", "save"]),
    Scenario("switch of the profile", ["update System.Configuration.Profiles.current=v0"], again=[
        "save", "apply", "update System.Configuration.Profiles.current=v0"]),
    Scenario("profile.remove", ["profile.remove v0"], agrees=PROFILE_ANSWERS),
    Scenario("profile.remove of the selected", ["profile.remove v0"], files={**SELECTED, **OF_V0}, whole=False),
    Scenario("profile.reset", ["profile.reset"], agrees=PROFILE_ANSWERS, whole=False),
    Scenario("add of a group profile", ["add Cam.Profiles.name=My+Cam"], agrees=PROFILE_ANSWERS, whole=False),
    Scenario("add over a group profile", ["add Cam.Profiles.name=g0"], ["sets Cam.Configuration.rate=9", "save"],
             agrees=PROFILE_ANSWERS, whole=False),
    # An action that failed counts as run: asking again means to select again.
    Scenario("switch of a group profile", ["set Cam.Profiles.name=g0", "save", "apply", "save"], again=[
        "set Cam.Profiles.name=", "set Cam.Profiles.name=g0", "save", "apply", "save"]),
    Scenario("remove of a group profile", ["remove Cam.Profiles.name=g0"], agrees=PROFILE_ANSWERS, files=IN_GROUP,
             whole=False),
    # ---- Presets ----
    Scenario("preset.store", ["preset.store 2"], agrees=PRESET_ANSWERS),
    Scenario("preset.store of a new one", ["preset.store 3"], agrees=PRESET_ANSWERS),
    Scenario("preset.import", ["preset.import /home/presets.hdf"], agrees=PRESET_ANSWERS, whole=False),
    Scenario("preset.load_apply", ["preset.load_apply 1"], whole=False),
    # ---- Starts ----
    Scenario("start", []),
    Scenario("start with missing settings", [], by_line=True, files={
        "/etc/a.conf": text(f"second=4\n{FILLER}"), "/etc/shadow.d/a.conf": text(f"second=4\n{FILLER}"),
        "/etc/b.conf": text("only=\"\x7f\"\n"), "/etc/cam.conf": text("rate=fast\nmode=night\n"),
        "/etc/web.conf": None}),
    Scenario("start with a profile", [], files=SELECTED),
    # ---- The history beside other commands ----
    *[Scenario(f"{name}, {history} history", commands, before, history=history, points="history", thorough=name == "save",
               **more)
      for name, commands, before, more in OLD_COMMANDS for history in ("ready", "damaged")],
    *[Scenario(f"save, {history} history", ["save"], SET_ALL, history=history, points="history", thorough=False)
      for history in ("none", "full")],
    # ---- Commits ----
    commit("commit", [f"commit {VALUES}"]),
    commit("commit, no history", [f"commit {VALUES}"], history="none", thorough=False),
    commit("commit, damaged history", [f"commit {VALUES}"], history="damaged", thorough=False),
    commit("commit that fails", [f"commit {VALUES} B.only=bad Net.address=bad"], fails=True),
    commit("commit to be confirmed", [f"commit -c 600 {VALUES}"], thorough=False),
    commit("confirm", ["confirm"], [f"commit -c 600 {VALUES}"]),
    commit("abort", ["abort"], [f"commit -c 600 {VALUES}"]),
    # Not confirmed in time. Who does not want to wait until it is tried again asks for it.
    commit("expiry", ["confirm -c 1", UNDONE], [f"commit -c 600 {VALUES}"], again=["abort"], thorough=False),
    commit("rollback", ["rollback 4"], [f"commit {PLAIN}", "commit A.first=2 Net.address=three"], thorough=False),
    commit("rollback to be confirmed", ["rollback -c 600 3", "confirm"],
           [f"commit {PLAIN}", "commit A.first=2 Net.address=three"], thorough=False),
    commit("start that undoes", [], killed_after=[f"commit -c 600 {VALUES}"], again=["abort"]),
    # Of which the commit's entry was not written yet.
    commit("start that undoes a half", [], killed_after=[f"commit -c 600 {VALUES}"], again=["abort"], thorough=False, then={
        "/etc/a.conf": BASE["/etc/a.conf"], "/etc/alias.conf": None, HISTORY: None, HISTORY + "-wal": None}),
]
