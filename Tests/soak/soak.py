#!/usr/bin/env python3
"""Random commands of eight applications, faults, sleep, and the helper's death again and again.

After every so many deaths everything is healed, and what must hold then is looked at. Exit status
0: it held every time.
"""
import argparse
import collections
import json
import os
import pathlib
import random
import signal
import sys
import time

import draw
from application import Application
from checks import Baseline
from mac import Mac, NotHeld
from plants import self_test

CLIENTS = 8
SPEED = 200
HELD = 0.4      # Real seconds for the helper to come to the call at which it shall die.
FOREVER = 1e6   # Virtual seconds, longer than a run takes.


class Soak:
    def __init__(self, programs, seed):
        self.random = random.Random(seed)
        self.mac = Mac(programs, SPEED)
        self.tally = collections.Counter()
        self.calls = collections.Counter()
        self.held = collections.Counter()
        self.missed = collections.Counter()
        self.under_way = collections.Counter()
        self.faults = []
        self.forgot = False
        self.asleep = False
        self.applications = []
        try:
            self.applications += [Application(self.mac) for _ in range(CLIENTS)]
            self.baseline = Baseline(self.mac, self.applications)
        except NotHeld:
            self.end()
            raise

    def end(self):
        for each in self.applications:
            each.end()
        self.mac.end()

    def kills(self):
        return sum(self.calls.values())

    def step(self):
        """One death of the helper, at a moment that is aimed at, or at any."""
        aim = draw.aim(self.random)
        if self.asleep:
            self.asleep = not self.mac.attempt("wake")
        if self.random.random() < 0.1:
            self.disturb()
        elif self.random.random() < 0.3:
            self.mend()
        call = draw.call(self.random, aim)
        if self.missed[call] > 2 and not self.held[call]:
            call = None  # This kind of Mac's helper does not make it.
        if aim != draw.NEITHER:
            self.bring(aim)
        if call:
            self.mac.command("fault", "call-latency", call, FOREVER, "on")
        self.busy(aim)
        pid = self.mac.running()
        if call:
            self.missed[call] += self.mac.until(lambda status: status["callsUnderWay"], HELD) is None
        else:
            time.sleep(self.random.uniform(0, 0.04))
        if call:  # What is held stays so; the next helper must not be.
            self.mac.command("fault", "call-latency", call, FOREVER, "off")
        self.kill(pid)

    def bring(self, aim):
        """Brings the helper to a discharge or a top-off, if the faults of now allow one."""
        self.mac.running()
        sender = self.sender()
        if not sender or aim not in draw.AIMS:
            return
        self.mac.attempt("set", "adapter", "on")
        self.mac.attempt("set", "battery", "80")
        for request in draw.AIMS[aim]:
            sender.tell(request)
        end = time.monotonic() + HELD
        while self.state_of(self.mac.status()) != aim and time.monotonic() < end:
            time.sleep(0.004)

    def sender(self):
        """The first of the applications that has come back; none: it takes too long."""
        order = self.random.sample(self.applications, CLIENTS)
        end = time.monotonic() + HELD
        while time.monotonic() < end:
            for each in order:
                if each.connected:
                    return each
            time.sleep(0.004)
        return None

    def busy(self, aim):
        """Others ask meanwhile; what is aimed at goes on."""
        requests = draw.QUESTIONS if aim in draw.AIMS else draw.REQUESTS
        for _ in range(self.random.randrange(3)):
            self.random.choice(self.applications).tell(self.random.choice(requests))
        if aim == draw.WRITE:
            order = self.random.sample(self.applications, CLIENTS)
            sender = next((each for each in order if each.connected), order[0])
            sender.tell(f"set-limit {self.random.randrange(20, 101)}")
            sender.tell(self.random.choice(draw.SETTERS))

    def disturb(self):
        """Something that a person, the hardware or the system does."""
        if self.random.random() < 0.7:
            words = self.random.choice(draw.DEEDS)
            self.tally[" ".join(words)] += self.mac.attempt(*words)
            self.asleep = self.asleep or words == ("sleep",)
            return
        # After every second check, SleepDisabled must be off without a person's help.
        forgetting = draw.FORGETTING if self.baseline.count % 2 else ()
        fault = self.random.choice(draw.FAULTS + forgetting)
        self.mac.command("fault", *fault, "on")
        self.faults.append(fault)
        self.forgot = self.forgot or fault in draw.FORGETTING
        self.tally[f"fault {fault[0]}"] += 1

    def kill(self, pid):
        status = self.mac.status()
        if status["callsUnderWay"]:
            number = self.random.choice((signal.SIGKILL,) * 4 + (signal.SIGSTOP,))
        else:
            number = self.random.choice((signal.SIGKILL,) * 8 + (signal.SIGTERM, signal.SIGSTOP))
        under_way = self.state_of(status)
        try:
            os.kill(pid, number)
            if number == signal.SIGSTOP:
                time.sleep(self.random.uniform(0, 0.03))
                os.kill(pid, signal.SIGCONT)
                os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            self.mac.gone(pid)
            self.kill(self.mac.running())  # It ended by itself, as at a reboot; its heir may be held.
            return
        self.mac.gone(pid)
        self.mac.record()
        self.tally[number.name] += 1
        if number == signal.SIGTERM:
            return
        last = self.mac.status()["lastCallOfEndedHelper"] or "none yet"
        self.under_way[under_way] += 1
        self.calls[last] += 1
        self.held[last] += last in status["callsUnderWay"]

    def state_of(self, status):
        """By the calls that wait, the hardware and the record on the disk."""
        if draw.WRITES.intersection(status["callsUnderWay"]):
            return draw.WRITE
        record = self.mac.record() or {}
        if status["inflowInhibited"] or record.get("forceDischargeActive"):
            return draw.DISCHARGE
        return draw.TOP_OFF if record.get("topUpActive") else draw.NEITHER

    def mend(self):
        for fault in self.faults:
            self.mac.attempt("fault", *fault, "off")
        self.faults.clear()

    def heal(self):
        self.mend()
        for words in (("set", "adapter", "on"), ("set", "lid", "open"), ("wake",)):
            self.mac.attempt(*words)
        forgot = self.forgot
        self.forgot = self.asleep = False
        self.baseline.check(self.switch_off if forgot else lambda: None)

    def switch_off(self):
        """The remedy for a helper that could neither save nor clear: a person switches it off."""
        if self.mac.status()["sleepDisabled"]:
            self.mac.command("set", "sleep-disabled", "off")
            self.tally["SleepDisabled switched off by hand"] += 1


