"""A recorded run, opened as a file with no network: what it shows, and every way through it."""
import re

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.actions.wheel_input import ScrollOrigin
from selenium.webdriver.common.keys import Keys

import traces
from case import ROOT, FolderTest

FAILING = ROOT / "Tests/scenarios/data/fails.yaml"


class RecordedTest(FolderTest):
    """With the trace of one story, opened from a file while the browser is offline."""
    story = traces.GALLERY / "working-day.yaml"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.page = cls.folder / "trace.html"
        traces.of_story(cls.story, cls.page)
        cls.run_told = traces.told_in(cls.page)["runs"][0]
        cls.lines = [line for line in cls.run_told["lines"].split("\n") if line]

    def setUp(self):
        super().setUp()
        self.browser.offline()
        self.open()

    def open(self, fragment=""):
        self.browser.open(self.page.as_uri() + fragment)
        self.browser.until(lambda: self.browser.all("#entries [role=option]"), "the list")

    def line(self):
        """The line at the cursor, as the journal has it."""
        return self.browser.one("#line-text").get_attribute("textContent")

    def click_row(self, text):
        """Clicks the first row in sight that says so."""
        def click():
            rows = [each for each in self.browser.all("#entries [role=option]") if text in each.text]
            if rows:
                rows[0].click()
            return bool(rows)

        self.browser.until(click, f"a row that says {text}")

    def until_line(self, *texts):
        self.browser.until(lambda: all(text in self.line() for text in texts), f"the line {texts}")

    def field(self, name):
        return self.browser.one(f"[data-field='{name}']:not([data-run])").text

    def size(self):
        """How many rows the list has, in sight or not."""
        rows = self.browser.all("#entries [role=option]")
        return int(rows[0].get_attribute("aria-setsize")) if rows else 0

    def shown(self):
        return self.browser.text("#shown-range")


