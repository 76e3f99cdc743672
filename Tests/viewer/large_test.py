"""A journal of a hundred thousand entries as one file."""
import pathlib
import tempfile
import time

from selenium.webdriver.common.keys import Keys

import traces
from case import BrowserTest

ENTRIES = 100_000
MOST_BYTES = 20_000_000


class LongJournal(BrowserTest):
    def test_a_hundred_thousand_entries_open_whole_from_one_file(self):
        with tempfile.TemporaryDirectory() as folder:
            journal, page = pathlib.Path(folder, "long.journal"), pathlib.Path(folder, "long.html")
            traces.long_journal(journal, ENTRIES)
            traces.of_journal(journal, page)
            size = page.stat().st_size
            self.assertLess(size, MOST_BYTES)
            begun = time.monotonic()
            self.browser.open(page.as_uri())
            self.browser.until(lambda: self.browser.all("#entries [role=option]"), "the list")
            print(f"opened in {time.monotonic() - begun:.1f} s, {size / 1e6:.1f} MB; "
                  "script/bench --viewer measures it", flush=True)
            lines = journal.read_text(encoding="utf-8").splitlines()[1:]
        [row, *_] = self.browser.all("#entries [role=option]")
        self.assertEqual(row.get_attribute("aria-setsize"), str(ENTRIES))
        self.assert_at(lines[-1])
        self.press(Keys.HOME)
        self.assert_at(lines[0])
        self.press(Keys.END)
        self.assert_at(lines[-1])
        # The list has far more rows than a browser can lay out; each of them is reached all the same.
        self.browser.one("#go-to").send_keys(lines[ENTRIES // 2].split()[0] + Keys.ENTER)
        at = float(lines[ENTRIES // 2].split()[0])
        last = max(line for line in range(ENTRIES // 2, ENTRIES // 2 + 200)
                   if float(lines[line].split()[0]) == at)
        self.assert_at(lines[last])
        self.browser.until(lambda: self.browser.one("#entries [aria-selected=true]").get_attribute(
            "aria-posinset") == str(last + 1), "the selected row")

    def assert_at(self, line):
        self.browser.until(lambda: self.browser.one("#line-text").get_attribute("textContent") == line,
                           f"the line {line}")
