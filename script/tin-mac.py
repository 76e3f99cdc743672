#!/usr/bin/env python3
"""Prints what script/tin-mac found: one table, from the steps' logs. Exit status 1 when the program
broke a rule or left an object behind, or other bytes ran than those that were checked.

usage: tin-mac.py PROGRAM LOGS
       tin-mac.py --self-test
"""
import collections
import hashlib
import json
import pathlib
import re
import sys
import tempfile

# Objects that a run may leave, how many, and why: exit() unwinds nothing.
ALLOWED = {
    "dispatch_source": (3, "the core keeps its three timers until the process ends"),
    "dispatch_group": (1, "the end waits in it while another thread works"),
    "IOPMAssertion": (2, "the system drops them when the end did not wait for hung hardware"),
}

RUNNER = re.compile(r"^(?P<percent>\d+)% tests passed, (?P<failed>\d+) tests failed out of "
                    r"(?P<all>\d+)$", re.M)
COUNT = re.compile(r"^(?P<count>\d+ of \d+) ", re.M)
RAN = re.compile(r"^(?P<all>\d+) tests ran, (?P<failed>\d+) failed$", re.M)
EDGE = re.compile(r"^ *(?P<hit>\d+) +(?P<all>\d+)  KorvelHelper/macOS/ in all$", re.M)
NOT_JUDGED = re.compile(r"^NOT JUDGED: .*$", re.M)
CHECKED = re.compile(r"^SHA-256 (?P<digest>[0-9a-f]{64})$", re.M)


def last(pattern, text):
    found = list(pattern.finditer(text))
    return found[-1] if found else None


def of_tests(text):
    """Like "87 of 87", from the closing line of a test runner."""
    found = last(RUNNER, text) or last(RAN, text)
    return found and f"{int(found['all']) - int(found['failed'])} of {found['all']}"


def of_count(text):
    found = last(COUNT, text)
    return found and found["count"]


def of_counts(text):
    """Counts of another compiler than the baseline's are not judged, and the table says so."""
    found = last(NOT_JUDGED, text)
    return found[0] if found else of_count(text)


def of_lines(text):
    found = last(EDGE, text)
    excused = len(re.findall(r"^  excused: ", text, re.M))
    return found and f"{found['hit']} of {found['all']}, {excused} excused"


STEPS = (("rooms", "tests of the rooms passed", of_tests),
         ("frameworks", "tests of the frameworks passed", of_tests),
         ("process", "process tests passed", of_tests),
         ("clients", "tests with the sample client", of_tests),
         ("adapters", "adapter tests passed", of_tests),
         ("stories", "stories, journals as on Linux", of_count),
         ("faults", "faults act as on Linux", of_count),
         ("counts", "counts not above the baseline", of_counts),
         ("mistakes", "planted mistakes noticed", of_count),
         ("coverage", "edge lines executed", of_lines))


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


def report(program, logs):
    """Prints the table; the lines that say why it is not to be had, or not good."""
    faults = []
    digest = hashlib.sha256(program.read_bytes()).hexdigest()
    rows = [("program that ran (SHA-256)", digest)]
    checked = last(CHECKED, (logs / "checks").read_text(encoding="utf-8"))
    rows.append(("program that was checked", checked["digest"] if checked else "NONE"))
    if not checked or checked["digest"] != digest:
        faults.append("other bytes ran than those that script/macos-checks checked")
    for name, title, read in STEPS:
        path = logs / name
        text = path.read_text(encoding="utf-8", errors="replace") if path.exists() else ""
        value = read(text)
        rows.append((title, value or "NOT FINISHED"))
        if not value:
            faults.append(f"a step did not come to its end: {title}")
    ended, left, notes, traps = summary(logs / "books")
    rows += [("runs with books", ", ".join(f"{n} by {why}" for why, n in ended.items()) or "none"),
             ("live objects above the start", str(sum(left.values()))),
             ("misuse traps", str(sum(traps.values()))),
             ("rules bent", str(sum(notes.values())))]
    print()
    for title, value in rows:
        print(f"{title:32}{value}")
    for title, counter in (("left behind", left), ("trap", traps), ("bent", notes)):
        for name, count in (+counter).most_common():
            print(f"  {title}: {name} ({count})")
            faults.append(f"{title}: {name}")
    if not ended:
        faults.append("no run wrote its books")
    return faults


def self_test():
    assert of_counts("3 of 4 counts\n") == "3 of 4" and not of_counts("Killed\n")
    assert of_counts("3 of 4 counts\nNOT JUDGED: why\n") == "NOT JUDGED: why"
    with tempfile.TemporaryDirectory() as folder:
        logs = pathlib.Path(folder)
        program = logs / "program"
        program.write_bytes(b"bytes")
        (logs / "checks").write_text("SHA-256 " + hashlib.sha256(b"bytes").hexdigest() + "\n")
        for name, _, read in STEPS:
            (logs / name).write_text({of_tests: "50% tests passed, 1 tests failed out of 2\n",
                                      of_count: "3 of 4 things\n",
                                      of_counts: "NOT JUDGED: other compiler (5 of 6)\n",
                                      of_lines: "  7   8  KorvelHelper/macOS/ in all\n"}[read])
        books = logs / "books"
        books.mkdir()
        book = {"reason": "exit", "aboveMark": {"dispatch_source": 3}, "notes": []}
        (books / "1.json").write_text(json.dumps(book))
        assert report(program, logs) == [], report(program, logs)
        (books / "2.json").write_text(json.dumps(
            {"reason": "exit", "aboveMark": {"NSData": 1, "dispatch_source": 4},
             "notes": [{"rule": "a rule", "times": 2}]}))
        (books / "3.json").write_text(json.dumps(
            {"reason": "trap", "trap": {"rule": "CFRelease", "detail": "NULL"}}))
        program.write_bytes(b"other")
        (logs / "process").write_text("Killed\n")
        found = report(program, logs)
        assert found == [
            "other bytes ran than those that script/macos-checks checked",
            "a step did not come to its end: process tests passed",
            "left behind: dispatch_source", "left behind: NSData", "trap: CFRelease: NULL",
            "bent: a rule"], found
        for path in books.iterdir():
            path.unlink()
        assert "no run wrote its books" in report(program, logs)


def main(arguments):
    if arguments == ["--self-test"]:
        self_test()
        return
    if len(arguments) != 2 or arguments[0].startswith("-"):
        sys.exit(__doc__.strip())
    faults = report(*map(pathlib.Path, arguments))
    for fault in faults:
        print(f"tin-mac: {fault}", file=sys.stderr)
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main(sys.argv[1:])
