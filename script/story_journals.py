"""Compares the journals of one story that two programs played among real processes.

The lines of each kind, and of each category of the log, have to be the same in the same order; so
have those that one thread of the helper's core tells, because threads do not wait for each other.
Two playings by one program are not alike in every letter. This much is passed over, and no more:

- Times; in a record, moments that are near the machine's clock, and the time of writing. Where a
  record tells a write without its time, one before it was less than two seconds ago: the time had
  not changed, or it was not written.
- Numbers of processes: the first one that a journal names is process 1, and so on.
- How often a line stands that repeats itself, because late ticks of a timer come as one. Three or
  more may be one more or fewer; ten or more may be up to twice as many.
- Lines after the story's end, at the end of a kind, that only one journal has. The machine runs on
  a little after a story, so that everything of the story itself comes before that.
- Lines after the machine was told to go down, but for a helper's bad end: it may be told to end
  before it listens.
- Levels of the battery, which the machine tells. In their place, the level at each write of a
  hardware key may be 3 points apart: that is a third of a second in the usual speed.
- The errors in EXPECTED, which differ for a reason.
"""
import collections
import datetime
import itertools
import json
import re

LINE = re.compile(r"^([\d.]+) (smc|disk|log|reply|power|app|mac|proc) +(.*)$")
PROCESS = re.compile(r"\b(pid[= ]|client |helper )(\d+)\b(?!\.)")
MOMENT = re.compile(r"(?<=At=)(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)(?:\.\d+)?Z")
WRITE_TIME = re.compile(r" ?\blastWriteAt=T")
LEVEL = re.compile(r"battery (?:set to )?(\d+) %$")
GOING_DOWN = "going down"
BAD_END = re.compile(r"helper \d+ (?:exited (?!0$)|killed by signal (?!15$))")
UNCHANGED = "no field differs"
# How lines of the core begin that other threads tell than the rest: those of connections, and that
# of the hardware.
OTHER_THREADS = re.compile(r'HelperImpl \w+ "(client |charge enforcement )')

# On a Mac a state file is replaced by rename(2), which has errors of POSIX. The virtual Mac's own
# helper asks a file manager, which has its own.
EXPECTED = [(re.compile(r"(atomic rename failed: .*) \[NS(?:POSIX|Cocoa)ErrorDomain \d+\]"),
             r"\1 [the error of a replacement]")]

MACHINES_START = datetime.datetime(2026, 1, 1)
CLOCK_SECONDS = 600  # a moment may be so far from the machine's clock: a second, as sped up
SAME_WRITE_SECONDS = 2
NEAR_LEVELS = 3
LINES_WITHOUT_OUTCOME = 12
FEWEST_TICKS = 3   # so many lines in a row may be one more or fewer
MANY_TICKS = 10    # so many may be twice as many


class Line:
    """One line without what may differ; `level` is the battery's, `timed` that of a record's write:
    True, False, or None where both may be."""

    def __init__(self, seconds, text, level=None, timed=False):
        self.seconds, self.text, self.level, self.timed = seconds, text, level, timed

    def is_like(self, other):
        times = None in (self.timed, other.timed) or self.timed == other.timed
        near = None in (self.level, other.level) or abs(self.level - other.level) <= NEAR_LEVELS
        return self.text == other.text and times and near

    def repeats(self, other):
        return self.text == other.text and self.timed == other.timed

    def __str__(self):
        return f"{self.seconds:.3f} {self.text}"


def as_line(printed):
    """A line of the journal, also where it was printed as an object; anything else as it is."""
    if not printed.startswith("{"):
        return printed
    told = json.loads(printed)
    return f"{told['seconds']:.3f} {told['kind']:5} {told['text']}" if "kind" in told else printed


class Journal:
    """What one playing printed: the lines by kind, and how it went."""

    def __init__(self, printed):
        self.kinds = collections.defaultdict(list)
        last = "\n".join(printed.splitlines()[-LINES_WITHOUT_OUTCOME:])
        self.outcome = {"ok": False, "report": "it did not end; its last lines:\n" + last}
        self.processes, self.level, self.written = {}, None, None
        down = False
        for text in map(as_line, printed.splitlines()):
            found = LINE.match(text)
            if found and down:
                if BAD_END.match(found[3]):
                    self.add(0, "end of the last helper", found[3])
            elif found and found[3] == GOING_DOWN:
                down = True
            elif found:
                self.add(float(found[1]), found[2], found[3])
            elif text.startswith("{"):
                self.outcome = json.loads(text)
        self.held = self.outcome["ok"]
        self.end = self.outcome.get("seconds", 0)
        self.count = sum(len(lines) for lines in self.kinds.values())

    def add(self, seconds, kind, text):
        level = LEVEL.match(text) if kind == "mac" else None
        if level:
            self.level = int(level[1])
            if " set to " not in text:
                return
        text = PROCESS.sub(self.named, MOMENT.sub(lambda moment: told(moment, seconds), text))
        for pattern, replacement in EXPECTED:
            text = pattern.sub(replacement, text)
        line = Line(seconds, text, self.level if kind == "smc" else None)
        if kind == "disk":
            self.take_write_time(line)
        if kind == "log":
            thread = OTHER_THREADS.match(text)
            kind += " " + text.split()[0] + (f" ({thread[1].rstrip()})" if thread else "")
        self.kinds[kind].append(line)

    def named(self, found):
        number = self.processes.setdefault(found[2], len(self.processes) + 1)
        return f"{found[1]}[process {number}]"

    def take_write_time(self, line):
        line.text, timed = WRITE_TIME.subn("", line.text)
        line.text = line.text.replace(" " + UNCHANGED, "")
        line.timed = bool(timed)
        if timed:
            self.written = line.seconds
        elif self.written is not None and line.seconds - self.written < SAME_WRITE_SECONDS:
            line.timed = None


