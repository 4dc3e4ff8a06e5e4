"""The manual: a page for every command, and what is made of the pages."""

import re
import subprocess
import sys

from appliance import REPOSITORY

PAGES = REPOSITORY / "docs/commands/commands.txt"


def test_what_is_made_of_the_pages_is_current():
    made = subprocess.run([sys.executable, REPOSITORY / "scripts/make_command_pages.py", "--check"], capture_output=True, text=True)
    assert made.returncode == 0, made.stdout + made.stderr  # it refuses pages that lack a part, too


def test_every_command_has_its_page(shipped):
    pages = re.findall(r"^= (\w+)", PAGES.read_text(), re.M)
    commands = [line.split(":")[0] for line in shipped.command("help.cmd").lines]
    known = (REPOSITORY / "src/client/known_commands.cpp").read_text().partition("kCommands[] = {")[2].partition("};")[0]
    assert len(pages) == len(set(pages))
    assert set(commands + re.findall(r'^    \{"(\w+)"', known, re.M)) <= set(pages)
    subs = {sub for name in ("user", "preset", "profile") for sub in shipped.command(name).lines[1:]}
    for sub in subs:
        command, _, word = sub.split(":")[0].partition(".")
        assert re.search(rf"^= {command}\W.*\b{word}\b", PAGES.read_text(), re.M), sub
    for name in ("set", "user", "watch", "import"):
        code, text = shipped.qvc("help", name)
        of_daemon = "\n".join(shipped.command(f"help.cmd {name}").lines)
        assert code == 0 and text.startswith(of_daemon)
        titles = [line for line in text[len(of_daemon):].splitlines() if line and not line.startswith("\t")]
        assert titles == ["ARGUMENTS", "RIGHTS", "EFFECTS", "EXAMPLE"], name
    assert shipped.qvc("help.cmd", "set")[1].splitlines() == shipped.command("help.cmd set").lines
