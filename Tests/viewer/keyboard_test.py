"""Everything by keyboard: what Tab reaches, and what each key does."""
from selenium.webdriver.common.keys import Keys

from case import LiveTest
from recorded_test import RecordedTest

# Every element that a person can act on gets a number.
CONTROLS = """
  const all = [...document.querySelectorAll(
      'a[href], button, input, select, textarea, summary, [tabindex]')].filter((each) =>
      each.checkVisibility({visibilityProperty: true}) && !each.matches(':disabled'));
  all.forEach((each, number) => { each.dataset.stop = number; });
  return all.map((each) => each.outerHTML.slice(0, 120));
"""
FOCUSED = """
  const each = document.activeElement;
  const style = getComputedStyle(each);
  return {stop: each.dataset.stop === undefined ? null : Number(each.dataset.stop),
          name: each.outerHTML.slice(0, 120), isButton: each.matches('button'),
          seen: style.outlineStyle !== 'none' || style.boxShadow !== 'none'};
"""


class KeyboardWalk:
    """Tab goes from stop to stop; where a group is one stop, the arrow keys go on in it."""

    def assert_keys_reach_everything(self):
        controls = self.browser.script(CONTROLS)
        self.assertGreater(len(controls), 15)
        reached = set()
        for _ in range(2 * len(controls)):
            self.press(Keys.TAB)
            told = self.browser.script(FOCUSED)
            if told["stop"] in reached:
                break
            if told["stop"] is not None:
                self.assertTrue(told["seen"], f"the focus is not to be seen on {told['name']}")
                reached |= {told["stop"], *self.others_of(told)}
        self.assertEqual([name for stop, name in enumerate(controls) if stop not in reached], [])

    def others_of(self, told):
        """The buttons of the same group, by the arrow keys; tabs are chosen at once, so the last
        one brings the first one back."""
        others = set()
        while told["isButton"]:
            self.press(Keys.ARROW_RIGHT)
            now = self.browser.script(FOCUSED)
            if now["stop"] in others | {told["stop"], None}:
                break
            others.add(now["stop"])
        return others


class RecordedKeyboard(KeyboardWalk, RecordedTest):
    def test_tab_reaches_everything_and_the_focus_is_seen(self):
        self.assert_keys_reach_everything()

    def test_keys_move_the_cursor(self):
        self.press(Keys.HOME)
        self.until_line(self.lines[0])
        self.press("j")
        self.until_line(self.lines[1])
        self.press("k")
        self.until_line(self.lines[0])
        self.press("]")
        self.browser.until(lambda: self.line() != self.lines[0], "the next event")
        self.press("[")
        self.press(Keys.END)
        self.until_line(self.lines[-1])
        self.press("g")
        self.browser.driver.switch_to.active_element.send_keys("02:00:00" + Keys.ENTER + Keys.ESCAPE)
        self.until_line("7200.000 mac   adapter disconnected")
        self.press("w")
        self.press(Keys.ENTER)
        self.browser.until(lambda: "7200.000" not in self.line() or self.browser.all("#why [data-jump]"),
                           "why")
        self.press("b")
        self.until_line("7200.000 mac   adapter disconnected")

    def test_keys_zoom_and_move_the_chart(self):
        whole = self.shown()
        self.press(Keys.HOME, "+", "+")
        self.browser.until(lambda: self.shown() != whole, "less time")
        zoomed = self.browser.driver.current_url
        self.hold(Keys.SHIFT, Keys.ARROW_RIGHT)
        self.browser.until(lambda: self.browser.driver.current_url != zoomed, "another stretch")
        self.press("-", "-", "0")
        self.browser.until(lambda: self.shown() == whole, "all time")

    def test_keys_filter_search_and_choose_panes(self):
        self.press("e")
        self.browser.driver.switch_to.active_element.send_keys("adapter" + Keys.ESCAPE)
        self.browser.until(lambda: self.size() == sum("adapter" in line for line in self.lines), "4")
        self.press("x")
        self.browser.until(lambda: self.size() == len(self.lines), "all")
        self.press("/")
        self.browser.driver.switch_to.active_element.send_keys("adapter connected" + Keys.ENTER
                                                               + Keys.ESCAPE)
        matching = [line for line in self.lines if "adapter connected" in line]
        self.browser.until(lambda: self.line() in matching, "a match")
        first = self.line()
        self.press("n")
        self.browser.until(lambda: self.line() in matching and self.line() != first, "the next match")
        for key, tab in (("2", "table"), ("3", "story"), ("1", "state")):
            self.press(key)
            self.browser.until(lambda tab=tab: self.browser.one(f"#panel-{tab}").is_displayed(), tab)

    def test_keys_open_the_help_and_change_the_theme(self):
        self.press("?")
        help_box = self.browser.until(lambda: self.browser.one("dialog[open]"), "the help")
        self.assertIn("first failure", help_box.text)
        self.press(Keys.ESCAPE)
        self.browser.until(lambda: not self.browser.all("dialog[open]"), "no help")
        before = self.colour()
        self.press("t")
        self.browser.until(lambda: self.colour() != before, "the other theme")
        self.press("t")
        self.browser.until(lambda: self.colour() == before, "the first theme")

    def colour(self):
        return self.browser.script("return getComputedStyle(document.body).backgroundColor")


class LiveKeyboard(KeyboardWalk, LiveTest):
    def test_tab_reaches_every_control(self):
        self.open_controls()
        self.assert_keys_reach_everything()
