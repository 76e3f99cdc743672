"""The lives of the Mac's program in which its work is counted.

A machine's time almost stands still while something is counted, so that no tick comes between: the
log of the emulator is read when all has come to rest, then one thing is done, and when all rests
again, what the log has more is the work of that thing."""
import collections
import pathlib
import re
import time

import mac
from arm64_program import Unusable
from execution import Execution

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
OPERATION = re.compile(r'^OPERATION\(\w+, "[^"]*", \w+,\s+\w+, "([^"]+)"\)$', re.M)
REST = 0.25          # real seconds in which nothing may happen
STILL, TICKING = 0.05, 5  # virtual seconds in a real one; a tick comes every 5 of them
BATTERY, LIMIT = "90", "set-limit 80"  # so the limit is held, and a discharge has something to do
# In this order each finds work, and after the last the helper is as it was.
ROUND = ("ping", "capabilities", "state", "clear-limit", LIMIT, "discharge on", "discharge off",
         "keep-awake on", "keep-awake off", "top-off", "cancel-top-off", "reset")
ROUNDS, TICKS, SLEEPS = 3, 5, 3
ENDS = ("quit", "SIGTERM")

START, CONNECTS, LEAVES = "start, until the service answers", "a client connects", "a client leaves"
TICK, SLEEP, WAKE = "a tick that holds a limit", "before sleep, holding a limit", "after sleep"


def not_asked(operations):
    """The operations of the protocol, of Operations.def, that no life asks for."""
    asked = {words.split()[0] for words in (*ROUND, *ENDS)}
    return sorted(set(OPERATION.findall(operations)) - asked)


class Life:
    """A machine with the program; `counts`: row -> the columns' counts, each time it was done."""

    def __init__(self, options, image, told=lambda row: None):
        self.counts, self.told = collections.defaultdict(list), told
        self.machine = mac.Mac(options.programs.resolve(), options.helper.resolve(),
                               options.program.resolve(), options.patience)
        folder = self.machine.place / "counts"
        folder.mkdir()
        self.machine.environment["TIN_MAC_COUNTS"] = str(folder)
        try:
            self.machine.up(speed=STILL)
            self.pid = self.machine.status()["helperPid"]
            if self.pid is None:
                raise mac.Unmet("the program starts")
            self.execution = Execution(folder / f"{self.pid}.log", image)
            self.count(START, lambda: self.machine.logs("system power observer"))
            self.count(CONNECTS, self.machine.connect)
            self.app = self.machine.sessions[0]
        except BaseException:
            self.machine.down()
            raise

    def rests(self):
        """All threads of the program sleep, or it has ended."""
        try:
            return all(path.read_text(encoding="utf-8").rsplit(")", 1)[1].split()[0] == "S"
                       for path in pathlib.Path(f"/proc/{self.pid}/task").glob("*/stat"))
        except OSError:  # A thread has ended.
            return False

    def settle(self):
        deadline = time.monotonic() + self.machine.patience
        size, since = -1, time.monotonic()
        while time.monotonic() - since < REST:
            if self.execution.size() != size or not self.rests():
                size, since = self.execution.size(), time.monotonic()
            if time.monotonic() > deadline:
                raise mac.Unmet("the program comes to rest")
            time.sleep(mac.BRIEF)

    def count(self, row, deed):
        """Does it, and counts what it leads to; without a row, nobody wants to know."""
        self.told(row)
        deed()
        self.settle()
        counts = self.execution.read()
        if row:
            self.counts[row].append(counts)

    def ask(self, words, row=None):
        self.count(row, lambda: self.app.does(words))

    def hold_limit(self):
        self.ask("ping")
        self.machine.tell("set", "battery", BATTERY)
        self.ask(LIMIT)

    def come_to_tick(self):
        size = self.execution.size()
        self.machine.becomes("a tick comes", lambda: self.execution.size() > size)

    def work(self):
        """Every operation again and again; the first round finds a younger record, and does not count."""
        self.hold_limit()
        for turn in range(1 + ROUNDS):
            for words in ROUND:
                self.ask(words, words if turn else None)
            self.ask(LIMIT)
        self.machine.tell("speed", str(TICKING))
        for turn in range(1 + TICKS):
            self.count(TICK if turn else None, self.come_to_tick)
        self.machine.tell("speed", str(STILL))
        for _ in range(SLEEPS):
            self.count(SLEEP, lambda: self.machine.tell("sleep"))
            self.count(WAKE, lambda: self.machine.tell("wake"))
        self.count(LEAVES, self.app.end)

    def end(self, by):
        self.hold_limit()

        def ends():
            if by == "quit":
                self.app.ask("quit")
            else:
                self.machine.tell("kill", "TERM")
            self.machine.logs(f"helper {self.pid} exited 0")

        self.count(by, ends)
        if "exit" not in self.execution.called:
            raise Unusable("the emulator's log ends before the program does")


def lived(options, image, end, told):
    """The counts of one life: of all the work, or of a short one with its end."""
    life = Life(options, image, told)
    try:
        if end:
            life.end(end)
        else:
            life.work()
        life.machine.notice_traps()
        return life.counts
    finally:
        life.machine.down()