class RecordedFile(RecordedTest):
    notes_addresses = True

    def test_it_opens_from_a_file_and_asks_for_nothing(self):
        self.assertEqual(self.size(), len(self.lines))
        self.assertEqual(self.browser.text("#title"), "A working day at 80 %")
        self.browser.later("await new Promise((done) => requestAnimationFrame(() => done()))")
        asked = [each for each in self.browser.addresses() if not each.startswith("data:")]
        self.assertEqual(asked, [self.page.as_uri()])

    def test_a_story_takes_less_than_a_megabyte(self):
        self.assertLess(self.page.stat().st_size, 1_000_000)

    def test_what_a_journal_says_is_never_markup(self):
        """A line that looks like a page's own end, or like an image, is a text."""
        evil = self.folder / "evil.journal"
        evil.write_text('0.000 log   A default "</script><script>document.title = 1</script>'
                        '<img src=x onerror=document.title=2>"\n', encoding="utf-8")
        page = self.folder / "evil.html"
        traces.of_journal(evil, page, "--title", "<b>Not bold</b>")
        self.browser.open(page.as_uri())
        self.browser.until(lambda: "onerror=document.title=2" in self.browser.text("#entries"), "it")
        self.assertEqual(self.browser.text("#title"), "<b>Not bold</b>")
        self.assertIn("Not bold", self.browser.driver.title)
        self.assertEqual(self.browser.all("#entries img, #title b"), [])

    def test_every_line_of_the_journal_can_be_reached_with_the_arrow_keys(self):
        self.press(Keys.HOME)
        for line in self.lines:
            self.until_line(line)
            self.press(Keys.ARROW_DOWN)
        self.until_line(self.lines[-1])

    def test_a_click_on_a_line_moves_every_pane(self):
        self.press(Keys.HOME)
        self.browser.until(lambda: self.field("gate") == "allowed", "an open gate")
        self.browser.one("#filter-text").send_keys("CHTE <-")
        self.click_row("CHTE <- 01")
        self.until_line("smc   CHTE <- 01 00 00 00")
        self.assertEqual(self.field("gate"), "paused")
        self.assertEqual(self.field("key.CHTE"), "01 00 00 00")
        time = self.line().split(" ", 1)[0]
        self.assertEqual(float(self.browser.one("[role=slider]").get_attribute("aria-valuenow")),
                         float(time))
        self.assertIn(time.rstrip("0"), self.browser.text("#moment-seconds"))
        chosen = self.browser.one("#entries [aria-selected=true]")
        self.assertIn("CHTE <- 01", chosen.text)

    def test_a_click_in_the_chart_moves_the_cursor_there(self):
        area = self.browser.one("[role=slider]")
        end = float(area.get_attribute("aria-valuemax"))
        before = area.get_attribute("aria-valuenow")
        ActionChains(self.browser.driver).move_to_element(area).click().perform()
        moment = float(self.browser.until(
            lambda: (now := area.get_attribute("aria-valuenow")) != before and now, "a moment"))
        # The cursor goes to the last entry before the middle, or to one that is close to it.
        self.assertAlmostEqual(moment, end / 2, delta=end / 20)
        self.assertEqual(moment, float(self.line().split(" ", 1)[0]))

    def test_hovering_tells_the_moment_and_leaves_the_cursor(self):
        before = self.line()
        area = self.browser.one("[role=slider]")
        ActionChains(self.browser.driver).move_to_element_with_offset(area, -100, 0).perform()
        tip = self.browser.until(lambda: self.browser.one("#tip").text,
                                 "words beside the pointer")
        self.assertRegex(tip, r"\d\d:\d\d:\d\d")
        self.assertEqual(self.line(), before)

    def test_the_chart_zooms_by_button_key_wheel_and_drag(self):
        whole = self.shown()
        self.browser.one("[data-act=zoomIn]").click()
        self.browser.until(lambda: self.shown() != whole, "less time")
        self.press("0")
        self.browser.until(lambda: self.shown() == whole, "all time")
        self.press("+")
        self.browser.until(lambda: self.shown() != whole, "less time")
        self.browser.one("[data-act=zoomAll]").click()
        self.browser.until(lambda: self.shown() == whole, "all time")
        area = self.browser.one("[role=slider]")
        ActionChains(self.browser.driver).move_to_element_with_offset(area, -100, 0) \
            .click_and_hold().move_by_offset(80, 0).release().perform()
        self.browser.until(lambda: self.shown() != whole, "the stretch that was dragged over")
        ActionChains(self.browser.driver).double_click(area).perform()
        self.browser.until(lambda: self.shown() == whole, "all time")
        ActionChains(self.browser.driver) \
            .scroll_from_origin(ScrollOrigin.from_element(area), 0, -200).perform()
        self.browser.until(lambda: self.shown() != whole, "less time")

    def test_other_colours_leave_the_row_at_the_cursor_in_sight(self):
        self.press(Keys.END)
        self.browser.until(self.chosen_is_in_sight, "the last row")
        colour = self.browser.script("return getComputedStyle(document.body).backgroundColor")
        self.press("t")
        self.browser.until(lambda: self.browser.script(
            "return getComputedStyle(document.body).backgroundColor") != colour, "other colours")
        # The curves are drawn anew in the next frame, and rows are put in their places in it too.
        self.browser.later("await new Promise((done) => requestAnimationFrame("
                           "() => requestAnimationFrame(done)))")
        self.assertTrue(self.chosen_is_in_sight())

    def test_a_link_restores_moment_filter_and_zoom_in_another_window(self):
        self.press(Keys.HOME, *[Keys.ARROW_DOWN] * 5, "+")
        self.browser.one("#filter-text").send_keys("battery")
        self.browser.one("#filter-text").send_keys(Keys.ESCAPE)
        self.browser.until(lambda: 0 < self.size() < len(self.lines), "fewer lines")
        told = self.line(), self.size(), self.shown()
        address = self.browser.until(
            lambda: (url := self.browser.driver.current_url) and "battery" in url and "zoom" in url
            and url, "an address")
        self.browser.another_tab()
        self.browser.look()
        self.browser.open(address)
        self.browser.until(lambda: self.browser.all("#entries [role=option]"), "the list")
        self.browser.until(lambda: (self.line(), self.size(), self.shown()) == told, f"{told}")
        self.assertEqual(self.browser.one("#filter-text").get_attribute("value"), "battery")


    def test_why_leads_to_the_line_that_caused_it(self):
        self.press(Keys.END)
        self.assertEqual(self.field("gate"), "paused")
        [*_, cause] = [line for line in self.lines if " smc   CHTE <- " in line]
        self.browser.one("[data-why=gate]").click()
        self.until_line(cause)
        causes = [each.text for each in self.browser.all("#why [data-jump]")]
        self.assertIn("CHTE <- 01 00 00 00", causes[0])
        # The level that came just before it led the helper to it.
        self.assertIn("battery 80 %", causes[1])
        self.browser.named("button", "Back").click()
        self.until_line(self.lines[-1])


