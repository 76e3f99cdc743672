"""The base of browser tests: one browser for the classes of a run, an empty tab a test."""
import atexit
import functools
import pathlib
import tempfile
import types
import unittest

from selenium.webdriver.common.action_chains import ActionChains

from browser import Browser
from machine import LiveMac

ROOT = pathlib.Path(__file__).resolve().parents[2]
SETTINGS = types.SimpleNamespace(programs=None, pictures=None)


@functools.cache
def browser(notes_addresses):
    started = Browser(notes_addresses)
    atexit.register(started.end)
    return started


class BrowserTest(unittest.TestCase):
    """A page must not complain: whatever it logs as an error fails the test, unless the test says
    which words it expects."""
    notes_addresses = False

    @classmethod
    def setUpClass(cls):
        cls.browser = browser(cls.notes_addresses)

    def setUp(self):
        self.expected_complaints = []
        self.browser.clear()
        self.browser.look()

    def tearDown(self):
        complaints = [entry["message"] for entry in self.browser.logged("browser")
                      if entry["level"] == "SEVERE"]
        self.assertEqual([text for text in complaints
                          if not any(word in text for word in self.expected_complaints)], [])

    def press(self, *keys):
        ActionChains(self.browser.driver).send_keys(*keys).perform()

    def hold(self, key, *keys):
        ActionChains(self.browser.driver).key_down(key).send_keys(*keys).key_up(key).perform()

    def chosen_is_in_sight(self):
        """Whether the row at the cursor is one that a person sees."""
        return self.browser.script("""
          const [row, box] = [arguments[0], document.getElementById('entries')].map(
              (each) => each.getBoundingClientRect());
          return row.top >= box.top - 1 && row.bottom <= box.bottom + 1""",
                                   self.browser.one("#entries [aria-selected=true]"))

    def picture(self, name):
        self.browser.picture(SETTINGS.pictures / f"{name}.png")

    def assert_accessible(self):
        self.assertEqual(self.browser.violations(), [])


class FolderTest(BrowserTest):
    """With a folder for the traces of the class."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        folder = tempfile.TemporaryDirectory(prefix="viewer-traces-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)


class LiveTest(BrowserTest):
    """With a machine of its own, that every test of the class shares."""
    words = ("--speed", "60")

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.mac = LiveMac(SETTINGS.programs)
        cls.addClassCleanup(cls.mac.end)
        cls.mac.up(*cls.words)

    def open_live(self):
        self.browser.open(self.mac.link)
        self.browser.until_text("#connection", "connected to the machine")

    def open_controls(self):
        self.open_live()
        self.browser.named("tab", "Controls").click()
        self.browser.until(lambda: self.browser.all("[data-setting]"), "the controls")
