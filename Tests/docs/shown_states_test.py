#!/usr/bin/env python3
"""Plays the table "What to show" of docs/client.md: for each row a virtual Mac is brought into that state, and an
application that follows the table finds this row and no other.

usage: shown_states_test.py REPOSITORY PROGRAMS
"""
import json
import os
import pathlib
import queue
import re
import subprocess
import sys
import tempfile
import threading
import time
import unittest

ROWS, PROGRAMS = {}, None
PATIENCE = 60  # seconds for a line, and for a state
NEVER = -63114076800
# Why a row cannot be played here. One that can is a test.
NOT_HERE = {"no helper": "a virtual Mac's launchd always has the job, so nobody has to register or allow it"}
CONTROLS = ("tahoeCharging", "preTahoeCharging", "nativeCharging")
# The facts that an application knows, in the table's words and its order.
KNOWN = {
    "no helper": lambda seen: False,
    "refused": lambda seen: seen["refused"],
    "lost": lambda seen: seen["lost"],
    "silent": lambda seen: seen["silent"],
    "another version": lambda seen: seen["state"]["helperVersion"] != seen["installed"],
    "no control": lambda seen: not any(seen["capabilities"][name] for name in CONTROLS),
    "discharging": lambda seen: seen["state"]["forceDischargeActive"],
    "topping off": lambda seen: seen["state"]["topUpActive"],
    "not obeyed": lambda seen: not seen["state"]["lastWriteVerified"],
    "never set": lambda seen: seen["state"]["lastWriteAt"] == NEVER,
    "no limit": lambda seen: seen["state"]["chargeLimit"] == 100,
    "switched off": lambda seen: seen["cleared"],
    "holding": lambda seen: True,
    "+ a discharge has ended": lambda seen: "lastDischargeAbortReason" in seen["state"],
    "+ awake under the lid": lambda seen: seen["state"]["sleepDisabledByKorvel"],
    "+ the helper was started anew": lambda seen: seen["anew"],
}


def rows_of(document):
    """{state: what to show} in the table's order."""
    section = document.split("\n## What to show\n", 1)[1].split("\n## ", 1)[0]
    cells = [[cell.strip() for cell in line.strip("|").split("|")] for line in section.splitlines()
             if line.startswith("| ")]
    return {row[0]: row[2] for row in cells[1:]}


class Application:
    """One on a session, which remembers what the table asks it to."""

    def __init__(self, environment, *options):
        words = [PROGRAMS / "korvel-app", *options, "session"]
        self.process = subprocess.Popen(words, env=environment, text=True, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)
        self.lines = queue.Queue()
        threading.Thread(target=lambda: [self.lines.put(json.loads(line)) for line in self.process.stdout],
                         daemon=True).start()
        self.lost = self.silent = self.cleared = self.anew = False
        self.helper = None
        self.hear()

    def hear(self):
        """One line, and what it means."""
        line = self.lines.get(timeout=PATIENCE)
        if "event" in line:
            self.lost = line["event"] == "disconnected"
        else:
            self.silent = line.get("error") == "no reply in time"
        return line

    def ask(self, request):
        self.process.stdin.write(request + "\n")
        self.process.stdin.flush()
        line = self.hear()
        while "event" in line:
            line = self.hear()
        if line["ok"]:
            self.cleared = request in ("clear-limit", "reset") or (self.cleared and "set-limit" not in request)
        return line

    def ping(self):
        pid = self.ask("ping")["pid"]
        self.anew = self.anew or self.helper not in (None, pid)
        self.helper = pid

    def end(self):
        self.process.stdin.close()
        self.process.wait(timeout=PATIENCE)
        self.process.stdout.close()


