#!/usr/bin/env python3
"""Measures how long a browser takes to open the trace of a long journal, how large the file is and
how much memory the page uses; script/bench calls it.

usage: opening.py PROGRAMS [ENTRIES]
"""
import pathlib
import statistics
import sys
import tempfile

import case
import traces
from browser import Browser

ENTRIES = 100_000
REPETITIONS = 5
GOAL_SECONDS, GOAL_BYTES = 2.0, 20e6
MILLION = 1e6
# The page is open when both the list and the chart have been painted.
NOTICE = """
  const look = () => {
    if (document.querySelector('#entries [role=option]') && document.querySelector('#plot canvas')) {
      requestAnimationFrame(() => setTimeout(() => { window.openedAfter = performance.now(); }, 0));
    } else {
      requestAnimationFrame(look);
    }
  };
  requestAnimationFrame(look);
"""


def measure(browser, page):
    """Seconds until the page was open, and the bytes of its JavaScript heap."""
    browser.fresh_tab()
    browser.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": NOTICE})
    browser.open(page.as_uri())
    milliseconds = browser.until(lambda: browser.script("return window.openedAfter"), "an open page")
    browser.driver.execute_cdp_cmd("HeapProfiler.collectGarbage", {})
    browser.driver.execute_cdp_cmd("Performance.enable", {})
    metrics = browser.driver.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]
    heap = next(each["value"] for each in metrics if each["name"] == "JSHeapUsedSize")
    return milliseconds / 1000, heap


def verdict(met):
    return "met" if met else "missed"


def report(entries, size, seconds, heaps):
    median = statistics.median(seconds)
    print(f"\nOpening a trace of {entries:,} entries, {REPETITIONS} times, in a new tab each\n")
    print("| What | Measured | Goal |\n| --- | --- | --- |")
    print(f"| Open, list and chart drawn | {median:.2f} s ({min(seconds):.2f} s … {max(seconds):.2f} s) "
          f"| ≤ {GOAL_SECONDS:g} s, {verdict(median <= GOAL_SECONDS)} |")
    print(f"| File | {size / MILLION:.1f} MB | ≤ {GOAL_BYTES / MILLION:g} MB, {verdict(size <= GOAL_BYTES)} |")
    print(f"| JavaScript heap | {statistics.median(heaps) / MILLION:.1f} MB | – |")


def main(arguments):
    if not 1 <= len(arguments) <= 2 or arguments[0].startswith("-"):
        sys.exit(__doc__.strip())
    case.SETTINGS.programs = pathlib.Path(arguments[0]).resolve()
    entries = int(arguments[1]) if len(arguments) == 2 else ENTRIES
    with tempfile.TemporaryDirectory() as folder:
        journal, page = pathlib.Path(folder, "long.journal"), pathlib.Path(folder, "long.html")
        traces.long_journal(journal, entries)
        traces.of_journal(journal, page)
        browser = Browser()
        try:
            measured = [measure(browser, page) for _ in range(REPETITIONS)]
        finally:
            browser.end()
        report(entries, page.stat().st_size, *zip(*measured))


if __name__ == "__main__":
    main(sys.argv[1:])
