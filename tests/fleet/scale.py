"""`qvc fleet` over simulated appliances at a real broker: how long it takes, and how much memory. Fails when one is
missing.

Usage: scale.py [COUNT]
"""

import contextlib
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

from broker import PASSWORD, Broker
from appliance import BIN_DIR, QVC, die_with_us  # behind broker, which knows where it is

USER = "simulator"


def measured(home, *words):
    """Exit status, lines of the output, seconds, MB at most."""
    with tempfile.TemporaryFile("w+") as output:
        began = time.monotonic()
        process = subprocess.Popen([QVC, "fleet", *words], env={"HOME": str(home), "PATH": os.environ["PATH"]},
                                   stdin=subprocess.DEVNULL, stdout=output, preexec_fn=die_with_us)  # fmt: skip
        _, status, usage = os.wait4(process.pid, 0)
        seconds = time.monotonic() - began
        process.returncode = os.waitstatus_to_exitcode(status)
        output.seek(0)
        return process.returncode, output.read().splitlines(), seconds, usage.ru_maxrss / 1024


def main(count):
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="qvcd-scale.")))
        acl = f"\nuser {USER}\ntopic readwrite qv/fleet/#\n"
        broker = stack.enter_context(contextlib.closing(Broker(folder, [USER], acl))).start()
        conf = folder / ".config/qvc/fleet.conf"
        conf.parent.mkdir(parents=True)
        conf.write_text(
            f"broker=mqtts://operator@127.0.0.1:{broker.port}\nbroker_password={PASSWORD}operator\n"
            f"cafile={folder}/ca.pem\nuser=admin\npassword=Kennwort\n"
        )
        conf.chmod(0o600)
        words = [broker.port, folder / "ca.pem", USER, PASSWORD + USER, count]
        simulated = stack.enter_context(
            subprocess.Popen([BIN_DIR / "fleet_simulated", *map(str, words)], text=True,
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE, preexec_fn=die_with_us)  # fmt: skip
        )
        assert simulated.stdout.readline() == "ready\n"

        def show(*words):
            code, lines, seconds, megabytes = measured(folder, *words)
            print(f"{count} appliances: {' '.join(words):<24} {seconds:6.2f} s  {megabytes:6.1f} MB", flush=True)
            assert code == 0
            return lines

        assert len(show("list")) == 1 + count
        heading, row = (line.split("\t") for line in show("get", "Web.port"))
        assert len(heading) == 1 + count and row == ["Web.port", *heading[1:]]
        values = map(json.loads, show("get", "--json", "Web.port"))
        assert {v["id"]: v["values"] for v in values} == {id: {"Web.port": id} for id in heading[1:]}
        simulated.stdin.close()


main(int(sys.argv[1]) if len(sys.argv) > 1 else 5000)