class ShownStates(unittest.TestCase):
    def mac(self, *options, profile="newer-keys"):
        """A Mac, and an application that is connected to its helper."""
        place = tempfile.TemporaryDirectory(prefix="vm-")
        self.addCleanup(place.cleanup)
        self.environment = {**os.environ, "XDG_RUNTIME_DIR": place.name}
        self.tell("up", "--speed", "60", "--profile", profile)
        self.addCleanup(self.tell, "down")
        self.app = Application(self.environment, *options)
        self.addCleanup(self.app.end)

    def tell(self, *words, program="virtual-mac", status=0):
        done = subprocess.run([PROGRAMS / program, *words], env=self.environment, text=True,
                              capture_output=True, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done.stdout

    def do(self, *requests):
        for request in requests:
            self.assertTrue(self.app.ask(request)["ok"], request)

    def look(self, asks=True):
        seen = {"refused": False, "installed": json.loads(self.tell("status", "--json"))["installedVersion"]}
        for word in ("state", "capabilities") if asks else ():
            line = self.app.ask(word)
            seen[word] = line.get(word)
        if self.app.lost and asks:
            told = self.tell("--json", "--as", "other-team", "doctor", program="korvel-app", status=1)
            seen["refused"] = json.loads(told)["state"] == "refused"
        return {**seen, "lost": self.app.lost, "silent": self.app.silent, "cleared": self.app.cleared,
                "anew": self.app.anew}

    def shows(self, headline, text, beside=(), asks=True):
        """Waits until the table leads to this headline and these rows beside it."""
        deadline = time.monotonic() + PATIENCE
        while True:
            seen = self.look(asks)
            first = next(row for row in KNOWN if not row.startswith("+") and KNOWN[row](seen))
            more = [row for row in KNOWN if row.startswith("+") and seen.get("state") and KNOWN[row](seen)]
            if (first, more) == (headline, list(beside)) or time.monotonic() > deadline:
                break
        self.assertEqual((first, more), (headline, list(beside)))
        limit = seen["state"]["chargeLimit"] if seen.get("state") else 0
        band = seen["state"]["sailingBand"] if seen.get("state") else 0
        told = ROWS[headline].replace("LIMIT − band", str(limit - band)).replace("LIMIT", str(limit))
        self.assertEqual(told, text)
        return seen

    def test_refused(self):
        self.mac("--as", "other-team")
        self.shows("refused", "This copy of the application cannot talk to its helper.")

    def test_lost(self):
        self.mac()
        self.do("set-limit 80")
        self.tell("kill")
        self.assertEqual(self.app.hear()["event"], "disconnected")
        self.shows("lost", "Connecting to the helper…", asks=False)

    def test_silent(self):
        self.mac("--timeout", "2")
        self.tell("kill", "STOP")
        self.addCleanup(self.tell, "kill", "CONT")
        self.shows("silent", "The helper does not answer. The Mac's hardware may be busy.")

    def test_another_version(self):
        self.mac()
        self.do("set-limit 80")
        self.tell("install", "2.1.0")
        self.shows("another version", "The helper is being replaced.")

    def test_no_control(self):
        self.mac(profile="no-control")
        self.shows("no control", "This Mac does not let its charging be controlled.")

    def test_discharging(self):
        self.mac()
        self.tell("set", "battery", "90")
        self.do("set-limit 60", "discharge on")
        self.shows("discharging", "Draining to 60 %.")

    def test_topping_off(self):
        self.mac()
        self.do("set-limit 70", "top-off")
        self.shows("topping off", "Charging to 100 % once, then back to 70 %.")

    def test_not_obeyed(self):
        self.mac()
        self.tell("fault", "smc-silent-refusal", "CHTE", "on")
        self.tell("set", "battery", "90")
        self.do("set-limit 80")
        self.shows("not obeyed", "The limit is set, but this Mac does not confirm it.")

    def test_never_set(self):
        self.mac()
        self.shows("never set", "No limit yet.")

    def test_no_limit(self):
        self.mac()
        self.do("set-limit 100")
        self.shows("no limit", "Charging as macOS decides.")

    def test_switched_off(self):
        self.mac()
        self.do("set-limit 70", "clear-limit")
        self.shows("switched off", "The limit of 70 % is switched off.")
        self.do("set-limit 70")
        self.shows("holding", "Holding at 70 %, between 65 and 70.")

    def test_holding(self):
        self.mac()
        self.do("set-limit 80")
        self.shows("holding", "Holding at 80 %, between 75 and 80.")

    def test_plus_a_discharge_has_ended(self):
        self.mac()
        self.tell("set", "battery", "80")
        self.do("set-limit 60", "discharge on")
        self.shows("discharging", "Draining to 60 %.")
        self.tell("set", "battery", "58")
        seen = self.shows("holding", "Holding at 60 %, between 55 and 60.", ["+ a discharge has ended"])
        self.assertGreater(seen["state"]["lastDischargeAbortAt"], 0)

    def test_plus_awake_under_the_lid(self):
        self.mac()
        self.do("set-limit 80", "keep-awake on")
        self.shows("holding", "Holding at 80 %, between 75 and 80.", ["+ awake under the lid"])
        self.do("keep-awake off")
        self.shows("holding", "Holding at 80 %, between 75 and 80.")

    def test_plus_the_helper_was_started_anew(self):
        self.mac()
        self.do("set-limit 80")
        self.app.ping()
        self.tell("kill")
        self.assertEqual(self.app.hear()["event"], "disconnected")
        self.app.ping()
        self.shows("holding", "Holding at 80 %, between 75 and 80.", ["+ the helper was started anew"])

    def test_every_row_is_played_or_named(self):
        self.assertEqual(list(ROWS), list(KNOWN))
        played = {name.removeprefix("test_") for name in dir(self) if name.startswith("test_")}
        for row in ROWS:
            word = re.sub(r"\W+", "_", row.replace("+", "plus"))
            self.assertNotEqual(word in played, row in NOT_HERE, row)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    ROWS = rows_of((pathlib.Path(sys.argv[1]) / "docs/client.md").read_text(encoding="utf-8"))
    PROGRAMS = pathlib.Path(sys.argv[2]).resolve()
    unittest.main(argv=sys.argv[:1])
