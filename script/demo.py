#!/usr/bin/env python3
"""The story that script/demo tells; run that. usage: demo.py PROGRAMS TIMELINE TRACE [--tin]"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

# Virtual seconds in a real one, while the battery charges and while it drains. Deeds are done at 1:
# a busy computer would miss the moment at more.
SPEED = 120
WALK_SPEED = 240
MOST = 83           # percent: where a helper that has to wait for a busy computer still stops at SPEED
LOOK_SECONDS = 0.1  # real seconds between two looks at the machine
TIN_PATIENCE = 5    # the bounds of real seconds are so many times as long for an emulated helper
OUTCOME = re.compile(r'^([\d.]+) log +HelperImpl \w+ "(.*)"$')
STORY = re.compile(r"^([\d.]+) (?:proc|mac) +((?:helper|adapter).*)$")
TITLE = "Held at 80 %: a walk, a crash, and back to macOS"
NOISE = ("HelperImpl boot", " pid=", "client disconnected", "client connected")


class NotSeen(Exception):
    pass


def clock(seconds):
    whole = int(seconds)
    return f"{whole // 3600:02}:{whole // 60 % 60:02}:{whole % 60:02}"


class Screen:
    """Tells what happens. On a terminal the machine's state stays in the last line and is kept up
    to date; elsewhere it is printed when the percentage changes."""

    def __init__(self):
        self.live = sys.stdout.isatty()
        self.shown = None
        self.outcome = "none yet"

    def colour(self, code, text):
        return f"\x1b[{code}m{text}\x1b[0m" if self.live else text

    def line(self, text):
        print(("\r\x1b[2K" if self.live else "") + text, flush=True)
        self.shown = None

    def chapter(self, text):
        self.line("\n" + self.colour("1", text))

    def seen(self, text):
        self.line("  " + self.colour("32", "seen") + "  " + text)

    def event(self, seconds, text):
        self.line(f"  {clock(seconds)}  {text}")

    def state(self, status):
        percent = status["batteryPercent"]
        gate = self.colour("31", "paused ") if status["chargingInhibited"] else self.colour("32", "open   ")
        moving = ("charging" if status["charging"] else
                  "draining" if status["draining"] else "holding ")
        bar = "█" * round(percent / 5) + "░" * (20 - round(percent / 5))
        text = (f"{clock(status['seconds'])}  {bar} {percent:5.1f} %  {moving}  "
                f"adapter {'in ' if status['adapterConnected'] else 'out'}  gate {gate}  "
                f"last outcome: {self.outcome}")
        if self.live:
            columns = shutil.get_terminal_size().columns
            # Colours take no room, but they count as characters.
            print("\r\x1b[2K" + text[:columns + 8], end="", flush=True)
        elif self.shown != (round(percent), status["chargingInhibited"]):
            print("  " + text, flush=True)
        self.shown = (round(percent), status["chargingInhibited"])


class Mac:
    """The virtual Mac with its helper, through its programs."""

    def __init__(self, programs, root, screen, kind):
        self.programs, self.root, self.screen = programs, root, screen
        self.kind = kind  # the words that `up` gets: ("--tin",) or none
        self.patience = TIN_PATIENCE if kind else 1
        self.journal = None
        self.application = None

    def run(self, program, *words):
        done = subprocess.run([str(self.programs / program), "--root", self.root, *words],
                              capture_output=True, text=True, timeout=20 * self.patience, check=False)
        if done.returncode != 0:
            raise NotSeen(f"{program} {' '.join(words)}: {done.stderr.strip() or done.stdout.strip()}")
        return done.stdout

    def mac(self, *words):
        return self.run("virtual-mac", *words)

    def app(self, *words):
        self.screen.line("  " + self.screen.colour("36", "korvel-app " + " ".join(words)))
        return self.run("korvel-app", "--timeout", str(5 * self.patience), *words)

    def status(self):
        return json.loads(self.mac("--json", "status"))

    def saved(self):
        folder = pathlib.Path(self.root, "disk/Library/Application Support/com.korvel.app.helper")
        return json.loads((folder / "state.json").read_text(encoding="utf-8"))

    def start_application(self):
        """An application stays connected, as one with a menu-bar icon does."""
        self.application = subprocess.Popen(
            [str(self.programs / "korvel-app"), "--root", self.root, "watch", "--every", "5"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def end_application(self):
        if self.application:
            self.application.terminate()
            self.application.wait()
            self.application = None

    def tell_news(self):
        """Passes on what the journal has since the last time."""
        if self.journal is None:
            self.journal = open(os.path.join(self.root, "journal"), encoding="utf-8")
        for line in self.journal:
            outcome = OUTCOME.match(line.rstrip("\n"))
            if outcome and not any(word in outcome[2] for word in NOISE):
                if outcome[2].startswith("charge enforcement "):
                    self.screen.outcome = outcome[2][len("charge enforcement "):]
                self.screen.event(float(outcome[1]), outcome[2])
            event = STORY.match(line.rstrip("\n"))
            if event:
                self.screen.event(float(event[1]), event[2])

    def look(self):
        self.tell_news()
        status = self.status()
        self.screen.state(status)
        return status

    def wait_for(self, what, holds, seconds):
        """Looks until it holds; in `seconds` real seconds it has to, or more with an emulator."""
        seconds *= self.patience
        deadline = time.monotonic() + seconds
        status = self.look()
        while not holds(status):
            if time.monotonic() > deadline:
                raise NotSeen(f"{what}: not within {seconds} s. The machine: {status}")
            time.sleep(LOOK_SECONDS)
            status = self.look()
        self.tell_news()
        self.screen.seen(what)
        return status

    def hold(self, what, holds, seconds):
        """Looks for `seconds` real seconds; it has to hold at every look."""
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            status = self.look()
            if not holds(status):
                raise NotSeen(f"{what}: it does not hold. The machine: {status}")
            time.sleep(LOOK_SECONDS)
        self.screen.seen(what)

    def check(self, what, holds):
        if not holds:
            raise NotSeen(f"{what}: it is not so. The machine: {self.status()}")
        self.screen.seen(what)


def paused(status):
    return status["chargingInhibited"] and status["smcKeys"]["CHTE"] == [1, 0, 0, 0]


def allowed(status):
    return not status["chargingInhibited"] and status["smcKeys"]["CHTE"] == [0, 0, 0, 0]


def set_the_limit(mac, screen):
    screen.chapter("A Mac with the newer charging keys, at 76 % and charging")
    mac.mac("up", "--profile", "newer-keys", *mac.kind)
    mac.mac("set", "battery", "76")
    mac.wait_for("76 %, adapter in, charging", lambda s: 76 <= s["batteryPercent"] < 77
                 and s["adapterConnected"] and s["charging"], 5)
    started = mac.status()["seconds"]

    screen.chapter("The application asks for a limit of 80 %")
    mac.start_application()
    mac.wait_for("the helper has accepted it", lambda s: s["enforcement"]["connects"] > 0, 10)
    mac.app("set-limit", "80")
    mac.check("the limit is on the disk", mac.saved()["chargeLimit"] == 80)
    mac.mac("speed", str(SPEED))
    mac.wait_for("at 80 % charging is paused: CHTE = 01 00 00 00",
                 lambda s: paused(s) and 79.4 <= s["batteryPercent"] < MOST, 15)
    mac.hold("the charge is held", lambda s: paused(s) and not s["charging"]
             and 79 < s["batteryPercent"] < MOST, 2)
    return started


def walk_and_crash(mac, screen):
    screen.chapter("Away from the desk: the adapter is pulled")
    mac.mac("speed", str(WALK_SPEED))
    mac.mac("set", "adapter", "off")
    mac.wait_for("the battery drains", lambda s: s["draining"] and s["batteryPercent"] < 78, 15)

    screen.chapter("On the way the helper is killed with SIGKILL")
    mac.mac("speed", "1")
    old = mac.status()["helperPid"]
    mac.mac("kill", "KILL")
    mac.wait_for(f"helper {old} is gone", lambda s: s["helperPid"] != old, 5)
    mac.check("the hardware keeps what it was told: the gate is still paused", paused(mac.status()))
    mac.wait_for("launchd has started the helper again", lambda s: s["helperPid"] not in (None, old), 10)
    mac.check("the saved limit is still 80", mac.saved()["chargeLimit"] == 80)

    mac.mac("speed", str(WALK_SPEED))
    mac.wait_for("below 75 %", lambda s: s["batteryPercent"] < 74.4, 15)
    mac.mac("speed", str(SPEED))
    screen.chapter("Back at the desk: the adapter is in again")
    mac.mac("set", "adapter", "on")
    mac.wait_for("below the band charging goes on", lambda s: allowed(s) and s["charging"], 10)
    mac.wait_for("and is paused again at 80 %",
                 lambda s: paused(s) and 79.4 <= s["batteryPercent"] < MOST, 20)
    mac.hold("where it is held", lambda s: paused(s) and not s["charging"], 1.5)


def hand_back(mac, screen):
    screen.chapter("The limit is cleared")
    mac.app("clear-limit")
    mac.wait_for("charging goes on at once", lambda s: allowed(s) and s["charging"], 5)
    mac.check("the number is remembered for the next time", mac.saved()["chargeLimit"] == 80)
    mac.hold("nobody holds it back", lambda s: allowed(s) and s["charging"], 1)

    screen.chapter("The application leaves and tells the helper to quit")
    mac.end_application()
    mac.app("quit")
    mac.wait_for("the helper has ended", lambda s: s["helperPid"] is None, 5)
    mac.check("in order: exit status 0", re.search(r"helper \d+ exited 0\n$",
              "".join(l for l in open(os.path.join(mac.root, "journal"), encoding="utf-8")
                      if " proc " in l)) is not None)
    mac.wait_for("charging is macOS's again, past 80 %",
                 lambda s: allowed(s) and s["charging"] and s["batteryPercent"] > MOST + 1, 15)


def write_trace(mac, trace):
    """The run as a page. Where even that fails, the demonstration's own outcome counts."""
    try:
        mac.mac("trace", trace, "--title", TITLE)
        address = pathlib.Path(trace).resolve().as_uri()
        mac.screen.line(f"Look into it with any browser, no server is needed: {address}")
    except (NotSeen, subprocess.TimeoutExpired, OSError) as failure:
        mac.screen.line(f"There is no page of it: {failure}")


