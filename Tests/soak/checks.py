"""What must hold once everything is healed, compared with the machine before the first death."""
import collections
import os
import pathlib
import re
import time

from mac import NotHeld

FIELDS = ("chargeLimit", "forceDischargeActive", "heatPauseActive", "helperVersion", "lastWriteAt",
          "lastWriteVerified", "sailingBand", "sleepDisabledByKorvel", "topUpActive")
ENDED = ("forceDischargeActive", "sleepDisabledByKorvel", "topUpActive")
TICK = 5.0          # Virtual seconds between two looks of the helper at the battery.
SLACK = 2.0         # Virtual seconds for the work of a tick and for looking at it.
SLOW = 10           # Virtual seconds in a real one while a tick is measured.
TRIES = 5           # A busy computer may be late now and then; a helper that is wrong always is.
GATE_PATIENCE = 8   # Real seconds.
SPARE = {"descriptors": 2, "threads": 2, "kilobytes": 32768}
SETTLING = 10       # Real seconds for what is on its way out, such as a client's last thread.


class Baseline:
    """The machine as it was first, and everything that is compared with it."""

    def __init__(self, mac, applications):
        self.mac = mac
        self.applications = applications
        self.peaks = collections.Counter()
        self.count = 0
        self.quieten()
        self.first = self.books()
        self.files = self.kinds_of_files()

    def check(self, first=lambda: None):
        """`first` is done on the quiet machine before it is looked at."""
        self.quieten()
        first()
        self.nothing_is_left()
        self.record_is_whole()
        self.gate_is_right()
        self.books_are_balanced()
        self.count += 1

    def quieten(self):
        """No request is under way, a limit is held, and nothing else is asked of the helper."""
        self.mac.running()
        for each in self.applications:
            each.settle()
        for request in ("discharge off", "keep-awake off", "cancel-top-off", "set-limit 60"):
            self.ask(request)

    def ask(self, request):
        """A top-off that does not run cannot be cancelled."""
        told = self.applications[0].ask(request)
        if not told["ok"] and request != "cancel-top-off":
            raise NotHeld(f"{request} on a healed machine: {told}")

    def record_is_whole(self):
        record = self.mac.record()
        missing = [field for field in FIELDS if record is None or field not in record]
        if missing:
            raise NotHeld(f"the record lacks {missing}: {record}")
        if record["chargeLimit"] != 60 or any(record[field] for field in ENDED):
            raise NotHeld(f"the record is another: {record}")

    def gate_is_right(self):
        """Charging stops above the limit, and goes on below its band, each within a tick."""
        self.mac.command("speed", SLOW)
        took = {}
        for _ in range(TRIES):
            for percent, inhibited in ((95, True), (40, False)):
                now = self.time_to_gate(percent, inhibited)
                took[percent] = min(took.get(percent, now), now)
            if max(took.values()) <= TICK + SLACK:
                break
        else:
            raise NotHeld(f"the gate takes {took} virtual seconds, by percent")
        self.mac.command("speed", self.mac.speed)

    def time_to_gate(self, percent, inhibited):
        self.mac.command("set", "battery", percent)
        begun = self.mac.status()["seconds"]
        status = self.mac.until(lambda told: told["chargingInhibited"] == inhibited, GATE_PATIENCE)
        if status is None:
            raise NotHeld(f"the gate is never {'closed' if inhibited else 'open'} at {percent} %")
        return status["seconds"] - begun

    def nothing_is_left(self):
        status = self.mac.status()
        left = {name: status[name] for name in ("inflowInhibited", "sleepDisabled", "assertions",
                                                "forbiddenWrites", "callsUnderWay") if status[name]}
        if left:
            raise NotHeld(f"left behind: {left}")
        files = self.kinds_of_files()
        if files - self.files:
            raise NotHeld(f"files left behind: {dict(files - self.files)}")

    def kinds_of_files(self):
        """The machine's files, a number in a name being any number."""
        return collections.Counter(re.sub(r"\d+", "N", name) for name in self.mac.files())

    def books(self):
        """Of every process that works for the machine, by its program's name: the most of each count."""
        told = collections.defaultdict(collections.Counter)
        for name, pid in processes(self.mac.root):
            try:
                for count, number in books(pid).items():
                    told[name][count] = max(told[name][count], number)
            except OSError:
                continue  # It has ended since.
            told[name]["processes"] += 1
        return told

    def books_are_balanced(self):
        end = time.monotonic() + SETTLING
        while excess := self.excess(now := self.books()):
            if time.monotonic() > end:
                raise NotHeld(f"more than at first: {excess}")
            time.sleep(0.05)
        for name, counts in now.items():
            for count, number in counts.items():
                self.peaks[f"{name}: {count}"] = max(self.peaks[f"{name}: {count}"], number)

    def excess(self, now):
        return [f"{name} has {number} {count}, and had {self.first[name][count]}"
                for name, counts in now.items() for count, number in counts.items()
                if number > self.first[name][count] + SPARE.get(count, 0)]


def processes(root):
    """The name and the id of each process that was given the machine's directory, or whose parent was."""
    word = os.fsencode(root)
    names, parents, given = {}, {}, set()
    for each in pathlib.Path("/proc").iterdir():
        if not each.name.isdigit():
            continue
        try:
            words = (each / "cmdline").read_bytes().split(b"\0")
            names[each.name], parents[each.name] = re.search(
                r"\((.*)\) \S (\d+)", (each / "stat").read_text(encoding="utf-8", errors="replace")).groups()
            environment = (each / "environ").read_bytes()
        except OSError:
            continue  # It has ended, or is another user's.
        if word in words or word in environment:
            given.add(each.name)
    return [(name, int(pid)) for pid, name in names.items() if pid in given or parents[pid] in given]


def books(pid):
    """The descriptors, threads and resident kilobytes of a process."""
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="utf-8")
    read = {name: int(found.group(1)) if (found := re.search(rf"^{name}:\s+(\d+)", status, re.M)) else 0
            for name in ("Threads", "VmRSS")}
    return {"descriptors": len(os.listdir(f"/proc/{pid}/fd")), "threads": read["Threads"],
            "kilobytes": read["VmRSS"]}
