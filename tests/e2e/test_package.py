"""The Debian packages in a system of their own: an overlay over this one, in namespaces, that is gone with the test."""

import json
import os
import pathlib
import re
import shutil
import stat
import subprocess

import pytest

from appliance import BIN_DIR, die_with_us, wait_until

BUILD = BIN_DIR.parent
# What any package leaves: the packager's own notes, caches, and accounts.
OF_THE_PACKAGER = re.compile(r"/(var/(lib/dpkg|cache|log/dpkg\.log)|etc/(ld\.so\.cache|(group|gshadow|passwd|shadow)-?|\.pwd\.lock))(/|$)")
OVERLAY = """set -e
mount -t tmpfs none "$0" && cd "$0" && mkdir upper work root
mount -t overlay none -o lowerdir=/,upperdir=upper,workdir=work root
mount -t proc none root/proc && mount --bind /dev root/dev && mount --bind "$1" root/mnt
mount -t tmpfs none root/tmp && mount -t tmpfs none root/run && ip link set lo up
rm -f root/var/lib/man-db/auto-update root/usr/sbin/policy-rc.d
mkdir -p root/run/systemd/system root/usr/local/sbin
for stub in systemctl deb-systemd-invoke; do
    printf '#!/bin/sh\\ncase "$*" in *is-active*) test -e /run/qvcd.pid ;; st*|re*) echo "$@" >>/run/asked ;;
*preset*) /bin/systemctl "$@" ;; esac\\n' >root/usr/local/sbin/$stub
    chmod 755 root/usr/local/sbin/$stub
done
echo ready && exec sleep infinity"""

pytestmark = [
    pytest.mark.skipif(os.getuid() != 0, reason="installs packages, which takes root"),
    pytest.mark.skipif("QVCD_SANITIZE:STRING=\n" not in (BUILD / "CMakeCache.txt").read_text(), reason="no package has sanitizers"),
]


@pytest.fixture(scope="module")
def packages(tmp_path_factory):
    """The folder of the packages, as they are built."""
    folder = tmp_path_factory.mktemp("packages")
    made = subprocess.run(["cpack", "-G", "DEB", "-B", folder], cwd=BUILD, capture_output=True, text=True)
    assert made.returncode == 0, made.stdout + made.stderr
    shutil.rmtree(folder / "_CPack_Packages")
    return folder


@pytest.fixture
def system(packages, tmp_path):
    words = ["unshare", "--mount", "--net", "--uts", "--ipc", "--pid", "--fork", "--kill-child", "sh", "-c", OVERLAY]
    holder = subprocess.Popen([*words, tmp_path, packages], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              preexec_fn=die_with_us)
    try:
        if holder.stdout.readline() != "ready\n":
            pytest.skip(f"no overlay in namespaces here: {holder.stderr.read()}")
        yield System(holder, tmp_path)
    finally:
        holder.kill()
        holder.communicate()


class System:
    def __init__(self, holder, folder):
        child = pathlib.Path(f"/proc/{holder.pid}/task/{holder.pid}/children").read_text().strip()
        folder = pathlib.Path(f"/proc/{child}/root{folder}")
        self.root, self.upper = folder / "root", folder / "upper"
        # What runs there can neither set the clock nor load modules.
        self.before = ["nsenter", "-t", child, "-m", "-n", "-u", "-i", "-p", "setpriv", "--bounding-set=-sys_time,-sys_module",
                       "chroot", str(self.root.relative_to(f"/proc/{child}/root")).join(["/", ""])]
        self.daemon = None

    def popen(self, *words, **more):
        environment = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C", "HOME": "/root",
                       "DEBIAN_FRONTEND": "noninteractive"}
        return subprocess.Popen([*self.before, *words], env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, **more)

    def run(self, *words, status=0):
        process = self.popen(*words)
        output = process.communicate(timeout=100)[0]
        assert process.returncode == status, f"{words}: {process.returncode}\n{output}"
        return output

    def path(self, name):
        return self.root / name.lstrip("/")

    def asked(self):
        """What the service manager was told since the last time."""
        path = self.path("/run/asked")
        lines = path.read_text().splitlines() if path.exists() else []
        path.unlink(missing_ok=True)
        return lines

    def start(self):
        self.path("/var/log/qvcd.log").unlink(missing_ok=True)
        self.daemon = self.popen("/usr/sbin/qvcd", "-g", "-v1", "-l", "/var/log/qvcd.log", "--hash-passwords")
        wait_until(lambda: self.daemon.poll() is not None or self.popen("qvc", "get", "Network.hostname").wait() == 0, "its daemon")
        assert self.daemon.poll() is None, self.daemon.communicate()
        assert self.path("/var/log/qvcd.log").read_text() == ""

    def stop(self):
        self.run("sh", "-c", "kill -INT $(cat /run/qvcd.pid)")
        assert self.daemon.wait() == 0

    def added(self, below=""):
        """What is there and is not in the system below it, and what is not there any more."""
        for path in self.upper.joinpath(below).rglob("*"):
            name = "/" + str(path.relative_to(self.upper))
            whiteout = stat.S_ISCHR(path.lstat().st_mode)
            if (whiteout or not os.path.lexists(name)) and not OF_THE_PACKAGER.match(name):
                yield name


