"""A real browser, and the console in it as a person sees it.

    with Gateway(appliance) as gateway, Browser() as browser:
        page = browser.open(gateway.address())
        page.log_in("admin", "kelpo")
        page.click("Review and commit")
"""

import base64
import importlib.util
import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest

from appliance import BIN_DIR, REPOSITORY, Reservation, die_with_us, wait_until

SHOWN = """const [selector, text] = arguments;
return [...document.querySelectorAll(selector)].find((e) =>
    e.checkVisibility({ visibilityProperty: true }) && e.innerText.includes(text)) ?? null"""
PICTURES = BIN_DIR.parent / "screenshots"


def need_browser():
    """Where there is none the tests are left out, but never in continuous integration."""
    missing = [one for one in ("chromium", "chromedriver") if not shutil.which(one)]
    if importlib.util.find_spec("selenium") is None:
        missing.append("python3-selenium")
    if missing:
        (pytest.fail if os.environ.get("CI") else pytest.skip)(f"no browser to test with: install {', '.join(missing)}")


class Gateway:
    """qvweb in front of an appliance, on some addresses of the loopback interface."""

    def __init__(self, appliance, hosts=("127.0.0.1",)):
        self.port = Reservation()
        self.output = open(appliance.path("/qvweb.log"), "wb")
        listen = [word for host in hosts for word in ("--listen", f"{host}:{self.port.port}")]
        self.process = subprocess.Popen(
            [BIN_DIR / "qvweb", "--plain", "--debug", *listen, "--files", REPOSITORY / "share/web"],
            env=appliance.environment(), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=self.output,
            preexec_fn=die_with_us)
        assert self.process.stdout.readline().startswith(b"http://"), appliance.read("/qvweb.log")

    def address(self, host="127.0.0.1"):
        return f"http://{host}:{self.port.port}/"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.communicate(timeout=30)
        self.output.close()
        self.port.close()


class Page:
    """A tab with the console."""

    def __init__(self, driver):
        from selenium.webdriver.common.by import By
        from selenium.webdriver.common.keys import Keys

        self.driver, self.css, self.Keys = driver, By.CSS_SELECTOR, Keys
        self.tab = driver.current_window_handle

    def here(self):
        self.driver.switch_to.window(self.tab)
        return self.driver

    def run(self, script, *arguments):
        return self.here().execute_script(script, *arguments)

    def all(self, selector):
        return self.here().find_elements(self.css, selector)

    def find(self, selector, text=""):
        """The first shown element with this text in it."""
        try:
            return wait_until(lambda: self.run(SHOWN, selector, text), f"{selector} {text!r}")
        except AssertionError:
            self.picture("failed")
            raise

    def gone(self, selector, text=""):
        wait_until(lambda: not self.run(SHOWN, selector, text), f"end of {selector} {text!r}")

    def click(self, text, inside=""):
        from selenium.common.exceptions import StaleElementReferenceException

        def click():
            try:
                self.find(f"{inside} button, {inside} a", text).click()
                return True
            except StaleElementReferenceException:  # a list was shown anew meanwhile
                return False

        wait_until(click, f"a click on {text!r}")

    def keys(self, *keys):
        self.here().switch_to.active_element.send_keys(*keys)

    def go(self, path):
        self.run("location.hash = arguments[0]", "#/" + path.lstrip("/"))

    def row(self, name):
        return self.find(f'[data-name="{name}"]')

    def field(self, name):
        return self.find(f'[data-name="{name}"] :is(input, select)')

    def value(self, name):
        return self.field(name).get_attribute("value")

    def type(self, name, text):
        field = self.field(name)
        field.clear()
        field.send_keys(text)

    def log_in(self, user, password):
        self.find("#login-user").clear()
        self.find("#login-user").send_keys(user)
        self.find("#login-password").send_keys(password + self.Keys.ENTER)
        self.find(".page h1")

    def picture(self, name):
        PICTURES.mkdir(parents=True, exist_ok=True)
        shot = self.here().execute_cdp_cmd("Page.captureScreenshot", {"optimizeForSpeed": True})
        (PICTURES / f"{name}.png").write_bytes(base64.b64decode(shot["data"]))

    def size(self, width, height=900):
        self.here().execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})

    def colours(self, scheme):
        self.here().execute_cdp_cmd("Emulation.setEmulatedMedia",
                                    {"features": [{"name": "prefers-color-scheme", "value": scheme}]})


class Browser:
    """Chromium without a window, with a profile of its own. What comes from one host is logged in for all its tabs."""

    def __init__(self):
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service

        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="qb", dir="/tmp"))
        options = webdriver.ChromeOptions()
        for one in ("headless=new", "no-sandbox", "disable-dev-shm-usage", "disable-gpu", "hide-scrollbars",
                    "force-prefers-reduced-motion", "window-size=1360,900", "disable-background-timer-throttling",
                    "disable-renderer-backgrounding", "disable-backgrounding-occluded-windows", f"user-data-dir={self.folder}"):
            options.add_argument(f"--{one}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        options.set_capability("unhandledPromptBehavior", "accept")
        options.add_experimental_option("prefs", {"download.default_directory": str(self.folder / "downloads")})
        self.driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
        self.driver.set_page_load_timeout(30)

    def open(self, address):
        """Another tab, at this address, where nobody is logged in."""
        self.driver.switch_to.new_window("tab")
        page = Page(self.driver)
        page.size(1360)
        self.driver.get(address + "icon.svg")
        self.driver.delete_all_cookies()
        self.driver.get(address)
        return page

    def complaints(self):
        """What the browser refused or did not understand, but for answers of the API that are errors."""
        return [one["message"] for one in self.driver.get_log("browser")
                if one["level"] == "SEVERE" and not any(part in one["message"] for part in ("/api/v1/", "/favicon.ico"))]

    def downloads(self):
        return [one for one in (self.folder / "downloads").glob("*") if one.suffix != ".crdownload"]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.quit()
        shutil.rmtree(self.folder, ignore_errors=True)
