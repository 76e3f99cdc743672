#!/usr/bin/env python3
"""Looks at what the programs print on a terminal and elsewhere: faults and errors have a colour on a
terminal only, and not where NO_COLOR, TERM=dumb or --json keeps it away.

usage: colour_test.py PROGRAMS REPOSITORY
"""
import os
import pathlib
import pty
import re
import subprocess
import sys
import tempfile
import unittest

PROGRAMS = ROOT = None
PATIENCE = 120  # seconds for any one command
COLOUR = re.compile(r"\x1b\[[0-9;]*m")
RED, BOLD, YELLOW = "\x1b[31m", "\x1b[1m\x1b[31m", "\x1b[33m"
JOURNAL = """0.000 mac   fault smc-latency 1 on
1.000 log   SMCWriter default "all is well"
2.000 log   SMCWriter error "SMC write CHTE failed"
3.000 log   HelperImpl fault "no way on"
4.000 reply setChargeLimit failed 400 "too low"
5.000 mac   lid closed
"""


def on_terminal(words, **environment):
    """(status, what a terminal gets as standard output and errors)"""
    here, there = pty.openpty()
    with subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=there,
                          stderr=there, env=variables(**environment)) as process:
        os.close(there)
        said = b""
        while True:
            try:
                chunk = os.read(here, 65536)
            except OSError:  # The terminal's other end is closed.
                chunk = b""
            if not chunk:
                break
            said += chunk
        status = process.wait(PATIENCE)
    os.close(here)
    return status, said.decode().replace("\r\n", "\n")


def variables(**environment):
    kept = {name: value for name, value in os.environ.items()
            if name not in ("NO_COLOR", "TERM", "VIRTUAL_MAC_ROOT")}
    return {**kept, "TERM": "xterm", **environment}


class Colours(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vm-")
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        (self.folder / "journal").write_text(JOURNAL, encoding="utf-8")
        self.print = [PROGRAMS / "virtual-mac", "journal", "--journal", self.folder / "journal"]

    def test_of_a_journal_tell_faults_and_errors_apart(self):
        status, said = on_terminal(self.print)
        self.assertEqual(status, 0, said)
        lines = said.splitlines()
        self.assertEqual([COLOUR.sub("", line) for line in lines], JOURNAL.splitlines())
        begins = [line[:len(line) - len(line.lstrip("\x1b[0123456789;m"))] for line in lines]
        begun = [next((tone for tone in (BOLD, RED, YELLOW) if line.startswith(tone)), "")
                 for line in lines]
        self.assertEqual(begun, [YELLOW, "", RED, BOLD, RED, ""], begins)
        self.assertTrue(all(line.endswith("\x1b[0m") for line, tone in zip(lines, begun) if tone))
        log = on_terminal([self.print[0], "log", *self.print[2:]])[1]
        self.assertTrue(RED in log and BOLD in log, log)

    def test_are_kept_away(self):
        for words, environment in ((self.print, {"NO_COLOR": "1"}), (self.print, {"TERM": "dumb"}),
                                   ([*self.print, "--json"], {})):
            status, said = on_terminal(words, **environment)
            self.assertEqual(status, 0, said)
            self.assertIn("no way on", said)
            self.assertNotIn("\x1b", said)
        self.assertIn("\x1b", on_terminal(self.print, NO_COLOR="")[1], "an empty one says nothing")
        done = subprocess.run(self.print, capture_output=True, text=True, env=variables(),
                              timeout=PATIENCE, check=True)
        self.assertEqual(done.stdout, JOURNAL)

    def test_mark_the_errors_of_both_programs(self):
        for program, word in (("virtual-mac", "stauts"), ("korvel-app", "pnig")):
            status, said = on_terminal([PROGRAMS / program, word])
            self.assertEqual(status, 2, said)
            self.assertTrue(said.startswith(f"{RED}{program}: "), said)
            done = subprocess.run([PROGRAMS / program, word], capture_output=True, text=True,
                                  env=variables(), timeout=PATIENCE, check=False)
            self.assertEqual(done.stderr, COLOUR.sub("", said))
        nowhere = [PROGRAMS / "korvel-app", "--root", self.folder / "none", "doctor"]
        self.assertTrue(on_terminal(nowhere)[1].startswith(f"{RED}no-machine: "))

    def test_mark_a_story_that_failed(self):
        data = ROOT / "Tests/scenarios/data"
        words = [PROGRAMS / "virtual-mac", "run", data / "fails.yaml", data / "defects.yaml"]
        said = on_terminal(words)[1]
        self.assertIn(f"{BOLD}FAILED  A story that goes otherwise\x1b[0m", said)
        self.assertIn(f"{RED}1 failed\x1b[0m, {RED}1 unreadable\x1b[0m", said)
        self.assertIn("FAILED  A story that goes otherwise\n", on_terminal(words, NO_COLOR="1")[1])


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    PROGRAMS, ROOT = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    unittest.main(argv=sys.argv[:1])
