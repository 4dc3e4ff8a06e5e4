"""`qvc fleet` over thirty real appliances at a real broker."""

import concurrent.futures
import contextlib
import json
import os
import pathlib
import subprocess
import time

import pytest

from appliance import PATIENCE, QVC, Appliance, metadata, user_file, wait_until
from broker import PASSWORD, Broker

COUNT = 30
IDS = [f"enc{i:02}" for i in range(1, COUNT + 1)]
META = metadata("""
Info.label: type = string; perm = 7774; default = none; read = kv_rfunc; write = kv_wfunc; file = /etc/label; attr = label
Web.port: type = integer_range 1 99999; default = 80; perm = 7744; read = kv_rfunc; write = kv_wfunc; file = /etc/web; attr = port; apply = syscall $QV_SYSROOT/apply
Web.name: type = string; default = studio; perm = 7744; read = kv_rfunc; write = kv_wfunc; file = /etc/web; attr = name
Web.secret: type = password 1 80; default = x; perm = 7744; read = kv_rfunc; write = kv_wfunc; file = /etc/web; attr = secret
""")
MANY = 150  # more than the words of a line
META += metadata("".join(f"Many.a{i}: type = string; perm = 7744; default = none; read = kv_rfunc; write = kv_wfunc; file = /etc/many; attr = a{i}\n" for i in range(MANY)))
WORKS = "#!/bin/sh\nexit 0\n"


class Site:
    """The broker, the appliances, and the person at their console."""

    def __init__(self, folder):
        self.folder = folder
        self.stack = contextlib.ExitStack()
        # A daemon ends with the thread that started it.
        starters = self.stack.enter_context(concurrent.futures.ThreadPoolExecutor(8))
        self.broker = self.stack.enter_context(contextlib.closing(Broker(folder, IDS))).start()
        self.home = folder / "home"
        conf = self.home / ".config/qvc/fleet.conf"
        conf.parent.mkdir(parents=True)
        conf.write_text(
            f"broker=mqtts://operator@127.0.0.1:{self.broker.port}\nbroker_password={PASSWORD}operator\n"
            f"cafile={folder}/ca.pem\nuser=admin\npassword=Kennwort\n"
        )
        conf.chmod(0o600)
        self.appliances = {id: self.appliance(id) for id in IDS}
        began = time.monotonic()
        list(starters.map(lambda a: a.start(level=3), self.appliances.values()))
        assert self.fleet("list")[2] == ""
        wait_until(lambda: self.count("online=yes") == COUNT, "all appliances online")
        print(f"{COUNT} appliances are online after {time.monotonic() - began:.1f} s")

    def appliance(self, id):
        users = user_file({1: "0fff"}, {"admin": (1, "Kennwort")})
        files = {
            "/etc/user.conf": users,
            "/etc/label": f"label=Hall {int(id[3:]) % 3}\n",
            "/etc/web": "port=80\nname=studio\nsecret=hidden\n",
            "/apply": (WORKS, 0o755),
            **self.broker.notify_conf(id, facts="label=Info.label"),
        }
        return self.stack.enter_context(Appliance(META, files))

    def environment(self):
        kept = {k: v for k, v in os.environ.items() if not k.startswith(("QVC_", "XDG_"))}
        return {**kept, "HOME": str(self.home)}

    def start(self, *words):
        return subprocess.Popen([QVC, "fleet", *words], env=self.environment(), stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)  # fmt: skip

    def fleet(self, *words):
        """(exit status, output, errors)"""
        process = self.start(*words)
        try:
            output, errors = process.communicate(timeout=2 * PATIENCE)
        finally:
            process.kill()
        return process.returncode, output, errors

    def count(self, where):
        return len(self.fleet("list", "--json", "--where", where)[1].splitlines())

    def ports(self):
        """What each has, and has in its file."""
        values = {id: a.get("Web.port") for id, a in self.appliances.items()}
        for id, a in self.appliances.items():
            assert f"port={values[id]}\n" in a.read("/etc/web"), id
        return values

    def commit(self, port, *words):
        return self.fleet("commit", "--settle", "0", *words, f"Web.port={port}")


