#!/usr/bin/env python3
"""Prints what script/tin-mac found: one table. Exit status 1 when the program broke a rule or left
an object behind.

usage: tin-mac.py PROGRAM ROOMS-LOG PROCESS-LOG BOOKS
"""
import collections
import hashlib
import json
import pathlib
import re
import sys

# Objects that a run may leave, how many, and why: exit() unwinds nothing.
ALLOWED = {
    "dispatch_source": (2, "the core keeps its timers until the process ends"),
    "dispatch_group": (1, "the end waits in it while another thread works"),
    "IOPMAssertion": (2, "the system drops them when the end did not wait for hung hardware"),
}

CLOSING = re.compile(r"(\d+)% tests passed, (\d+) tests failed out of (\d+)")


def passed(log):
    """Like "87 of 87", from the test runner's closing line."""
    found = CLOSING.findall(pathlib.Path(log).read_text(encoding="utf-8", errors="replace"))
    if not found:
        sys.exit(f"tin-mac: the test runner did not finish: {log}")
    _, failed, all_tests = map(int, found[-1])
    return f"{all_tests - failed} of {all_tests}"


def summary(books):
    """How many runs ended in which way, what they left that nobody owns, rules bent, traps."""
    left, notes, traps, ended = (collections.Counter() for _ in range(4))
    for path in sorted(pathlib.Path(books).glob("*.json")):
        book = json.loads(path.read_text(encoding="utf-8"))
        ended[book["reason"]] += 1
        if "trap" in book:
            traps[f"{book['trap']['rule']}: {book['trap']['detail']}"] += 1
        if book["reason"] != "exit":
            continue  # Connections still own objects: nothing was settled.
        for name, count in book.get("aboveMark", {}).items():
            left[name] += max(0, count - ALLOWED.get(name, (0,))[0])
        for note in book["notes"]:
            notes[note["rule"]] += note["times"]
    return ended, left, notes, traps


def main(arguments):
    if len(arguments) != 4 or arguments[0].startswith("-"):
        sys.exit(__doc__.strip())
    program, rooms, process, books = arguments
    ended, left, notes, traps = summary(books)
    digest = hashlib.sha256(pathlib.Path(program).read_bytes()).hexdigest()
    rows = [("program (SHA-256)", digest),
            ("tests of the rooms passed", passed(rooms)),
            ("process tests passed", passed(process)),
            ("runs with books", ", ".join(f"{n} by {why}" for why, n in ended.items()) or "none"),
            ("live objects above the start", str(sum(left.values()))),
            ("misuse traps", str(sum(traps.values()))),
            ("rules bent", str(sum(notes.values())))]
    print()
    for title, value in rows:
        print(f"{title:32}{value}")
    for title, counter in (("left behind", left), ("trap", traps), ("bent", notes)):
        for name, count in (+counter).most_common():
            print(f"  {title}: {name} ({count})")
    if not ended:
        sys.exit("tin-mac: no run wrote its books")
    if sum(left.values()) or traps:
        sys.exit(1)


if __name__ == "__main__":
    main(sys.argv[1:])