def results(soak, asked, seconds):
    aimed = sum(count for state, count in soak.under_way.items() if state != draw.NEITHER)
    return {"seed": asked.seed, "shard": asked.shard, "kills": soak.kills(), "seconds": round(seconds),
            "checks": soak.baseline.count, "during": dict(soak.under_way), "duringAny": aimed,
            "did": dict(sorted(soak.tally.items())), "peaks": dict(sorted(soak.baseline.peaks.items())),
            "calls": dict(soak.calls.most_common()), "callsHeld": dict(soak.held)}


def table(told):
    lines = [f"{told['kills']} kills in {told['seconds']} s, seed {told['seed']}, {told['checks']} checks"]
    lines += ["", "under way at the kill"]
    lines += [f"  {name:<38} {count:>7}" for name, count in told["during"].items()]
    share = 100 * told["duringAny"] / max(1, told["kills"])
    lines += [f"  {'any of the three':<38} {told['duringAny']:>7}  {share:.1f} %", "", "was done"]
    lines += [f"  {name:<38} {count:>7}" for name, count in told["did"].items()]
    lines += ["", "the most of a process, after healing"]
    lines += [f"  {name:<38} {count:>7}" for name, count in told["peaks"].items()]
    lines += ["", "the last platform call before the kill, and how often it was still unanswered"]
    lines += [f"  {name:<38} {count:>7} {told['callsHeld'].get(name, 0):>7}"
              for name, count in told["calls"].items()]
    return "\n".join(lines)


def say(text):
    print(text, flush=True)


def soaked(soak, asked, begun):
    def seconds():
        return time.monotonic() - begun

    while soak.kills() < asked.kills and seconds() < asked.seconds:
        before = soak.kills() // asked.every
        soak.step()
        if soak.kills() // asked.every > before:
            soak.heal()
            say(f"{soak.kills()} kills, all held ({seconds():.0f} s)")
    soak.heal()
    told = results(soak, asked, seconds())
    if asked.json:
        asked.json.write_text(json.dumps(told, indent=1) + "\n", encoding="utf-8")
    say("\n" + table(told))
    short = asked.half and 2 * told["duringAny"] < told["kills"]
    if short:
        say("fewer than half of the kills were during a write, a discharge or a top-off")
    return 1 if short else 0


def main(arguments):
    reader = argparse.ArgumentParser(description=__doc__)
    reader.add_argument("programs", type=pathlib.Path)
    reader.add_argument("--kills", type=int, default=1000)
    reader.add_argument("--seconds", type=float, default=float("inf"))
    reader.add_argument("--seed", type=int, default=1)
    reader.add_argument("--shard", default="1/1", help="adds to the seed")
    reader.add_argument("--every", type=int, default=100, help="kills from one check to the next")
    reader.add_argument("--half", action="store_true", help="fewer than half of the kills as aimed: 1")
    reader.add_argument("--json", type=pathlib.Path)
    reader.add_argument("--journal", type=pathlib.Path, default="soak.journal")
    reader.add_argument("--self-test", action="store_true")
    asked = reader.parse_args(arguments)
    begun = time.monotonic()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # The machine is taken down first.
    soak = Soak(asked.programs.resolve(), f"{asked.seed} {asked.shard}")
    try:
        if asked.self_test:
            return 0 if self_test(soak, say) else 1
        return soaked(soak, asked, begun)
    except NotHeld as problem:
        asked.journal.write_text(soak.mac.run("journal"), encoding="utf-8")
        say(f"NOT HELD after {soak.kills()} kills, seed {asked.seed}, shard {asked.shard}: {problem}\n"
            f"The journal is kept in {asked.journal}.")
        return 1
    finally:
        soak.end()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