@pytest.fixture(scope="module")
def site(tmp_path_factory):
    site = Site(tmp_path_factory.mktemp("site"))
    with site.stack:
        yield site


def ended(output, state):
    return sorted(line.split(":")[0] for line in output.splitlines() if f": {state}" in line)


def test_who_is_there_and_what_they_have(site):
    code, output, _ = site.fleet("list", "--where", "label=Hall 1")
    rows = [line.split("\t") for line in output.splitlines()]
    assert code == 0 and [row[0] for row in rows] == ["ID", *IDS[0::3]]
    assert {row[1] for row in rows[1:]} == {"online"} and {row[2] for row in rows[1:]} == {"Hall 1"}
    site.appliances["enc07"].command("update Web.name=stage")
    code, output, _ = site.fleet("get", "--differ", "--where", "id=enc0*", "Web")
    assert code == 0
    assert output.splitlines() == ["NAME\t" + "\t".join(IDS[:9]), "Web.name\t" + "\t".join(["studio"] * 6 + ["stage"] + ["studio"] * 2)]
    assert site.fleet("diff", "enc01", "enc04")[:2] == (0, "")
    assert site.fleet("diff", "enc01", "enc07")[:2] == (1, "Web.name=studio -> stage\n")
    golden = site.folder / "golden.hdf"
    golden.write_text("Web {\n  name = studio\n}\n")
    assert site.fleet("diff", "--golden", golden)[:2] == (1, "enc07: Web.name=studio -> stage\n")
    golden.write_text("Web {\n  name = studio\n}\nMany {\n" + "".join(f"  a{i} = {i}%25, x\n" for i in range(MANY)) + "}\n")
    code, output, _ = site.fleet("commit", "--settle", "0", "--where", "id=enc0*", "--golden", golden)
    assert code == 0 and site.fleet("diff", "--where", "id=enc0*", "--golden", golden)[:2] == (0, "")
    assert site.appliances["enc07"].get("Many.a149") == "149%, x"
    code, output, _ = site.fleet("get", "--json", "--where", "id=enc07", "Web.name", "Web.secret")
    assert json.loads(output) == {"id": "enc07", "values": {"Web.name": "studio", "Web.secret": "*******"}}
    code, output, errors = site.fleet("get", "No.such")
    assert code == 1 and errors.count("##Parameter not found#") == COUNT
    backup = site.folder / "backup"
    assert site.fleet("backup", backup)[0] == 0
    assert sorted(f.name for f in backup.iterdir()) == [f"{id}.hdf" for id in IDS]
    assert "name = studio" in (backup / "enc07.hdf").read_text()
    assert {f.stat().st_mode & 0o777 for f in backup.iterdir()} == {0o600}


def test_a_rolling_commit_that_meets_a_broken_one(site):
    site.appliances["enc15"].write("/apply", "#!/bin/sh\necho no server >&2; exit 3\n", 0o755)
    code, output, errors = site.commit(81, "--batch", "10")
    assert code == 1, errors
    assert ended(output, "done") == IDS[:10] and ended(output, "failed") == ["enc15"], output
    assert ended(output, "rolled back") == [id for id in IDS[10:20] if id != "enc15"]
    assert "10 done, 1 failed, 9 rolled back, 10 not begun" in output
    assert list(site.ports().values()) == ["81"] * 10 + ["80"] * 20
    assert site.commit(81, "--where", "id=enc15")[0] == 1  # nothing stands that would be in the way
    # It is mended: the rest, and only the rest, is done; and what somebody changed since.
    site.appliances["enc15"].write("/apply", WORKS, 0o755)
    site.appliances["enc03"].command("update Web.port=80")
    code, output, errors = site.commit(81, "--batch", "10")
    assert code == 0 and "goes on" in errors and ended(output, "done") == ["enc03", *IDS[10:]], output + errors
    assert set(site.ports().values()) == {"81"}
    code, output, errors = site.commit(82, "--max-failures", "1", "--where", "id=enc0[12]")
    assert code == 0