def as_before(packages, tmp_path):
    """The packages as a release before might have been: with an API that is gone now."""
    for name in ("qvcd", "qvcd-appliance"):
        folder = tmp_path / name
        subprocess.run(["dpkg-deb", "-R", next(packages.glob(f"{name}_*")), folder], check=True)
        control = folder / "DEBIAN/control"
        control.write_text(re.sub(r"(^Version: |qvcd \(= )[\d.]+", r"\g<1>0.9", control.read_text(), flags=re.M))
        for model in folder.glob("usr/share/qvapi/apimeta.hdf"):
            model.write_text(model.read_text() + "Old.setting {\nattr = Linux version\ntype = string\nread = linux_version_rfunc\nwrite = no_wfunc\nfile = /proc/version\ndynamic = true\nperm = 4444\n}\n")
        subprocess.run(["dpkg-deb", "-Znone", "-b", folder, packages / f"old-{name}.deb"], check=True, stdout=subprocess.DEVNULL)


def test_lintian_finds_no_error(packages):
    if not shutil.which("lintian"):
        pytest.skip("there is no lintian")
    words = ["lintian", "--fail-on", "error", "--allow-root", *packages.glob("*_*.deb")]
    found = subprocess.run(words, capture_output=True, text=True)
    assert found.returncode == 0, found.stdout + found.stderr