def told(moment, seconds):
    """A moment of a record that is told so many seconds after the machine's start."""
    clock = MACHINES_START + datetime.timedelta(seconds=seconds)
    near = abs(datetime.datetime.fromisoformat(moment[1]) - clock).total_seconds() < CLOCK_SECONDS
    return "T" if near else moment[0]


def runs(lines):
    """The lines, with those together that repeat each other."""
    together = []
    for line in lines:
        if together and together[-1][-1].repeats(line):
            together[-1].append(line)
        else:
            together.append([line])
    return together


def are_ticks(one, other):
    few, many = sorted((len(one), len(other)))
    return few >= FEWEST_TICKS and many - few <= 1 or few >= MANY_TICKS and many <= 2 * few


def comes_later(lines, index, end):
    """True when the lines from this index on were told after the story's end."""
    return all(line.seconds > end for line in lines[index:])


def difference_of(kind, first, second, names):
    """The first difference in one kind; none: there is none."""
    ours, theirs = first.kinds.get(kind, []), second.kinds.get(kind, [])
    here = there = 0  # how many lines have been compared
    for one, other in itertools.zip_longest(runs(ours), runs(theirs), fillvalue=[]):
        if one and other and one[0].is_like(other[0]) and (
                len(one) == len(other) or are_ticks(one, other)):
            here, there = here + len(one), there + len(other)
            continue
        shared = min(len(one), len(other)) if one and other and one[0].is_like(other[0]) else 0
        here, there = here + shared, there + shared
        if here == len(ours) and comes_later(theirs, there, second.end):
            return None
        if there == len(theirs) and comes_later(ours, here, first.end):
            return None
        return f"{kind}, line {here + 1}\n" + "\n".join(
            f"    {name:6} {lines[index] if index < len(lines) else 'nothing more'}"
            for name, lines, index in zip(names, (ours, theirs), (here, there)))
    return None


def differences(first, second, names):
    """The first difference of each kind, as text; none: the journals tell the same."""
    found = (difference_of(kind, first, second, names)
             for kind in sorted(set(first.kinds) | set(second.kinds)))
    return [text for text in found if text]


TOLD = """\
1.350 proc  helper 979 started
2.198 log   HelperImpl default "HelperImpl boot pid=979 limit=80"
2.944 disk  state.json created: chargeLimit=80 lastWriteAt=0001-01-01T00:00:00Z topUpActive=false
5.100 mac   battery set to 79 %
10.994 app   client 989 connected
10.999 log   HelperImpl default "client connected (count=1)"
11.050 log   HelperImpl default "client connect — arming polling"
11.212 log   HelperImpl default "setChargeLimit(80) pid=989"
11.369 disk  state.json replaced: lastWriteAt=2026-01-01T00:00:11Z
11.414 reply setChargeLimit ok
12.300 disk  state.json replaced: lastWriteAt=2026-01-01T00:00:12Z topUpActive=true
40.000 mac   battery 80 %
47.797 smc   CHTE <- 01 00 00 00
47.802 log   SMCWriter default "SMC write CHTE bytes=[1, 0, 0, 0]"
60.797 smc   CHTE <- 00 00 00 00
60.802 log   SMCWriter default "SMC write CHTE bytes=[0, 0, 0, 0]"
""" + "".join(f"{70 + 5 * tick}.000 power native limit none (pid 979)\n" for tick in range(12)) + """\
170.200 power SleepDisabled = 0
{"ok": true, "seconds": 180.0, "report": ""}
195.000 log   HelperImpl default "limit gentle (pid=979)"
210.000 mac   going down
211.000 proc  helper 979 exited 0
"""