def test_one_that_does_not_come_back(site):
    """It is stopped by its own action, and the change undoes itself when nobody confirms."""
    a = site.appliances["enc05"]
    before = a.get("Web.port")
    a.write("/daemon", str(a.process.pid))
    a.write("/apply", '#!/bin/sh\n[ -e "$QV_SYSROOT/hung" ] || { touch "$QV_SYSROOT/hung"; sleep 0.2; kill -STOP $(cat $QV_SYSROOT/daemon); }\n', 0o755)
    process = site.start("commit", "--settle", "1", "-c", "10", "--where", "id=enc0[3-6]", "Web.port=83")
    wait_until(lambda: a.path("/hung").exists(), "the action")
    output, errors = process.communicate(timeout=2 * PATIENCE)
    os.kill(a.process.pid, 18)  # SIGCONT
    assert process.returncode == 1 and "0 done, 1 failed, 3 rolled back" in output, output + errors
    wait_until(lambda: a.get("Web.port") == before, "the end of what was not confirmed")
    a.write("/apply", WORKS, 0o755)
    assert {site.appliances[id].get("Web.port") for id in IDS[2:6]} == {before}


def test_cut_off_and_resumed(site):
    """The broker is gone in the middle; then the client itself."""
    process = site.start("commit", "--settle", "1", "--batch", "10", "Web.port=84")
    first = process.stdout.readline()
    site.broker.stop()
    site.broker.start()
    output = first + process.stdout.read()  # communicate() passes over lines that came with the first
    _, errors = process.communicate(timeout=3 * PATIENCE)
    assert process.returncode == 0, output + errors
    assert ended(output, "done") == IDS
    process = site.start("commit", "--settle", "1", "--batch", "10", "Web.port=85")
    process.stdout.readline()
    standing = '{"entry":'
    wait_until(lambda: standing in "".join(site.appliances["enc15"].talk("commit -s -j").decode()), "a second batch")
    process.kill()
    process.communicate()
    journal = max(site.home.glob(".local/state/qvc/*.journal"), key=lambda file: file.stat().st_mtime)
    with journal.open("a") as file:
        file.write('{"state":5}\n{"id":"enc11","sta')
    code, output, errors = site.commit(85, "--batch", "10", "-m", "again")
    assert code == 0 and "goes on" in errors, output + errors
    assert ended(output, "done") == IDS[10:]
    assert set(site.ports().values()) == {"85"}


def test_who_goes_is_known_to_be_gone(site):
    site.appliances["enc30"].kill()
    site.appliances["enc29"].stop()
    wait_until(lambda: site.count("online=no") == 2, "two that are gone")
    code, output, errors = site.commit(86, "--batch", "30")
    assert code == 1 and "28 done, 0 failed, 0 rolled back, 0 not begun, 2 not online" in output, output + errors


def test_what_is_refused(site):
    conf = site.home / ".config/qvc/fleet.conf"
    text = conf.read_text()
    for line, said in [
        ("broker=mqtt://operator@127.0.0.1", "sends passwords in clear"),
        ("broker=http://x", "is no broker"),
        ("broker=mqtts://127.0.0.1:0", "no port"),
        ("nonsense=1", "unknown key 'nonsense'"),
        ("password=wrong", "##Invalid password#"),
        ("broker_password=wrong", "Not authorized"),
        ("cafile=/etc/hostname", ""),
    ]:
        conf.write_text(text + line + "\n")
        code, _, errors = site.fleet("get", "--where", "id=enc01", "Web.port")
        assert code != 0 and said.lower() in errors.lower(), (line, code, errors)
    conf.write_text(text)
    conf.chmod(0o644)
    assert "others may read it" in site.fleet("list")[2]
    conf.chmod(0o600)
    for words in (["nonsense"], ["list", "more"], ["list", "--where", "x"], ["commit"], ["commit", "-c", "5", "A=1"], ["diff", "enc01"]):
        assert site.fleet(*words)[0] == 2, words