class RecordedSearch(RecordedTest):
    story = traces.GALLERY / "write-fails.yaml"

    def test_lines_are_filtered_by_kind(self):
        kinds = [line.split()[1] for line in self.lines]
        self.browser.one("[data-kind=smc].chip").click()
        self.browser.until(lambda: self.size() == len(kinds) - kinds.count("smc"), "no writes")
        self.browser.one("#filter-log").click()
        self.browser.until(lambda: self.size() == kinds.count("log"), "only the log")
        self.browser.one("#filter-all").click()
        self.browser.until(lambda: self.size() == len(kinds), "all")

    def test_lines_are_filtered_by_category_and_level(self):
        boot = [line for line in self.lines if " log   Boot " in line]
        self.assertGreater(len(boot), 0)
        self.assertLess(len(boot), len(self.lines))
        self.browser.one("#filter-log").click()
        self.browser.one("#filter-category option[value=Boot]").click()
        self.browser.until(lambda: self.size() == len(boot), "the lines of Boot")
        self.browser.one("#filter-all").click()
        self.browser.one("#filter-log").click()
        self.browser.one("#filter-level option[value=error]").click()
        bad = [line for line in self.lines if line.split()[1] == "log"
               and line.split()[3] in ("error", "fault")]
        self.assertGreater(len(bad), 0)
        self.browser.until(lambda: self.size() == len(bad), "errors only")

    def test_lines_are_filtered_by_text_and_by_pattern(self):
        field = self.browser.one("#filter-text")
        field.send_keys("chte")
        self.browser.until(lambda: self.size() == sum("CHTE" in line for line in self.lines), "CHTE")
        field.clear()
        field.send_keys("/^CHTE .* \\(result \\d+\\)$/")
        refused = sum(bool(re.search(r" smc   CHTE .*\(result \d+\)$", line)) for line in self.lines)
        self.assertGreater(refused, 3)
        self.browser.until(lambda: self.size() == refused, "writes that were refused")
        field.clear()
        field.send_keys("/(/")
        self.browser.until(lambda: self.browser.text("#filter-error"), "what is wrong with it")

    def test_nothing_that_passes_is_told(self):
        self.browser.one("#filter-text").send_keys("no such words")
        self.browser.until(lambda: "Nothing passes the filter." in self.browser.page(), "the words")
        self.assertEqual(self.size(), 0)

    def test_a_search_goes_from_match_to_match_and_round(self):
        matching = [line for line in self.lines if "battery" in line]
        self.assertGreater(len(matching), 2)
        self.press(Keys.HOME, "/")
        self.browser.driver.switch_to.active_element.send_keys("Battery" + Keys.ENTER)
        seen = []
        for _ in range(len(matching) + 1):
            seen.append(self.line())
            before = self.line()
            self.browser.one("#search-next").click()
            self.browser.until(lambda: self.line() != before, "the next match")
        self.assertEqual(set(seen), set(seen) & set(matching))
        self.assertEqual(len(set(seen)), len(matching))
        self.assertIn(f" of {len(matching)}", self.browser.text("#matches"))


class RecordedFailure(RecordedTest):
    story = FAILING

    def test_it_opens_at_the_failure_with_its_text_and_its_line_of_the_story(self):
        [failure] = self.run_told["failures"]
        self.assertEqual(failure["line"], 10)
        banner = self.browser.text("#failures")
        self.assertIn('expected "gate paused", but the gate is charging', banner)
        self.assertIn("line 10 of the story", banner)
        self.until_line('expected "gate paused"')

    def test_a_key_jumps_to_the_first_failure(self):
        self.press(Keys.HOME)
        self.browser.until(lambda: "expected" not in self.line(), "the first line")
        self.press("f")
        self.until_line('expected "gate paused"')
        self.assertEqual(float(self.browser.one("[role=slider]").get_attribute("aria-valuenow")), 60)

    def test_the_story_marks_the_line_that_failed(self):
        self.browser.named("button", "Story", self.browser.one("#failures")).click()
        failed = self.browser.until(lambda: self.browser.one("[data-failed].failed"), "the line")
        self.assertEqual(failed.get_attribute("data-line"), "10")
        self.assertIn("expect: gate paused", failed.text)
        self.assertIn("but the gate is charging", failed.text)


class TwoRuns(RecordedTest):
    """The same story, but for a limit of 75 in place of 80."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        other = cls.folder / "other.yaml"
        other.write_text(cls.story.read_text(encoding="utf-8").replace("set-limit 80", "set-limit 75")
                         .replace("limit=80", "limit=75"), encoding="utf-8")
        cls.other_page = cls.folder / "other.html"
        traces.of_story(other, cls.other_page)
        cls.other_lines = [line for line in
                           traces.told_in(cls.other_page)["runs"][0]["lines"].split("\n") if line]

    def compare(self):
        self.browser.one("#file").send_keys(str(self.other_page))
        self.browser.until(lambda: self.browser.all("#pairs [role=option]"), "both runs")

    def test_a_second_file_is_laid_beside_at_the_first_difference(self):
        self.compare()
        first = next(number for number, (one, other) in enumerate(zip(self.lines, self.other_lines))
                     if one != other)
        self.until_line(self.lines[first])
        row = self.browser.one("#pairs [aria-selected=true]")
        self.assertIn(row.get_attribute("data-kind"), ("changed", "left", "right"))
        self.assertIn("80", self.browser.one("[data-side=left]", row).text)
        self.assertIn("75", self.browser.one("[data-side=right]", row).text)
        self.assertGreater(int(self.browser.one("#difference-count").get_attribute("data-differences")),
                           1)

    def test_differences_are_walked_with_keys_and_shown_alone(self):
        self.compare()
        first = self.browser.until(lambda: self.browser.one("#pairs [aria-selected=true]"), "a row").get_attribute("data-pair")
        self.press("d")
        self.browser.until(lambda: self.browser.one("#pairs [aria-selected=true]").get_attribute(
            "data-pair") != first, "the next difference")
        self.hold(Keys.SHIFT, "d")
        self.browser.until(lambda: self.browser.one("#pairs [aria-selected=true]").get_attribute(
            "data-pair") == first, "the first difference")
        self.browser.one("[data-option=onlyDifferences]").click()
        self.browser.until(lambda: {each.get_attribute("data-kind") for each in
                                    self.browser.all("#pairs [role=option]")}
                           <= {"changed", "left", "right", "late"}, "differences alone")
