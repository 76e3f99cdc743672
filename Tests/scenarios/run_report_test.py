#!/usr/bin/env python3
"""Looks at what `virtual-mac run` says of files that it only reads, and at its report for build servers.

usage: run_report_test.py PROGRAMS CASE
"""
import json
import pathlib
import subprocess
import sys
import tempfile
import xml.dom.minidom

from run_command_test import GALLERY, ROOT, expect, run, total_of


def a_check_reads_and_plays_nothing(programs):
    with tempfile.TemporaryDirectory() as folder:
        done = run(programs, "--check", GALLERY / "quit.yaml", "Tests/scenarios/data/fails.yaml")
        expect(done.returncode == 0 and "in order  Tests/scenarios/data/fails.yaml: " in done.stdout
               and total_of(done) == "2 scenarios: 2 in order, 0 unreadable", done)
        path = "Tests/scenarios/data/defects.yaml"
        done = run(programs, "--check", path, GALLERY / "quit.yaml")
        expect(done.returncode == 2 and total_of(done) == "2 scenarios: 1 in order, 1 unreadable", done)
        expect([line.split(": ")[0] for line in done.stderr.splitlines()] == [f"{path}:3", f"{path}:6"], done)
        done = subprocess.run([str(programs / "virtual-mac"), "--json", "run", "--check", path,
                               str(GALLERY / "quit.yaml")], cwd=ROOT, capture_output=True, text=True,
                              timeout=120, check=False)
        told = [json.loads(line) for line in done.stdout.splitlines()]
        expect(done.returncode == 2 and [each["ok"] for each in told] == [False, True]
               and f"{path}:6: " in told[0]["error"] and told[1]["steps"] > 1, done)
        for more in (("--junit", f"{folder}/a.xml"), ("--processes",), ("--journal",)):
            done = run(programs, "--check", path, *more)
            expect(done.returncode == 2 and "--check" in done.stderr and path not in done.stderr, done)


def a_build_server_gets_a_report(programs):
    with tempfile.TemporaryDirectory() as folder:
        report = pathlib.Path(folder, "out.xml")
        odd = pathlib.Path(folder, "odd.yaml")
        odd.write_text("name: 'Odd <&\" name'\ndescription: B\nsteps:\n  - at: 00:01\n"
                       '    expect: "log \\"a\\u0007 <b>\\""\n', encoding="utf-8")
        for way in ((), ("--processes",)):
            done = run(programs, GALLERY / "quit.yaml", "Tests/scenarios/data/fails.yaml", odd,
                       "Tests/scenarios/data/defects.yaml", "--junit", report, *way)
            expect(done.returncode == 2, done)
            suites = xml.dom.minidom.parse(str(report)).documentElement
            counts = [suites.getAttribute(name) for name in ("tests", "failures", "errors", "skipped")]
            expect(suites.tagName == "testsuites" and counts == ["4", "2", "1", "0"], done)
            suite, = suites.getElementsByTagName("testsuite")
            expect(suite.getAttribute("name") == ("among processes" if way else "in process"), done)
            good, bad, strange, unread = suite.getElementsByTagName("testcase")
            expect(good.getAttribute("name") == "Leaving for good" and float(good.getAttribute("time")) > 0
                   and not good.getElementsByTagName("failure"), done)
            spent, = good.getElementsByTagName("property")
            expect(float(spent.getAttribute("value")) >= 360, done)
            failure, = bad.getElementsByTagName("failure")
            where = "Tests/scenarios/data/fails.yaml:10: at 00:01:"
            expect(failure.getAttribute("message").startswith(where)
                   and "the journal around it:\n" in failure.firstChild.data, done)
            failure, = strange.getElementsByTagName("failure")
            expect(strange.getAttribute("name") == 'Odd <&" name'
                   and 'expected "log "a  <b>""' in failure.getAttribute("message"), done)
            error, = unread.getElementsByTagName("error")
            expect("defects.yaml:6: " in error.firstChild.data, done)
        done = run(programs, GALLERY / "quit.yaml", "--junit", f"{folder}/no/out.xml")
        expect(done.returncode == 1 and "out.xml cannot be written" in done.stderr, done)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    globals()[sys.argv[2]](pathlib.Path(sys.argv[1]).resolve())
