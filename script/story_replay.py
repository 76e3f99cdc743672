"""Compares the journal of a story among real processes with that of its recording, played in this
process: the lines of each kind, and of each category of the log, have to be the same in the same
order, and none may come more than a tick of the helper's loop earlier or later.

story_journals.py says what two playings may differ in. This much more is passed over, because in
this process clients are no processes, the disk is no file system, and the helper's work takes no
time:

- How a client's life is told: here it connects, there it identifies itself and is connected. Its
  number is counted apart from the helper's, because a helper that it starts is told before it there
  and after it here.
- How clients end with their Mac, which only a process notices.
- Which comes first of the helper's power calls and what the machine makes of them: here it settles
  when the helper has done all of its work, there after each call.
- The words of an error of the disk.
- The level that a story sets at its start: a machine in real time has left its own by then.
- Lines near the end of the recorded journal and after it, which the recording may run on to.
"""
import itertools
import json
import re

import story_journals

TICK_SECONDS = 5
END = re.compile(r"^# ended at ([\d.]+)$", re.M)
REBOOT = re.compile(r"^([\d.]+) proc  signal 15 to helper \d+\n(?:(?!.* proc  helper \d+ started).*\n)*?"
                    r"[\d.]+ mac   reboot$", re.M)
LEAVES = re.compile(r"^[\d.]+ app   client \d+ disconnected\n", re.M)
STARTED = re.compile(r"^[\d.]+ proc  helper (\d+) started$", re.M)
OF_THE_MACHINE = re.compile(r"(?:sleep \(|asleep$|awake|message )")
DISK_ERROR = re.compile(r"(atomic rename failed: ).*(?= \[)")
PASSED_OVER = [
    (re.compile(r"^0\.\d+ mac   battery set to .*\n", re.M), ""),
    (re.compile(r"^([\d.]+ app   )client \d+ identifies as .*\n", re.M), ""),
    (re.compile(r"^([\d.]+ app   )\S+ \d+ dies\n", re.M), ""),
    (re.compile(r"^([\d.]+ app   )[\w-]+ (\d+) connects$", re.M), r"\1client \2 connected"),
    (re.compile(r"^([\d.]+ app   )[\w-]+ (\d+) disconnects$", re.M), r"\1client \2 disconnected"),
    (re.compile(r"^([\d.]+ app   )[\w-]+ (\d+) cut off: .*requirement.*$", re.M),
     r"\1client \2 cut off: requirement"),
    (re.compile(r"^([\d.]+ app   )[\w-]+ (\d+) cut off: unknown", re.M), r"\1client \2 cut off: unknown"),
]


class Journal(story_journals.Journal):
    def __init__(self, text, end):
        self.helpers = set(STARTED.findall(text))
        outcome = json.dumps({"ok": True, "seconds": end - TICK_SECONDS, "report": ""})
        super().__init__(f"{adapted(text)}\n{outcome}\n")
        told = self.kinds.pop("power", [])
        for line in told:
            whose = "machine" if OF_THE_MACHINE.match(line.text) else "helper"
            self.kinds[f"power of the {whose}"].append(line)

    def named(self, found):
        what = "helper" if found[2] in self.helpers else "client"
        known = self.processes.setdefault(what, {})
        return f"{found[1]}[{what} {known.setdefault(found[2], len(known) + 1)}]"


def adapted(text):
    text = REBOOT.sub(lambda found: LEAVES.sub("", found[0]), text)
    text = DISK_ERROR.sub(r"\1an error", text)
    for pattern, replacement in PASSED_OVER:
        text = pattern.sub(replacement, text)
    return text


def late_lines(first, second):
    """The lines that come at other times, as text. Of those that repeat themselves, the first."""
    found = []
    for kind in sorted(set(first.kinds) & set(second.kinds)):
        runs = (story_journals.runs(journal.kinds[kind]) for journal in (first, second))
        for one, other in zip(*runs):
            if abs(one[0].seconds - other[0].seconds) > TICK_SECONDS:
                found.append(f"{kind}, {other[0].seconds:.3f} in place of {one[0]}")
    return found


def differences(recorded, replayed):
    """What differs in two saved journals, as text: an order, and a time."""
    end = float(END.search(recorded)[1])
    journals = [Journal(text, end) for text in (recorded, replayed)]
    order = story_journals.differences(*journals, ("first", "again"))
    return order, late_lines(*journals)


TOLD = """\
# {"journal":1}
1.350 proc  helper 979 started
10.990 app   client 989 identifies as app
10.994 app   client 989 connected
11.212 log   HelperImpl default "setChargeLimit(80) pid=989"
11.414 reply setChargeLimit ok
47.797 smc   CHTE <- 01 00 00 00
52.000 app   client 989 cut off: does not satisfy the code-signing requirement
60.000 app   client 990 identifies as app
60.100 app   client 990 connected
61.000 app   client 990 disconnected
170.200 smc   CHTE <- 00 00 00 00
# ended at 190.000
"""
AGAIN = """\
# {"journal":1}
0.000 proc  helper 501 started
10.900 app   app 901 connects
10.900 log   HelperImpl default "setChargeLimit(80) pid=901"
10.900 reply setChargeLimit ok
45.000 smc   CHTE <- 01 00 00 00
52.000 app   app 901 cut off: requirement not satisfied
60.000 app   app 902 connects
61.000 app   app 902 disconnects
170.000 smc   CHTE <- 00 00 00 00
191.000 smc   CHTE <- 01 00 00 00
# ended at 200.000
"""
NOTICED = {
    "a lost line": ("10.900 reply setChargeLimit ok\n", ""),
    "an additional line": ("52.000 app", "50.000 smc   CHTE <- 00 00 00 00\n52.000 app"),
    "a changed line": ("45.000 smc   CHTE <- 01", "45.000 smc   CHTE <- 02"),
    "an early line": ("45.000 smc", "42.000 smc"),
    "a late line": ("45.000 smc", "53.000 smc"),
    "a client that stays": ("61.000 app   app 902 disconnects\n", ""),
    "a client that is let in": ("52.000 app   app 901 cut off: requirement not satisfied\n", ""),
    "a lost last line": ("170.000 smc   CHTE <- 00 00 00 00\n191.000 smc   CHTE <- 01 00 00 00\n", ""),
}


def self_test():
    """Shows that differences are noticed, and what may differ is not. Returns the errors."""
    wrong = [f"the same: {found}" for found in itertools.chain(*differences(TOLD, AGAIN))]
    for what, (old, new) in NOTICED.items():
        if old not in AGAIN:
            wrong.append(f"{what}: {old!r} is not there")
        if not any(differences(TOLD, AGAIN.replace(old, new))):
            wrong.append(f"{what}: not noticed")
    return wrong