def test_from_the_first_installation_to_the_purge(system, packages, tmp_path):
    as_before(packages, tmp_path)
    before = set(system.added())
    # The daemon alone, as on a workstation: it changes nothing, and is not started.
    system.run("dpkg", "-i", "/mnt/old-qvcd.deb")
    assert set(system.added("etc")) == {"/etc/default/qvcd", "/etc/logrotate.d/qvcd"} and system.asked() == []
    assert re.search(r"^qv:", system.path("/etc/group").read_text(), re.M)
    assert "No usable metadata" in system.run("/usr/sbin/qvcd", "-g", status=1)
    # The appliance.
    system.run("dpkg", "-i", "/mnt/old-qvcd-appliance.deb")
    assert system.asked() == ["start qvcd.service"]
    assert system.path("/etc/systemd/system/multi-user.target.wants/qvcd.service").is_symlink()
    assert "qvweb:" in system.path("/etc/passwd").read_text()
    assert system.run("systemd-analyze", "verify", "--man=no", "qvcd.service", "qv-request@reboot.path") == ""
    assert "network-pre.target" in system.path("/usr/lib/systemd/system/qvcd.service.d/appliance.conf").read_text()
    system.start()
    assert "main.header.load=" in system.run("qvc", "menu.get") and "wizard_label" in system.run("qvc", "menu.get")
    described = system.run("qvc", "introspect")
    secrets = re.findall(r"^(\S+)\.type=.*password", described, re.M)
    files = {system.run("qvc", "metav", "file", name).strip() for name in secrets} - {""} | {"/etc/user.conf"}
    assert {file: oct(system.path(file).stat().st_mode & 0o777) for file in files} == dict.fromkeys(files, "0o600")
    assert "[Journal]\n" in system.path("/etc/systemd/journald.conf.d/qv.conf").read_text()
    for settings in ("Network.hostname=studio-9", "Services.SSH.port=2222", "System.Log.storage=volatile"):
        system.run("qvc", "set", settings)
    system.run("qvc", "save")
    system.run("qvc", "user.passwd", "admin", "another-one")
    assert system.run("qvc", "-v", "get", "Old.setting").strip() == os.uname().release
    kept = {path: path.read_bytes() for path in system.upper.joinpath("etc").rglob("*.conf") if path.is_file()}
    # The release after: nobody is asked about settings, and the daemon is restarted.
    system.run("dpkg", "-i", *(f"/mnt/{path.name}" for path in packages.glob("*_*.deb")))
    asked = system.asked()
    assert "restart qvcd.service" in asked and "restart qvweb.service" in asked
    assert system.run("systemd-analyze", "verify", "--man=no", "qvweb.service") == ""
    assert system.path("/etc/systemd/system/multi-user.target.wants/qvweb.service").is_symlink()
    system.run("install", "-d", "-o", "qvweb", "-m", "700", "/var/lib/qvweb")  # its StateDirectory
    system.stop()
    assert {path: path.read_bytes() for path in kept} == kept and list(system.upper.glob("etc/**/*.dpkg-*")) == []
    system.start()
    assert system.run("qvc", "-v", "get", "Network.hostname", "Services.SSH.port").split() == ["studio-9", "2222"]
    assert "not found" in system.run("qvc", "get", "Old.setting", status=1)
    assert system.run("python3", "-c", "import qvclient; print(qvclient.Client().get('Network.hostname'))").strip() == "studio-9"
    assert "-lqvclient" in system.run("pkg-config", "--libs", "qvclient")
    gateway = system.popen("runuser", "-u", "qvweb", "--", "/usr/sbin/qvweb", "--debug")
    asks = ("import json, ssl, sys, urllib.error, urllib.request as web\n"
            "try: print(web.urlopen('https://localhost:8443' + sys.argv[1], context=ssl._create_unverified_context(),\n"
            "                       data=sys.argv[2].encode() if sys.argv[2:] else None).read())\n"
            "except urllib.error.HTTPError as error: print(error.code, error.read())")
    page = ("python3", "-c", asks, "/")
    wait_until(lambda: gateway.poll() is not None or system.popen(*page).wait() == 0, "the console over HTTPS")
    assert "<title>" in system.run(*page)
    # A browser logs in with the built-in password only when it brings another one, and only then.
    system.run("qvc", "user.passwd", "admin", "kelpo")
    words = ("login", "admin", "kelpo", "local", "x", "other")
    assert "locally first" in system.run("runuser", "-u", "nobody", "--", "qvc", *words, status=1)
    for user, password, new, answer in (
            ("admin", "kelpo", {}, "403 "), ("admin", "kelpo", {"new_password": "kelpo"}, "422 "),
            ("admin", "wrong", {"new_password": "my own one"}, "401 "), ("viewer", "kelpo", {"new_password": "x"}, "401 "),
            ("admin", "kelpo", {"new_password": "my own one"}, "b'{"), ("admin", "kelpo", {"new_password": "other"}, "401 "),
            ("admin", "my own one", {"new_password": "other"}, "422 "), ("admin", "my own one", {}, "b'{")):
        body = json.dumps({"user": user, "password": password, **new})
        assert system.run(*page[:3], "/api/v1/session", body).startswith(answer), body
    history = system.run("qvc", "history")
    assert "login" in history and "my" not in history
    gateway.terminate()
    gateway.wait()
    system.stop()
    # A removal that stops half-way leaves it running.
    for name in ("qvcd", "qvcd-appliance", "qvcd-web"):
        system.run(f"/var/lib/dpkg/info/{name}.postinst", "abort-remove")
    assert system.asked()[-3:] == ["start qvcd.service", "start qvcd.service", "start qvweb.service"]
    # Removed: the settings stay. Purged: nothing does.
    names = [path.name.split("_")[0] for path in packages.glob("*_*.deb")]
    system.run("dpkg", "-r", *names)
    assert "stop qvcd.service" in system.asked() and system.path("/etc/network.conf").exists()
    assert not system.path("/etc/systemd/system/multi-user.target.wants/qvcd.service").is_symlink()
    system.run("dpkg", "-P", *names)
    assert set(system.added()) - before == set()
    assert {path.name for name in ("/run", "/tmp") for path in system.path(name).glob("*")} <= {"asked", "systemd", "qvc-0"}  # the last is qvc's


def test_another_prefix_has_all_below_it(tmp_path):
    subprocess.run(["cmake", "--install", BUILD, "--prefix", tmp_path], check=True, stdout=subprocess.DEVNULL)
    for name in ("sbin/qvcd", "etc/default/qvcd", "share/qvapi/apimeta.hdf", "share/man/man5/apimeta.5.gz",
                 "share/man/man7/qvcd-protocol.7.gz", "share/zsh/vendor-completions/_qvc", "lib/tmpfiles.d/qv-request.conf"):
        assert (tmp_path / name).exists(), name