NOTICED = {
    "a changed line": [("setChargeLimit ok", 'setChargeLimit failed 400 "no"')],
    "a lost line": [("11.414 reply setChargeLimit ok\n", "")],
    "a lost last line of a kind": [("170.200 power SleepDisabled = 0\n", "")],
    "an additional line": [("11.414 reply", "11.300 reply ping ok\n11.414 reply")],
    "an additional last line": [("170.200 power", "170.100 smc   CHIE <- 00\n170.200 power")],
    "a line twice": [("47.797 smc", "47.796 smc   CHTE <- 01 00 00 00\n47.797 smc")],
    "another order": [("47.797 smc   CHTE <- 01", "47.797 smc   CHTE <- 00"),
                      ("60.797 smc   CHTE <- 00", "60.797 smc   CHTE <- 01")],
    "another process": [('"setChargeLimit(80) pid=989"', '"setChargeLimit(80) pid=979"')],
    "another field": [("topUpActive=true", "topUpActive=false")],
    "a field that is lost": [("00:00:12Z topUpActive=true", "00:00:12Z")],
    "a kind that is lost": [("170.200 power SleepDisabled = 0\n", ""),
                            ("power native limit none", "mac   native limit none")],
    "a level far away": [("40.000 mac   battery 80 %", "40.000 mac   battery 84 %")],
    "another order in a thread": [("11.050 log   HelperImpl default \"client connect — arming", "X"),
                                  ("10.999 log", "11.050 log   HelperImpl default \"client connect —"
                                   " arming polling\"\n10.999 log"), ("X polling\"\n", "")],
    "a clock that is wrong": [("=2026-01-01T00:00:12Z", "=1995-01-01T00:00:12Z")],
    "too few ticks": [(f"{70 + 5 * tick}.000 power native limit none (pid 979)\n", "")
                      for tick in range(8)],
    "a write's time where there was none": [("=80 lastWriteAt=0001-01-01T00:00:00Z", "=80")],
    "a different line after the end": [("limit gentle", "limit rough")],
    "a last helper's bad end": [("helper 979 exited 0", "helper 979 killed by signal 6")],
    "a last helper that had to be killed": [("helper 979 exited 0", "helper 979 killed by signal 9")],
    "a story that did not hold": [('"ok": true', '"ok": false')],
}
PASSED_OVER = {
    "other processes, times and dates": [("979", "12979"), ("989", "7"), ("11.2", "13.9"),
                                         ("0:11Z", "1:13.5Z")],
    "which kind comes first": [("11.369 disk  state.json replaced: lastWriteAt=2026-01-01T00:00:11Z"
                                "\n11.414 reply setChargeLimit ok\n", "11.3 reply setChargeLimit ok"
                                "\n11.5 disk  state.json replaced: lastWriteAt=2026-01-01T00:00:11Z\n")],
    "which thread comes first": [('default "setChargeLimit(80) pid=989"', 'default "X"'),
                                 ('default "client connect — arming polling"',
                                  'default "setChargeLimit(80) pid=989"'),
                                 ('default "X"', 'default "client connect — arming polling"')],
    "a second write within a second": [(" lastWriteAt=2026-01-01T00:00:12Z topUp", " topUp")],
    "a near level": [("40.000 mac   battery 80 %", "40.000 mac   battery 81 %")],
    "ticks that came as one": [(f"{70 + 5 * tick}.000 power native limit none (pid 979)\n", "")
                               for tick in range(2)],
    "a line after the end": [('195.000 log   HelperImpl default "limit gentle (pid=979)"\n', "")],
    "what the end of the machine tells": [("helper 979 exited 0", "helper 979 killed by signal 15")],
}


def self_test():
    """Shows that differences are noticed, and what may differ is not. Returns an exit status."""
    wrong = []
    for expected, variants in ((True, NOTICED), (False, PASSED_OVER)):
        for what, changes in variants.items():
            text = TOLD
            for old, new in changes:
                if old not in text:
                    wrong.append(f"{what}: {old!r} is not there")
                text = text.replace(old, new)
            for one, other in ((TOLD, text), (text, TOLD)):
                first, second = Journal(one), Journal(other)
                found = differences(first, second, ("one", "other"))
                noticed = bool(found) or not (first.held and second.held)
                if noticed != expected:
                    wrong.append(f"{what}: {'not noticed' if expected else found}")
    objects = "".join(json.dumps({"ok": True, "seconds": float(line[1]), "kind": line[2], "text": line[3]})
                      + "\n" if (line := LINE.match(text)) else text + "\n"
                      for text in TOLD.splitlines())
    found = differences(Journal(TOLD), Journal(objects), ("lines", "objects"))
    if found or objects.count("{") < TOLD.count("\n"):
        wrong.append(f"lines that were printed as objects: {found}")
    print("\n".join(wrong) or f"{len(NOTICED)} differences noticed, {len(PASSED_OVER)} passed over")
    return 1 if wrong else 0
