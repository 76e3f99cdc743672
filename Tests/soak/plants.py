"""Mistakes that are planted on a healed machine, each of which a check must find."""
import os
import subprocess

from checks import SPARE
from mac import Control, NotHeld


class Planter:
    def __init__(self, soak):
        self.soak = soak
        self.mac = soak.mac
        self.undo = []

    def stuck_setting(self):
        self.mac.command("set", "sleep-disabled", "on")
        self.undo.append(lambda: self.mac.command("set", "sleep-disabled", "off"))

    def leaked_assertion(self):
        """A discharge goes on, and the Mac is kept awake for it."""
        self.mac.command("set", "battery", 90)
        self.soak.applications[1].ask("discharge on")

    def broken_record(self):
        file = self.mac.record_file()
        whole = file.read_bytes()
        file.write_bytes(whole[:len(whole) // 2])
        self.undo.append(lambda: file.write_bytes(whole))

    def gate_that_does_not_move(self):
        self.mac.command("fault", "smc-silent-refusal", "CHTE", "on")
        self.undo.append(lambda: self.mac.command("fault", "smc-silent-refusal", "CHTE", "off"))

    def left_file(self):
        file = self.mac.record_file().with_name("state.json.left")
        file.write_text("left", encoding="utf-8")
        self.undo.append(file.unlink)

    def left_directory(self):
        directory = self.mac.record_file().with_name("left")
        directory.mkdir()
        self.undo.append(directory.rmdir)

    def leaked_process(self):
        left = subprocess.Popen(["sleep", "600"], env={**os.environ, "LEFT": str(self.mac.root)})
        self.undo += [left.wait, left.kill]

    def leaked_descriptors(self):
        """Each connection is a descriptor of the machine's own process."""
        for _ in range(SPARE["descriptors"] + 1):
            self.undo.append(Control(self.mac.root).close)

    def leaked_thread(self):
        """As if the helper had had fewer threads at first."""
        first = self.soak.baseline.first["KorvelHelper"]
        threads = first["threads"]
        first["threads"] = -SPARE["threads"]
        self.undo.append(lambda: first.__setitem__("threads", threads))

    def restore(self):
        for each in reversed(self.undo):
            each()
        self.undo.clear()
        self.mac.command("speed", self.mac.speed)


# By what the check that finds it says.
PLANTS = {"stuck_setting": "left behind: {'sleepDisabled'", "leaked_assertion": "'PreventSystemSleep'",
          "broken_record": "not whole", "gate_that_does_not_move": "the gate is never",
          "left_file": "files left behind", "left_directory": "files left behind",
          "leaked_process": "sleep has 1 processes", "leaked_descriptors": "descriptors, and had",
          "leaked_thread": "threads, and had"}


def self_test(soak, say):
    """Returns whether every mistake was found, by the check that is for it."""
    planter = Planter(soak)
    missed = 0
    for name, told in PLANTS.items():
        try:
            soak.baseline.check(getattr(planter, name))
            found = "nothing was found"
        except NotHeld as problem:
            found = str(problem)
        finally:
            planter.restore()
        right = told in found
        missed += not right
        say(f"{name.replace('_', ' '):<26} {'found' if right else 'MISSED'}: {found[:300]}")
    soak.baseline.check()
    return missed == 0
