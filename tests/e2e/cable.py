"""The shipped appliance and a client of it, each in a network of its own, with a cable between.

The appliance has a network script that works: it gives the interface the address of its configuration file.
"""

import json
import subprocess

from appliance import QVC, wait_until

OLD, NEW = "192.168.1.100", "10.7.0.1"
CLIENT = {OLD: "192.168.1.2", NEW: "10.7.0.2"}
PORT = 7000
FILE = "/etc/network/eth0.cfg"
RESTART = "syscall_delay 1 $QV_SYSROOT/etc/init.d/network restart"
API = "Network.Interfaces.Eth0.ipaddress"

# What stands in for it in the shipped root only says that it was called.
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
        appliance.write("/etc/init.d/network", INIT_SCRIPT, 0o755)
        script = its_network.inside(appliance.path("/etc/init.d/network"), "start")
        subprocess.run(script, env=appliance.environment(), check=True)
        self.start()

    def start(self):
        self.appliance.start("-P", PORT, "--trust-tcp=192.168.1.0/24,10.7.0.0/24", in_child=self.its_network.enter)

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
        assert (a.get(API), self.address()) == (OLD, OLD)
        assert f'IPADDRESS="{OLD}"' in a.read(FILE)

    def address(self):
        [interface] = json.loads(self.its_network.ip("-j -4 address show dev eth0"))
        [address] = interface["addr_info"]
        return address["local"]

    def given_addresses(self):
        return [line.split()[-1] for line in self.appliance.read("/var/log/services.log").splitlines()]

    def ends(self):
        [line] = self.appliance.command("history -j").lines
        return [(entry["command"], entry["end"]) for entry in json.loads(line)["entries"]]
