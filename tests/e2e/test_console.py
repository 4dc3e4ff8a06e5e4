"""The console as people use it: a real browser, the real gateway, the shipped appliance."""

import statistics
import time

import pytest

import browser as browsers
from appliance import Appliance, wait_until

browsers.need_browser()

PORT = "Services.RTSP.port"
NAME = "Services.Zeroconf.name"
HOSTILE = "<img src=x onerror=\"document.body.dataset.owned=1\"><script>document.body.dataset.owned=2</script>"
METADATA = f"""
Services.Zeroconf.name.help = {HOSTILE}
Hostile.perm = 7774
Hostile.value.attr = value
Hostile.value.type = string_ext
Hostile.value.default = javascript:alert(1)
Hostile.value.read = kv_rfunc
Hostile.value.write = kv_wfunc
Hostile.value.file = /etc/hostile.conf
Hostile.value.desc = {HOSTILE}
Hostile.several.attr = several
Hostile.several.type = domainname_list a.example b.example
Hostile.several.default = b.example
Hostile.several.read = kv_rfunc
Hostile.several.write = kv_wfunc
Hostile.several.file = /etc/hostile.conf
"""


@pytest.fixture(scope="module")
def browser():
    with browsers.Browser() as one:
        yield one


@pytest.fixture(scope="module")
def unit():
    with Appliance(shipped=True) as a:
        a.path("/usr/share/qvapi/apimeta.hdf").open("a").write(METADATA)
        yield a.start()


@pytest.fixture(scope="module")
def gateway(unit):
    with browsers.Gateway(unit, ("127.0.0.1", "127.0.0.2")) as one:
        yield one


@pytest.fixture
def console(browser, gateway, unit):
    """Opens the console as a user; closes the tabs after the test, which must have left no complaint of the browser."""
    pages = []

    def open_page(user="admin", password="kelpo", host="127.0.0.1", path="page/services"):
        pages.append(browser.open(gateway.address(host)))
        if user:
            pages[-1].log_in(user, password)
            pages[-1].go(path)
        return pages[-1]

    browser.complaints()
    yield open_page
    complaints = browser.complaints()
    for page in pages:
        page.here().close()
    browser.driver.switch_to.window(browser.driver.window_handles[0])
    unit.command("abort")
    unit.command("revert")
    assert not complaints


def test_first_start_with_the_keyboard_alone(console, unit):
    page = console(user=None)
    page.find("#login-user")
    page.keys("admin", page.Keys.TAB, "wrong", page.Keys.ENTER)
    page.find(".form-error", "assword")
    page.keys("kelpo", page.Keys.ENTER)
    page.find("h2", "1 of")  # the wizard comes by itself
    page.type("System.Configuration.Label.name", "Studio 7")
    page.keys(*[page.Keys.TAB] * 5, page.Keys.ENTER)
    page.find("h2", "2 of")
    page.click("Alarms")
    page.click("Review and finish")
    page.find("dialog .new", "Studio 7")
    page.find("dialog input[type=checkbox]").click()
    page.click("Commit", "dialog")
    page.gone("dialog")
    page.find("h1", "Status")
    assert unit.get("Web.Wizard.firstrun") == "0"
    assert "Studio 7" in page.find(".unit").text
    page.keys("/")
    page.keys("rtsp serv")
    page.find("[role=option]", "RTSP")
    page.keys(page.Keys.ENTER)
    wait_until(lambda: page.run("return document.activeElement.closest('[data-name]')?.dataset.name") == PORT, "the found setting")
    page.keys(page.Keys.ARROW_UP)
    assert page.value(PORT) == "555"
    page.keys(page.Keys.CONTROL, page.Keys.ENTER)
    page.find("dialog .new", "555")
    page.keys(page.Keys.ESCAPE)
    page.gone("dialog")
    assert unit.get(PORT) == "554"


