"""A change of the address that cuts off the client which commits it, on the shipped model."""

import pytest

from appliance import wait_until
from cable import API, CLIENT, FILE, NEW, OLD, RESTART
from terminal import Terminal

CHANGE = f"{API}={NEW}"


def test_it_is_undone_by_itself(site):
    assert site.qvc(OLD, "commit", "-c", "6", CHANGE) == (0, [
        f"{API}={OLD} -> {NEW}", f"apply: {RESTART}", "Commit=1", "Commit.seconds=6"])
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
    assert lines == [f"{API}={NEW} -> {OLD}", f"undo: {RESTART}", "Rollback=2"]


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
