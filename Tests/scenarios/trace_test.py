#!/usr/bin/env python3
"""Looks at the pages that `virtual-mac run --trace` and `virtual-mac trace` write: what they hold, and
what is said when they cannot be written.

usage: trace_test.py PROGRAMS CASE
"""
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

from run_command_test import GALLERY, begin, expect, finish, run, wait_for

FAILS = "Tests/scenarios/data/fails.yaml"
DATA = re.compile(r'<script type="application/json" id="trace">(.*?)</script>', re.S)


def runs_in(page):
    trace = json.loads(DATA.search(page.read_text(encoding="utf-8"))[1])
    assert trace["version"] == 1, trace["version"]
    return trace["runs"]


def mac(programs, root, *words):
    return subprocess.run([str(programs / "virtual-mac"), "--root", root, *map(str, words)],
                          capture_output=True, text=True, timeout=120, check=False)


def a_page_of_a_run_holds_its_story(programs):
    story = GALLERY / "quit.yaml"
    with tempfile.TemporaryDirectory() as folder:
        page = pathlib.Path(folder, "out.html")
        done = run(programs, story, "--trace", page)
        expect(done.returncode == 0 and "browser" not in done.stdout, done)
        told, = runs_in(page)
        expect(told["title"] == "Leaving for good" and told["failures"] == [], done)
        expect(told["story"] == {"file": str(story), "text": story.read_text(encoding="utf-8")}, done)
        expect(told["head"]["start"]["batteryPercent"] > 0 and "run" not in told["head"], done)
        lines = told["lines"].splitlines()
        expect(re.match(r"0\.000 proc  helper \d+ started$", lines[0]), done)
        expect('HelperImpl default "quit() received' in told["lines"], done)
        expect(float(lines[-1].split()[0]) <= told["end"], done)
        printed = run(programs, story, "--journal").stdout.splitlines()
        expect(lines == [line for line in printed if line in lines], done)


def a_failure_is_in_the_page_with_its_line(programs):
    with tempfile.TemporaryDirectory() as folder:
        page = pathlib.Path(folder, "out.html")
        done = run(programs, FAILS, "--trace", page)
        expect(done.returncode == 1 and done.stdout.endswith(f"  see it in a browser: {page}\n"), done)
        told, = runs_in(page)
        expect(told["failures"] == [{"time": 60.0, "line": 10, "text":
                                     'expected "gate paused", but the gate is charging'}], done)
        expect(told["story"]["text"].splitlines()[9].strip() == "expect: gate paused", done)


def a_failure_says_how_to_get_the_page(programs):
    done = run(programs, FAILS)
    said = re.search(r"^  see it in a browser: virtual-mac run (.*) --trace (\S+)$", done.stdout, re.M)
    expect(done.returncode == 1 and said, done)
    with tempfile.TemporaryDirectory() as folder:
        page = pathlib.Path(folder, said[2])
        again = run(programs, *said[1].split(), "--trace", page)
        expect(again.returncode == 1 and runs_in(page)[0]["failures"][0]["line"] == 10, again)


def a_stopped_run_has_a_page(programs):
    with tempfile.TemporaryDirectory() as outside, tempfile.TemporaryDirectory() as folder:
        story = pathlib.Path(outside, "long.yaml")
        story.write_text("name: Long\ndescription: B\nsteps:\n"
                         "  - {at: 00:00:05, do: [connect, set-limit 80]}\n"
                         "  - {at: 3650d 00:00, expect: lid open}\n", encoding="utf-8")
        page = pathlib.Path(outside, "out.html")
        running = begin(programs, folder, story, "--processes", "--trace", page)
        journal = lambda: "".join(j.read_text() for j in pathlib.Path(folder).glob("*/journal*"))
        wait_for("the limit", lambda: "setChargeLimit ok" in journal(), running)
        os.killpg(running.pid, signal.SIGTERM)
        done = finish(running)
        expect(done.returncode == -signal.SIGTERM, done)
        told, = runs_in(page)
        expect([f["text"] for f in told["failures"]] == ["stopped by SIGTERM"], done)
        expect("setChargeLimit ok" in told["lines"], done)


