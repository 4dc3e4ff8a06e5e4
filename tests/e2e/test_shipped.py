"""The model that ships, as a whole, on the root that ships with it."""

import re
import subprocess

from appliance import escape

CURRENT = "System.Configuration.Profiles.current"
NO_SETTINGS = "hardware.conf version resolv.conf user.conf wizard.hdf init.d presets sysconfig".split()
SECRET = re.compile(r"(password|passphrase|secret|token|community|wepkey|pin|(?<!public_)key)$")


def lists_of_pages(a):
    """(page, name) for all that the pages of the menu and of the wizard name."""
    for line in a.command("menu.get").lines:
        found = re.fullmatch(r"main\.(\w+)\.(?:load|introspect)=(.*)", line)
        yield from ((found[1], name) for name in (found[2].split() if found else []))


def test_every_api_tells_its_value_and_what_it_is(shipped):
    values = dict(line.split("=", 1) for line in shipped.command("get").lines)
    links = {name for name in values if name.startswith("VideoStreamer.Links.1.")}  # published, with a name only
    assert 500 <= len(values) - len(links) <= 700
    alone = shipped.talk([f"get {name}" for name in values]).decode().splitlines()
    assert [line.split("=")[0] for line in alone if "=" in line] == list(values)
    assert not [line for line in alone if "##" in line]
    assert re.fullmatch(r"\d+ days?, [ \d]\d:\d\d", values["System.Info.Uptime.all"])
    assert int(values["System.Info.Memory.total"]) > 0
    assert values["System.Info.Version.linux"] == open("/proc/version").read().split()[2]
    assert values["System.Info.Product.productname"] == "QV Encoder"
    described = shipped.command("introspect").lines
    types = dict(line.split(".type=") for line in described if ".type=" in line)
    assert set(values) - set(types) == links
    shown = {name for name in types if SECRET.search(name) and "password" not in types[name]}
    assert shown == {"System.Factory.support_key", "Network.CurrentSettings.Interfaces.Wlan0.passphrase",
                     "VideoStreamer.Info.viewer_password"}  # their readers give stars
    texts = "\n".join(shipped.command("help.api").lines).split("\nNAME ")[1:]
    pages = {text.split()[0]: "\nDESCRIPTION\n" in text for text in texts}
    assert set(types) - set(pages) == set()
    settings = {name for name in pages if not re.search(r"\.(Info|CurrentSettings|BoardDefaults)\.", name)}
    assert {name for name in settings if not pages[name]} == {"Tally.state"}
    metrics = [name for name in values if shipped.command(f"metav metric {name}").lines in (["gauge"], ["counter"])]
    assert len(metrics) >= 30 and not [name for name in metrics if not re.fullmatch(r"-?\d+(\.\d+)?|n/a|", values[name].strip())]


def test_pages_name_what_there_is_and_leave_nothing_out(shipped):
    names = [line.split("=")[0] for line in shipped.command("get").lines]
    pages = list(lists_of_pages(shipped))
    assert [one for one in pages if not any(f"{name}.".startswith(f"{one[1]}.") for name in names)] == []
    left_out = [name for name in names if not any(f"{name}.".startswith(f"{on_page}.") for _, on_page in pages)]
    assert {name.rsplit(".", 1)[0] for name in left_out} == {"System.Factory"}  # the maker's


def test_starts_clean_with_its_settings_and_without(appliance):
    a = appliance(shipped=True).start(level=1)
    before = {p: p.read_bytes() for p in a.path("/etc").rglob("*") if p.is_file()}
    assert (a.log(), a.stderr()) == ("", "")
    # Every setting has a valid value in its file: nothing is replaced by a default.
    a.restart()
    assert replaced(a) <= {f"default {CURRENT}=default"}  # is the default anyway
    assert {p: p.read_bytes() for p in a.path("/etc").rglob("*") if p.is_file()} == before
    # Every default is one that its own type and its own file take.
    a.stop()
    for path in before:
        if path.relative_to(a.path("/etc")).parts[0] not in NO_SETTINGS:
            path.write_text("")
    a.start(level=1)
    assert (a.log(), a.stderr()) == ("", "")
    a.restart()
    assert replaced(a) == {"blank System.Time.settime"}  # the time that was last set by hand: never


def replaced(a):
    return set(re.findall(r"^populate ((?:default|blank) .*)", a.log(), re.M))


# (setting, file, what stands in it then); the files belong to programs of the system.
OTHERS = [
    ("Network.DNS.servers=192.0.2.53 2001:db8::53", "/etc/systemd/resolved.conf.d/qv.conf", "DNS=192.0.2.53 2001:db8::53"),
    ("Network.Interfaces.Eth0.IPv6.address=2001:db8::9/64", "/etc/systemd/network/10-eth0.network.d/ipv6.conf",
     "Address=2001:db8::9/64"),
    ("Services.SSH.port=2222", "/etc/ssh/sshd_config.d/qv.conf", "Port 2222"),
    ("Services.Syslog.Servers.1.host=2001:db8::7 Services.Syslog.Servers.1.enable=1", "/etc/rsyslog.d/50-qv.conf",
     '*.info action(type="omfwd" target="2001:db8::7" port="514" protocol="udp"'),
    ("Services.SNMP.Users.2.name=op Services.SNMP.Users.2.auth_password=a\"b\\c,d123",
     "/etc/snmp/snmpd.conf.d/qv-users.conf", 'createUser "op" SHA-256 "a\\"b\\\\c,d123" AES ""'),
    ("Network.Firewall.Rules.2.source=10.0.0.0/8 Network.Firewall.Rules.2.enable=1 Network.Firewall.enable=1",
     "/etc/qv/firewall.nft", "        ip saddr 10.0.0.0/8 tcp dport 443 accept"),
    ("Users.Radius.1.secret=s3cret,,, Users.Radius.1.host=::1 Users.Radius.enable=1", "/etc/pam_radius_auth.conf",
     "[::1]:1812 s3cret,,, 3"),
]


def test_settings_reach_the_files_of_other_programs(appliance):
    a = appliance(shipped=True).start()
    for settings, file, expected in OTHERS:
        pairs = [word.split("=", 1) for word in re.split(r" (?=[A-Z])", settings)]
        reply = a.command(" ".join(["commit", *(f"{name}={escape(value)}" for name, value in pairs)]))
        assert reply.code == 0 and "##" not in "".join(reply.lines), reply
        assert [line for line in a.read(file).splitlines() if line.startswith(expected)], (expected, a.read(file))
    assert a.path("/etc/snmp/snmpd.conf.d/qv-users.conf").stat().st_mode & 0o777 == 0o600
    # What is done at once is a word in a file, which the service manager gives to a script.
    assert a.command("set Services.Certificate.create=self-signed").code == 0
    script = a.path("/usr/share/qvcontrol/request")
    subprocess.run([script, "certificate"], env=a.environment(), check=True, capture_output=True)
    assert a.get("Services.Certificate.Info.subject") == "CN = qv-encoder"
    assert a.path("/etc/qv/tls/key.pem").stat().st_mode & 0o777 == 0o600