def test_a_change_from_edit_to_roll_back(console, unit):
    page = console()
    page.type(PORT, "99999")
    page.find(f'[data-name="{PORT}"] .field-error', "port")
    assert page.field(PORT).get_attribute("aria-invalid") == "true"
    page.type(PORT, "8554")
    page.gone(".field-error", "port")
    assert "was 554" in page.row(PORT).text
    page.click("Review and commit")
    page.find(".diff-line.added", "8554")
    page.find(".action-list", "initd_restart")
    page.find(".commit-options input[type=text]").send_keys("for the studio")
    page.click("Commit", "dialog")
    page.find(".confirmation", "for the studio")
    page.click("+ 2 min")
    wait_until(lambda: page.find(".confirmation .numeric").text.startswith("3:"), "more time")
    page.click("Keep the change")
    page.gone(".confirmation")
    assert unit.get(PORT) == "8554"
    page.go("history")
    page.find(".entry", "for the studio")
    page.click("Roll back to before this", ".entry")
    page.find("dialog input").clear()
    page.find("dialog input").send_keys("0")
    page.click("Roll back", "dialog")
    wait_until(lambda: unit.get(PORT) == "554", "the old value")


def test_what_nobody_confirms_is_undone(console, unit):
    page = console()
    page.type(NAME, "not for long")
    page.click("Review and commit")
    page.click("Commit", "dialog")
    page.find(".confirmation")
    assert unit.get(NAME) == "not for long"
    unit.command("confirm -c 1")
    page.gone(".confirmation")
    wait_until(lambda: page.value(NAME) == "QV Encoder", "the old value in the field")


def test_two_at_once(console, unit):
    ours = console()
    theirs = console("operator", "operator", host="localhost", path="page/encoder")
    ours.type(NAME, "ours")
    theirs_is = "VideoEncoder.Configuration.bitrate"
    theirs.type(theirs_is, "4000000")
    theirs.click("Set only")
    theirs.find(".pending-part", "1 set, not committed")
    ours.find(".pending-part", "1 by someone else")
    ours.go("page/encoder")
    ours.find(".chip", "by operator")
    assert ours.value(theirs_is) == "4000000"
    ours.click("Review and commit")
    ours.find("dialog .notice", "does not take it")
    assert "4000000" not in ours.find("dialog .change-list").text
    ours.click("Commit", "dialog")
    theirs.find(".confirmation", "admin")
    ours.click("Undo now")
    theirs.gone(".confirmation")
    assert theirs.find(".pending-part", "1 set")
    theirs.click("Discard")
    theirs.click("Discard", "dialog")
    ours.gone(".pending-part", "someone")
    wait_until(lambda: ours.value(theirs_is) != "4000000", "what was taken back")


def test_the_appliance_moves(console, gateway, unit):
    address = "Network.Interfaces.Eth0.ipaddress"
    unit.command(f"commit {address}=127.0.0.1 Network.Interfaces.Eth0.ipmode=static")
    page = console(path="page/network")
    page.type(address, "127.0.0.2")
    page.find(f'[data-name="{address}"] .note', "127.0.0.2")
    page.click("Review and commit")
    page.find("dialog .notice", gateway.address("127.0.0.2"))
    assert not page.find("dialog input[type=checkbox]").is_enabled()
    page.click("Commit", "dialog")
    page.find("dialog h2", "moves")
    wait_until(lambda: page.here().current_url.startswith(gateway.address("127.0.0.2")), "the new address")
    page.log_in("admin", "kelpo")
    page.click("Keep the change")
    page.gone(".confirmation")
    assert unit.get(address) == "127.0.0.2"


def test_who_may_only_look(console):
    page = console("viewer", "viewer")
    page.find(".notice", "may not change anything")
    assert not page.run("return [...document.querySelectorAll('.setting :is(input, select)')].some(e => !e.disabled && !e.readOnly)")
    assert page.run("return document.querySelectorAll('.setting .lock').length") > 5
    page.gone(".nav a", "Log-ins")


def test_what_is_hostile_stays_text(console, unit):
    page = console(path="group/Hostile")
    page.type("Hostile.value", HOSTILE.replace('"', "'"))
    page.find("[data-name='Hostile.several'] [value='a.example']").click()
    page.click("Set only")
    page.find(".chip", "Not saved, saved is javascript")
    assert unit.get("Hostile.several") == "a.example b.example"
    page.find("[aria-label='More about this']").click()
    page.find(".details", "onerror")
    page.go("page/services")
    page.find(f'[data-name="{NAME}"] .help', "<script>")
    page.keys("/")
    page.keys("onerror")
    page.find(".found-help", "<img")
    assert page.run("return document.body.dataset.owned ?? null") is None


