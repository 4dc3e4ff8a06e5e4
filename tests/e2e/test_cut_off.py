"""A change of the address that cuts off the client which commits it, on the shipped model. The daemon and its client
have networks of their own, with a cable between."""

import json
import subprocess

import pytest

from appliance import QVC, wait_until
from namespace import Namespace, namespaces_allowed
from terminal import Terminal

if not namespaces_allowed():
    pytest.skip("network namespaces are not allowed here", allow_module_level=True)

OLD, NEW = "192.168.1.100", "10.7.0.1"
CLIENT = {OLD: "192.168.1.2", NEW: "10.7.0.2"}
PORT = 7000
FILE = "/etc/network/eth0.cfg"
RESTART = "syscall_delay 1 $QV_SYSROOT/etc/init.d/network restart"
CHANGE = f"Network.Interfaces.Eth0.ipaddress={NEW}"

# What stands in for this script in the shipped root only says that it was called.
INIT_SCRIPT = """#!/bin/sh
. "${0%/*}/functions"
address=$(value /etc/network/eth0.cfg IPADDRESS)
ip address flush dev eth0 && ip address add "$address/24" dev eth0 && report "network has $address"
"""


class Site:
    def __init__(self, appliance, its_network, our_network):
        self.appliance = appliance
        self.its_network = its_network
        self.our_network = our_network
        its_network.connect("eth0", our_network)
        our_network.ip(f"address add {CLIENT[OLD]}/24 dev eth0")
        appliance.write(FILE, appliance.read(FILE).replace('"dhcp"', '"static"'))
        appliance.write("/etc/init.d/network", INIT_SCRIPT, 0o755)
        script = its_network.inside(appliance.path("/etc/init.d/network"), "start")
        subprocess.run(script, env=appliance.environment(), check=True)
        self.start()

    def start(self):
        sources = ",".join(f"{address}/32" for address in CLIENT.values())
        self.appliance.start("-P", PORT, f"--trust-tcp={sources}", in_child=self.its_network.enter)

    def client(self, address, *words):
        return self.our_network.inside(QVC, "-t", 1, "-H", f"{address}:{PORT}", *words)

    def qvc(self, address, *words):
        """From the other end of the cable: exit status and lines."""
        done = subprocess.run(self.client(address, *words), env=self.appliance.environment(), capture_output=True, text=True)
        return done.returncode, done.stdout.splitlines()

    def answers_at(self, address):
        return self.qvc(address, "get", "Network.hostname") == (0, ["Network.hostname=qv-encoder"])

    def wait_until_lost(self):
        wait_until(lambda: not self.answers_at(OLD), "the client to be cut off")

    def wait_until_back(self):
        wait_until(lambda: self.answers_at(OLD), "the old address to be back")
        a = self.appliance
        wait_until(lambda: not a.path("/var/lib/qv/commit.undo").exists(), "the undoing to end")
        assert (f'IPADDRESS="{OLD}"' in a.read(FILE), self.address(), a.get("Network.Interfaces.Eth0.ipaddress")) == (
            True, OLD, OLD)

    def address(self):
        [interface] = json.loads(self.its_network.ip("-j -4 address show dev eth0"))
        [address] = interface["addr_info"]
        return address["local"]

    def given_addresses(self):
        return [line.split()[-1] for line in self.appliance.read("/var/log/services.log").splitlines()]

    def ends(self):
        [line] = self.appliance.command("history -j").lines
        return [(entry["command"], entry["end"]) for entry in json.loads(line)["entries"]]


@pytest.fixture
def site(appliance):
    with Namespace() as its_network, Namespace() as our_network:
        yield Site(appliance(shipped=True), its_network, our_network)


def test_it_is_undone_by_itself(site):
    assert site.qvc(OLD, "commit", "-c", "6", CHANGE) == (0, [
        f"Network.Interfaces.Eth0.ipaddress={OLD} -> {NEW}", f"apply: {RESTART}", "Commit=1", "Commit.seconds=6"])
    site.wait_until_lost()
    site.wait_until_back()
    assert site.given_addresses() == [OLD, NEW, OLD]
    assert site.ends() == [("rollback", "done"), ("commit", "undone: not confirmed in time")]


def test_who_says_yes_too_late_has_not_kept_it(site):
    command = site.client(OLD, "commit", "-c", "6", CHANGE)
    with Terminal(command, site.appliance.environment()) as terminal:
        terminal.wait_for("Keep this change? [y/N] ")
        site.wait_until_lost()
        terminal.press("y")
        terminal.wait_for("trying again")
        assert terminal.wait() != 0
    site.wait_until_back()


def commit(site):
    assert site.qvc(OLD, "commit", "-c", "600", CHANGE)[0] == 0


def commit_and_lose(site):
    commit(site)
    site.wait_until_lost()


def commit_lose_and_abort(site):
    commit_and_lose(site)
    lines = site.appliance.command("abort").lines
    assert lines == [f"Network.Interfaces.Eth0.ipaddress={NEW} -> {OLD}", f"undo: {RESTART}", "Rollback=2"]


@pytest.mark.parametrize("end", ["kill", "stop"])
@pytest.mark.parametrize("moment", [commit, commit_and_lose, commit_lose_and_abort])
def test_an_end_of_the_daemon_does_not_keep_it(site, moment, end):
    """Killed or stopped before the new address is in use, or while it is, or before the old one is in use again."""
    moment(site)
    getattr(site.appliance, end)()
    site.start()
    site.wait_until_back()
    why = "aborted" if moment is commit_lose_and_abort else "the daemon ended before it was settled"
    assert site.ends() == [("rollback", "done"), ("commit", f"undone: {why}")]


def test_it_is_kept_when_it_is_confirmed_at_the_new_address(site):
    commit_and_lose(site)
    site.our_network.ip(f"address add {CLIENT[NEW]}/24 dev eth0")
    wait_until(lambda: site.answers_at(NEW), "an answer at the new address")
    assert site.qvc(NEW, "commit", "-s")[1][0] == "Commit=1"
    assert site.qvc(NEW, "confirm", "1") == (0, ["Confirm=1"])
    site.appliance.kill()
    site.start()
    assert site.answers_at(NEW)
    assert (f'IPADDRESS="{NEW}"' in site.appliance.read(FILE), site.address()) == (True, NEW)
    assert site.ends() == [("commit", "confirmed")]
