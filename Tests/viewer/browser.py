"""A headless browser with a profile of its own, and what tests ask of it."""
import json
import os
import pathlib
import shutil
import tempfile
import time

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException, WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

# Seconds. A busy machine is slow, and a wait ends at once when the thing has happened.
PATIENCE = float(os.environ.get("BROWSER_TEST_PATIENCE", "60"))
BETWEEN = 0.05
AXE = pathlib.Path(__file__).resolve().parent / "lib/axe.min.js"
AXE_RULES = ("wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "best-practice")
WORDS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
         "--disable-background-networking", "--disable-component-update", "--disable-extensions",
         "--disable-sync", "--no-first-run", "--no-default-browser-check", "--hide-scrollbars",
         "--force-color-profile=srgb", "--enable-precise-memory-info", "--js-flags=--expose-gc",
         # One process for all pages is enough, and none in reserve.
         "--process-per-site", "--disable-site-isolation-trials",
         "--disable-features=SpareRendererForSitePerProcess,BackForwardCache")


class NotSeen(AssertionError):
    pass


def program(name):
    path = shutil.which(name)
    if path is None:
        raise SystemExit(f"{name} is not there; browser tests need chromium, chromium-driver and "
                         "python3-selenium, which script/bootstrap installs")
    return path


class Browser:
    def __init__(self, notes_addresses=False):
        """One that notes the addresses that pages ask for is slower."""
        self.profile = tempfile.mkdtemp(prefix="viewer-browser-")
        options = webdriver.ChromeOptions()
        options.binary_location = program("chromium")
        for word in (*WORDS, f"--user-data-dir={self.profile}"):
            options.add_argument(word)
        self.notes_addresses = notes_addresses
        options.set_capability("goog:loggingPrefs", {
            "browser": "ALL", **({"performance": "ALL"} if notes_addresses else {})})
        try:
            self.driver = webdriver.Chrome(service=Service(program("chromedriver")), options=options)
        except WebDriverException as error:
            shutil.rmtree(self.profile, ignore_errors=True)
            raise SystemExit(f"the browser does not start: {error}") from error

    def end(self):
        self.driver.quit()
        shutil.rmtree(self.profile, ignore_errors=True)

    def fresh_tab(self):
        """Closes every tab but one that is new."""
        old = self.driver.window_handles
        self.driver.switch_to.new_window("tab")
        new = self.driver.current_window_handle
        for handle in old:
            self.driver.switch_to.window(handle)
            self.driver.close()
        self.driver.switch_to.window(new)

    def clear(self):
        """Leaves one tab with nothing in it and nothing noted, much faster than a new one would be."""
        first, *others = self.driver.window_handles
        for handle in others:
            self.driver.switch_to.window(handle)
            self.driver.close()
        self.driver.switch_to.window(first)
        self.offline(False)
        self.script("try { sessionStorage.clear(); } catch { /* This kind of page has none. */ }")
        self.open("about:blank")
        self.logged("browser")
        if self.notes_addresses:
            self.addresses()

    def another_tab(self):
        self.driver.switch_to.new_window("tab")

    def look(self, width=1280, height=900, scheme="light", motion="reduce"):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 600})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-color-scheme", "value": scheme},
            {"name": "prefers-reduced-motion", "value": motion}]})

    def offline(self, is_offline=True):
        """A cleared browser is online again."""
        self.driver.execute_cdp_cmd("Network.enable", {})
        self.driver.execute_cdp_cmd("Network.emulateNetworkConditions", {
            "offline": is_offline, "latency": 0, "downloadThroughput": 0, "uploadThroughput": 0})

    def open(self, address):
        self.driver.get(address)

    def script(self, text, *arguments):
        return self.driver.execute_script(text, *arguments)

    def later(self, text, *arguments):
        """Runs a script that gives a promise, and waits for what it comes to."""
        self.driver.set_script_timeout(PATIENCE)
        told = self.driver.execute_async_script(
            "const done = arguments[arguments.length - 1];"
            f"(async (...given) => {{{text}}})(...arguments)"
            ".then((value) => done({value}), (error) => done({error: String(error)}));", *arguments)
        if "error" in told:
            raise AssertionError(told["error"])
        return told.get("value")

    def one(self, selector, within=None):
        found = (within or self.driver).find_elements(By.CSS_SELECTOR, selector)
        if len(found) != 1:
            raise AssertionError(f"{len(found)} elements are {selector}")
        return found[0]

    def all(self, selector, within=None):
        return (within or self.driver).find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.one(selector).text

    def named(self, role, name, within=None):
        """The one element that a person who uses a screen reader would find by this, once there."""
        def find():
            found = [each for each in self.script(MAYBE_NAMED, ROLES[role], name, within)
                     if each.accessible_name == name]
            return found[0] if len(found) == 1 else None

        return self.until(find, f'one of role {role} that is named "{name}"')

    def until(self, condition, what, patience=PATIENCE):
        """Waits until `condition()` gives something true, and returns it."""
        end = time.monotonic() + patience
        last = None
        while True:
            try:
                value = condition()
                if value:
                    return value
                last = value
            except (StaleElementReferenceException, AssertionError) as error:
                last = error
            if time.monotonic() > end:
                raise NotSeen(f"not seen in {patience} s: {what}; last: {last}; the page:\n{self.page()[:1500]}")
            time.sleep(BETWEEN)

    def until_text(self, selector, text):
        return self.until(lambda: text in self.text(selector), f'"{text}" in {selector}')

    def page(self):
        return self.script("return document.body ? document.body.innerText : ''")

    def logged(self, kind):
        return self.driver.get_log(kind)

    def addresses(self):
        """Every address that pages asked for since the last time."""
        if not self.notes_addresses:
            raise AssertionError("this browser does not note addresses")
        events = (json.loads(entry["message"])["message"] for entry in self.logged("performance"))
        return [event["params"]["request"]["url"] for event in events
                if event["method"] == "Network.requestWillBeSent"]

    def overflow(self):
        """How many pixels the page is wider than its window."""
        return self.script("return document.documentElement.scrollWidth - window.innerWidth")

    def violations(self):
        """What the accessibility checker objects to on this page, a line a thing. It runs in a world
        beside the page, which the page's own policy does not bind."""
        self.driver.execute_script(AXE.read_text(encoding="utf-8"))
        told = self.later(
            "return (await axe.run(document, {runOnly: {type: 'tag', values: given[0]},"
            " resultTypes: ['violations']})).violations", list(AXE_RULES))
        return [f"{each['id']}: {each['help']}: {node['html'][:200]} {node['failureSummary']}"
                for each in told for node in each["nodes"]]

    def picture(self, path):
        path.parent.mkdir(parents=True, exist_ok=True)
        if not self.driver.save_screenshot(str(path)):
            raise AssertionError(f"no picture {path}")


# Elements in sight of which something says the name; whether it is theirs, the browser knows.
MAYBE_NAMED = """
  const [selector, name, within] = arguments;
  return [...(within ?? document).querySelectorAll(selector)].filter((each) =>
      each.checkVisibility({visibilityProperty: true}) &&
      [each.getAttribute('aria-label') ?? '', each.textContent, ...[...(each.labels ?? [])].map(
          (label) => label.textContent)].some((text) => text.includes(name)));
"""
ROLES = {
    "button": "button, [role=button]",
    "checkbox": "input[type=checkbox], [role=checkbox]",
    "field": "input, select, textarea",
    "group": "[role=group], fieldset",
    "link": "a[href]",
    "option": "option, [role=option]",
    "region": "section, [role=region]",
    "tab": "[role=tab]",
}