def test_export_and_import(browser, console, unit):
    page = console(path="transfer")
    page.click("Export", ".card")
    [document] = wait_until(browser.downloads, "the exported file")
    text = wait_until(document.read_text, "what is in it")
    assert "QV+Encoder" in text
    document.write_text(text.replace("QV+Encoder", "Imported"))
    page.find("input[type=file]").send_keys(str(document))
    page.click("Import", ".card")
    page.find(".card .new", "Imported")
    assert unit.get(NAME) == "Imported"
    document.write_text("not {{ a document")
    page.find("input[type=file]").send_keys(str(document))
    page.click("Import", ".card")
    page.find(".card .notice.bad")


def test_users_presets_and_profiles(console, unit):
    page = console(path="accounts")
    page.click("Add a user")
    page.find("dialog input").send_keys("guest")
    page.find("dialog input[type=password]").send_keys("one")
    page.keys(page.Keys.TAB, page.Keys.TAB, "two")
    page.find(".pair-note", "not the same")
    page.keys(page.Keys.BACKSPACE * 3, "one", page.Keys.ENTER)
    page.gone("dialog")
    page.find("[data-user=guest]", "Viewers")
    unit.login("guest", "one")
    page.click("Remove", "[data-user=guest]")
    page.click("Remove", "dialog")
    page.gone("[data-user=guest]")
    page.go("profiles")
    page.click("Save a profile")
    page.find("dialog input").send_keys("evening")
    page.click("Save", "dialog")
    page.click("Show", "[data-profile=evening]")
    page.find("dialog .change-list", "QV Encoder")
    page.keys(page.Keys.ESCAPE)
    page.go("presets")
    page.click("Store a preset")
    page.click("Store", "dialog")
    page.find("[data-preset='3']")


def test_a_lost_daemon_and_a_session_that_ends(console, unit):
    page = console()
    page.type(NAME, "kept")
    unit.kill()
    page.find(".health.lost", "No connection")
    unit.start()
    page.find("#login-password, .health.well", "")
    if page.all("#login-password"):
        page.log_in("admin", "kelpo")
    page.find(".pending-part", "1 edited here")
    assert page.value(NAME) == "kept"
    page.gone(".health")
    page.here().delete_all_cookies()
    page.click("Review and commit")
    page.find(".login-card", "session is over")
    page.log_in("admin", "kelpo")
    assert page.value(NAME) == "kept" and page.run("return location.hash") == "#/page/services"


def test_speed_of_a_page_of_fifty_settings(console):
    page = console()
    times = []
    for path in ["page/streaming", "page/services"] * 4:
        times.append(page.run("""
            const [path] = arguments;
            const link = document.querySelector(`.nav a[data-route="/${path}"]`);
            const started = performance.now();
            link.click();
            return new Promise((resolve) => {
                const look = () => document.querySelector("h1")?.textContent === link.querySelector("span").textContent && document.querySelector(".setting")
                    ? requestAnimationFrame(() => resolve([performance.now() - started, document.querySelectorAll(".setting").length])) : setTimeout(look, 2);
                look();
            });""", path))
    large = [took for took, _ in times[::2]]
    assert times[0][1] >= 50, times
    print(f"\na page of {times[0][1]} settings: median {statistics.median(large):.0f} ms, longest {max(large):.0f} ms")


def test_pictures_of_all_pages(console):
    page = console(path="page/status")
    links = page.run("return [...document.querySelectorAll('.nav a[data-route]')].map((a) => a.dataset.route)")
    assert len(links) > 20
    page.size(390, 844)
    page.find(".drawer-button").click()
    page.find(".nav a", "Network")
    page.picture("drawer-narrow")
    page.keys(page.Keys.ESCAPE)
    for link in links:
        page.go(link)
        wait_until(lambda: page.run("return document.querySelector('.nav a[aria-current]')?.dataset.route") == link, link)
        name = link.strip("/").replace("/", "-")
        page.find(".page h1")
        for width, scheme in ((1360, "light"), (1360, "dark"), (390, "light")):
            page.size(width)
            page.colours(scheme)
            page.picture(f"{name}-{'narrow' if width < 500 else scheme}")
        wide = page.run("return document.documentElement.scrollWidth - document.documentElement.clientWidth")
        assert wide <= 0, f"{link} is {wide} pixels too wide for a phone"