def a_run_among_processes_has_a_page(programs):
    with tempfile.TemporaryDirectory() as folder:
        page = pathlib.Path(folder, "out.html")
        done = run(programs, GALLERY / "quit.yaml", "--processes", "--trace", page)
        expect(done.returncode == 0, done)
        told, = runs_in(page)
        expect(told["title"] == "Leaving for good" and "setChargeLimit ok" in told["lines"], done)


def a_page_that_cannot_be_written_is_a_failure(programs):
    page = "/no/such/folder/out.html"
    done = run(programs, GALLERY / "quit.yaml", "--trace", page)
    expect(done.returncode == 1 and f"{page} cannot be written: No such file" in done.stderr, done)
    done = run(programs, GALLERY / "quit.yaml", GALLERY / "hand-back.yaml", "--trace", "out.html")
    expect(done.returncode == 2 and "--trace" in done.stderr, done)


def a_machines_journal_becomes_a_page(programs):
    with tempfile.TemporaryDirectory() as folder:
        root = f"{folder}/mac"
        expect(mac(programs, root, "up").returncode == 0, mac(programs, root, "status"))
        try:
            mac(programs, root, "set", "lid", "closed")
            page = pathlib.Path(folder, "out.html")
            done = mac(programs, root, "trace", page)
            expect(done.returncode == 0 and done.stdout == done.stderr == "", done)
            told, = runs_in(page)
            journal = pathlib.Path(root, "journal").read_text(encoding="utf-8").splitlines(True)
        finally:
            mac(programs, root, "down")
        expect(told["title"] == "newer-keys" and told["story"] is None, done)
        expect(journal[0] == "# " + json.dumps(told["head"], separators=(",", ":")) + "\n", done)
        expect("".join(journal[1:]).startswith(told["lines"]) and "lid closed" in told["lines"], done)
        # The machine has gone, and its journal is still there.
        done = mac(programs, root, "trace", page, "--title", "The end")
        told, = runs_in(page)
        expect(done.returncode == 0 and told["title"] == "The end" and "going down" in told["lines"], done)


def two_journals_stand_side_by_side(programs):
    with tempfile.TemporaryDirectory() as folder:
        for name, line in (("one", "1.000 mac   lid closed\n"), ("two", "2.500 mac   lid open\n")):
            pathlib.Path(folder, name).write_text(line, encoding="utf-8")
        page = pathlib.Path(folder, "out.html")
        words = ["trace", page, "--journal", f"{folder}/one", "--beside", f"{folder}/two"]
        done = mac(programs, folder, *words)
        expect(done.returncode == 0, done)
        one, two = runs_in(page)
        expect((one["title"], one["end"], one["head"]) == ("one", 1.0, None), done)
        expect((two["title"], two["lines"]) == ("two", "2.500 mac   lid open\n"), done)


def what_cannot_be_shown_is_named(programs):
    with tempfile.TemporaryDirectory() as folder:
        page = pathlib.Path(folder, "out.html")
        good = pathlib.Path(folder, "good")
        good.write_text("1.000 mac   lid closed\n", encoding="utf-8")
        none = pathlib.Path(folder, "none")
        notes = pathlib.Path(folder, "notes")
        notes.write_text("no journal\n", encoding="utf-8")
        for words, text in ((["--journal", none], f"{none}: cannot be read"),
                            (["--journal", notes], f"{notes}: holds no line of a journal"),
                            (["--journal", good, "--beside", none], f"{none}: cannot be read"),
                            ([], f"{folder}/journal: cannot be read")):
            done = mac(programs, folder, "trace", page, *words)
            expect(done.returncode == 1 and text in done.stderr and not page.exists(), done)
        done = mac(programs, folder, "trace", f"{folder}/none/out.html", "--journal", good)
        expect(done.returncode == 1 and "out.html cannot be written: No such file" in done.stderr, done)
        done = mac(programs, folder, "trace")
        expect(done.returncode == 2 and "file is required" in done.stderr, done)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    globals()[sys.argv[2]](pathlib.Path(sys.argv[1]).resolve())