def main(programs, timeline, trace, *kind):
    screen = Screen()
    began = time.monotonic()
    root = tempfile.mkdtemp(prefix="virtual-mac-")
    mac = Mac(pathlib.Path(programs), root, screen, kind)
    try:
        started = set_the_limit(mac, screen)
        walk_and_crash(mac, screen)
        hand_back(mac, screen)
        mac.mac("timeline", timeline, "--from", f"{started:.3f}", "--percent", "76",
                "--title", TITLE)
        screen.line(f"\nEvery step was seen in the machine, in {time.monotonic() - began:.0f} s. "
                    f"The picture: {timeline}")
        write_trace(mac, trace)
        return 0
    except (NotSeen, subprocess.TimeoutExpired, OSError, ValueError, KeyError) as failure:
        screen.line("\nNOT SEEN  " + str(failure))
        write_trace(mac, trace)
        return 1
    except KeyboardInterrupt:
        screen.line("\nstopped")
        return 130
    finally:
        mac.end_application()
        try:
            subprocess.run([str(mac.programs / "virtual-mac"), "--root", root, "down"],
                           capture_output=True, timeout=20, check=False)
        except (subprocess.TimeoutExpired, OSError) as failure:
            screen.line(f"The machine in {root} did not go down: {failure}")
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    if len(sys.argv) not in (4, 5) or sys.argv[4:] not in ([], ["--tin"]):
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    sys.exit(main(*sys.argv[1:]))
