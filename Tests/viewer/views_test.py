"""Every view of the page in both themes and at both widths: accessible, no wider than its window,
and kept as a picture."""

import traces
from case import ROOT, BrowserTest, FolderTest, LiveTest
from stub import Stub

WIDE, NARROW = 1280, 390
HEIGHTS = {WIDE: 780, NARROW: 844}


class Views:
    """What the classes of this file share: a look at the page as it is, in every form."""

    def look_at(self, name):
        """Each theme at the greater width, and the light one on a small screen. The checker, which
        takes longest, looks at each theme and at each width once."""
        for width, scheme, is_checked in ((WIDE, "light", False), (WIDE, "dark", True),
                                          (NARROW, "light", True)):
            with self.subTest(name, width=width, scheme=scheme):
                self.browser.look(width, HEIGHTS[width], scheme)
                self.browser.until(lambda: self.is_drawn_at(width), "the chart at this width")
                self.picture(f"{name}-{width}-{scheme}")
                self.assertLessEqual(self.browser.overflow(), 0)
                if is_checked:
                    self.assert_accessible()

    def is_drawn_at(self, width):
        canvas = self.browser.all("#plot canvas")
        return canvas and 0 < canvas[0].size["width"] <= width

    def tab(self, name):
        self.browser.named("tab", name).click()
        self.browser.until(lambda: self.browser.one(f"#tab-{name.lower()}").get_attribute(
            "aria-selected") == "true", f"the tab {name}")


class LiveViews(Views, LiveTest):
    def test_a_machine_that_runs(self):
        application = self.mac.application()
        self.addCleanup(application.end)
        self.mac.command("speed", 600)
        self.mac.command("set", "battery", 78)
        application.ask("set-limit 80")
        self.mac.until(lambda status: status["chargingInhibited"], "a pause at the limit")
        self.mac.command("set", "adapter", "off")
        self.mac.until(lambda status: status["batteryPercent"] < 74.5, "a battery below the band")
        self.mac.command("set", "adapter", "on")
        self.mac.until(lambda status: not status["chargingInhibited"], "charging again")
        self.mac.command("kill")
        again = self.mac.application()
        self.addCleanup(again.end)
        self.mac.until(lambda status: status["chargingInhibited"], "another pause")
        self.mac.command("speed", 1)
        self.open_live()
        self.browser.until(lambda: self.browser.all("#entries [role=option]"), "the list")
        self.look_at("live")
        self.tab("Controls")
        self.browser.until(lambda: self.browser.all("[data-setting]"), "the controls")
        self.look_at("controls")

    def test_a_machine_that_is_refused(self):
        self.browser.open(self.mac.address)
        self.browser.until_text("#connection", "virtual-mac up --web")
        self.look_at("refused")


class RecordedViews(Views, FolderTest):
    def open(self, story):
        page = self.folder / f"{story.stem}.html"
        traces.of_story(story, page)
        self.browser.open(page.as_uri())
        self.browser.until(lambda: self.browser.all("#entries [role=option]"), "the list")
        return page

    def test_a_run_and_its_panes(self):
        self.open(traces.GALLERY / "travel-top-off.yaml")
        self.look_at("recorded")
        self.tab("Table")
        self.look_at("table")
        self.tab("Story")
        self.look_at("story")

    def test_a_failure(self):
        story = self.folder / "limit.yaml"
        story.write_text((ROOT / "VirtualMac/Scenarios/gallery/working-day.yaml").read_text(
            encoding="utf-8").replace("adapter off", "touch", 1), encoding="utf-8")
        self.open(story)
        self.assertTrue(self.browser.text("#failures"))
        self.look_at("failure")

    def test_two_runs(self):
        other = self.open(traces.GALLERY / "sleep-on-battery.yaml")
        self.open(traces.GALLERY / "sleep-enforcing.yaml")
        self.browser.one("#file").send_keys(str(other))
        self.browser.until(lambda: self.browser.all("#pairs [role=option]"), "both runs")
        self.look_at("compare")

    def test_the_help(self):
        self.open(traces.GALLERY / "quit.yaml")
        self.browser.script("document.getElementById('help').showModal()")
        self.look_at("help")


class Checker(BrowserTest):
    def test_it_finds_what_is_not_accessible_and_what_is_too_wide(self):
        stub = Stub()
        self.addCleanup(stub.end)
        self.browser.open(stub.address)
        self.browser.script("document.body.innerHTML = '<main><h1>A page</h1></main>'")
        self.assertEqual(self.browser.violations(), [])
        self.assertLessEqual(self.browser.overflow(), 0)
        self.browser.script("document.querySelector('main').innerHTML +="
                            " '<button></button><p style=\"color: #ccc; width: 3000px\">pale</p>'")
        told = " ".join(self.browser.violations())
        self.assertIn("button-name", told)
        self.assertIn("color-contrast", told)
        self.assertGreater(self.browser.overflow(), 0)
