"""From what a run draws: requests, deeds, faults, and the moments of the helper's death."""
import pathlib
import re

WRITE, DISCHARGE, TOP_OFF, NEITHER = "a write", "a discharge", "a top-off", "none of these"

REQUESTS = ("set-limit 80", "set-limit 55", "set-limit 30", "set-limit 5", "clear-limit",
            "keep-awake on", "keep-awake off", "discharge on", "discharge off", "top-off",
            "cancel-top-off", "state", "capabilities", "ping", "reset")
QUESTIONS = ("state", "capabilities", "ping")
SETTERS = ("keep-awake on", "keep-awake off", "clear-limit", "discharge on", "ping")
DEEDS = (("set", "adapter", "off"), ("set", "adapter", "on"), ("set", "lid", "closed"),
         ("set", "lid", "open"), ("set", "battery", "95"), ("set", "battery", "40"), ("touch",),
         ("sleep",), ("wake",), ("reboot",), ("power-loss",))
# With these a helper that is killed forgets that SleepDisabled is its own: docs/failure-modes.md.
FORGETTING = (("disk-full",), ("disk-rename-fails",), ("settings-refused",))
FAULTS = (("smc-silent-refusal", "CHTE"), ("assertion-refused",), ("smc-result", "CHIE", "133"),
          ("battery-unreadable",), ("smc-missing",))
# What brings the helper there.
AIMS = {DISCHARGE: ("set-limit 50", "keep-awake on", "discharge on"),
        TOP_OFF: ("discharge off", "set-limit 70", "top-off")}

# A kill at one of these leaves the record or the system's setting half written.
WRITES = {"fileOpenExclusive", "fileWrite", "fileFsync", "fileClose", "fileReplaceItem", "settingsSet"}


def all_calls():
    text = (pathlib.Path(__file__).resolve().parents[2] / "VirtualMac/Schedule/Calls.def").read_text(
        encoding="utf-8")
    return re.findall(r"^SEAM_CALL\((\w+),", text, re.M)


CALLS = all_calls()


def aim(chance):
    return chance.choices((WRITE, DISCHARGE, TOP_OFF, NEITHER), (35, 20, 15, 30))[0]


def call(chance, what):
    """The call at which the helper shall die; none: it dies at any time."""
    if what == WRITE:
        return chance.choice(sorted(WRITES))
    return chance.choice(CALLS) if chance.random() < 0.5 else None
