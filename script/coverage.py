#!/usr/bin/env python3
"""Reads what llvm-cov exports, prints a table of the rooms, and holds the core to its figure.

usage: coverage.py TREE EXPORT EXCEPTIONS [--json FILE]
       coverage.py --self-test

Every line and branch of the core is executed, but for those that EXCEPTIONS names with a reason.
An exception that is executed, or that is not there any more, is a mistake too.
"""
import argparse
import collections
import json
import pathlib
import re
import sys

# The rooms by the beginning of their files' paths; the first that fits counts.
ROOMS = (("the Mac's adapters", "KorvelHelper/macOS/"), ("seam", "KorvelHelper/Platform/"),
         ("core", "KorvelHelper/"), ("model", "Tests/model/reference/"), ("machine", "VirtualMac/Machine/"),
         ("in process", "VirtualMac/InProcess/"), ("schedule", "VirtualMac/Schedule/"))
HELD = ("core", "seam")
MOST_EXCEPTIONS = 0.01  # of the core's branches
EXCEPTION = re.compile(r"^(?P<file>\S+): (?P<what>line|true|false) `(?P<text>.+)`: unreachable because \S.*$")


def room_of(path):
    return next((room for room, start in ROOMS if path.startswith(start)), None)


class File:
    """The lines and branches of one file, with how often each was executed."""

    def __init__(self, path, source):
        self.path = path
        self.source = source
        self.lines = {}
        self.branches = collections.Counter()  # by (line, column, end line, end column, outcome)
        self.conditions = [0, 0]               # independent ones that are shown, and all

    def text(self, place):
        line, column, last, end = place[:4]
        text = self.source[line - 1][column - 1:end - 1 if last == line else None]
        return " ".join(text.split())

    def missed(self):
        """(what, line, text) of everything that was not executed."""
        for line, count in sorted(self.lines.items()):
            if count == 0:
                yield "line", line, " ".join(self.source[line - 1].split())
        for place, count in sorted(self.branches.items()):
            if count == 0:
                yield ("true" if place[4] else "false"), place[0], self.text(place)


def executed_lines(segments):
    """{line: count}, as a reader of the source counts: a line has the most of what begins in it, or
    of what reaches over it."""
    found, wrapped = {}, None
    by_line = collections.defaultdict(list)
    for segment in segments:
        by_line[segment[0]].append(segment)
    if not by_line:
        return found
    for line in range(min(by_line), max(by_line) + 1):
        here = by_line.get(line, [])
        starts = [each for each in here if each[3] and each[4] and not each[5]]
        first_is_skipped = bool(here) and not here[0][3] and here[0][4]
        is_mapped = not first_is_skipped and ((wrapped is not None and wrapped[3]) or bool(starts))
        if is_mapped:
            count = wrapped[2] if wrapped is not None and wrapped[3] else 0
            found[line] = max([count, *(each[2] for each in starts)]) if starts else count
        if here:
            wrapped = here[-1]
    return found


def read(tree, export):
    """The files of the rooms, by path."""
    files = {}
    for each in json.loads(export.read_text(encoding="utf-8"))["data"][0]["files"]:
        path = pathlib.Path(each["filename"])
        if not path.is_relative_to(tree):
            continue
        name = path.relative_to(tree).as_posix()
        if room_of(name) is None:
            continue
        file = File(name, path.read_text(encoding="utf-8").splitlines())
        file.lines = executed_lines(each["segments"])
        for line, column, last, end, true, false, *_ in each["branches"]:
            # What the language decides, or writes itself, is no branch of the source.
            is_written = not file.source[line - 1].endswith("= default;")
            if is_written and file.text((line, column, last, end)) not in ("true", "false"):
                file.branches[line, column, last, end, True] += true
                file.branches[line, column, last, end, False] += false
        file.conditions = [each["summary"]["mcdc"]["covered"], each["summary"]["mcdc"]["count"]]
        files[name] = file
    return files


def exceptions(path):
    """[(file, what, text)], in order; a line that is none ends the program."""
    found = []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        told = EXCEPTION.match(line)
        if told is None:
            sys.exit(f"{path}:{number}: an exception reads FILE: line|true|false `TEXT`: unreachable because …")
        found.append((told["file"], told["what"], told["text"]))
    return found


def complaints(files, named):
    """A line for each mistake of the rooms that are held to the whole."""
    left = collections.Counter(named)
    branches = sum(len(file.branches) for file in files.values() if room_of(file.path) in HELD)
    for path, file in sorted(files.items()):
        if room_of(path) not in HELD:
            continue
        for what, line, text in file.missed():
            if left[path, what, text] > 0:
                left[path, what, text] -= 1
            else:
                happened = "not executed" if what == "line" else f"never {what}"
                yield f"{path}:{line}: {happened}: {text}"
    for (path, what, text), count in left.items():
        if count > 0:
            yield f"{path}: an exception is executed, or gone: {what} `{text}`"
    never = sum(what != "line" for _, what, _ in named)
    if never > MOST_EXCEPTIONS * branches:
        yield f"{never} exceptions are more than one in a hundred of {branches} branches"


def figures(files):
    """{room: {what: [executed, all]}}."""
    rooms = {}
    for room, _ in ROOMS:
        of_room = [file for file in files.values() if room_of(file.path) == room]
        if of_room:
            rooms[room] = {
                "lines": [sum(count > 0 for file in of_room for count in file.lines.values()),
                          sum(len(file.lines) for file in of_room)],
                "branches": [sum(count > 0 for file in of_room for count in file.branches.values()),
                             sum(len(file.branches) for file in of_room)],
                "conditions": [sum(file.conditions[part] for file in of_room) for part in (0, 1)]}
    return rooms


def share(pair):
    return f"{pair[0]:>6} of {pair[1]:<6} {100 * pair[0] / pair[1] if pair[1] else 100:6.2f} %"


def self_test():
    """Each of these mistakes is noticed, and a tree without one has none."""
    source = ["int half(int a) {", "  if (a > 3) return 1;", "  return 0;", "}"]

    def tree(false_count, exception=None):
        file = File("KorvelHelper/Half.cpp", source)
        file.lines = executed_lines([[1, 17, 5, True, True, False], [2, 23, false_count, True, False, True],
                                     [3, 3, false_count, True, True, False], [4, 2, 0, False, False, False]])
        file.branches = collections.Counter({(2, 7, 2, 12, True): 5, (2, 7, 2, 12, False): false_count})
        other = File("VirtualMac/Machine/Half.cpp", source)
        other.lines = {1: 0}
        return list(complaints({file.path: file, other.path: other}, [exception] if exception else []))

    line, branch = (("KorvelHelper/Half.cpp", "line", "return 0;"), ("KorvelHelper/Half.cpp", "false", "a > 3"))
    assert not tree(1), tree(1)
    assert sorted(tree(0)) == ["KorvelHelper/Half.cpp:2: never false: a > 3",
                               "KorvelHelper/Half.cpp:3: not executed: return 0;",
                               "KorvelHelper/Half.cpp:4: not executed: }"], tree(0)
    assert len([each for each in tree(0, line) if "never false" in each]) == 1
    assert any("more than one in a hundred" in each for each in tree(0, branch))
    assert any("is executed, or gone" in each for each in tree(1, branch))
    assert EXCEPTION.match("A.cpp: line `x = `y`;`: unreachable because the seam never says so")
    assert not EXCEPTION.match("A.cpp: line `x;`: unreachable because ")
    assert not EXCEPTION.match("A.cpp: line `x;`: hard to reach")


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    for name in ("tree", "export", "exceptions"):
        parser.add_argument(name, type=pathlib.Path)
    parser.add_argument("--json", type=pathlib.Path, help="write the figures there, too")
    words = parser.parse_args()
    files = read(words.tree.resolve(), words.export)
    if not any(room_of(path) == "core" for path in files):
        sys.exit(f"{words.export} tells nothing of the core")
    rooms = figures(files)
    print(f"{'':<20} {'lines':<26} {'branches':<26} conditions (MC/DC)")
    for room, told in rooms.items():
        print(f"{room:<20} " + " ".join(f"{share(told[what]):<26}" for what in told).rstrip())
    if words.json:
        words.json.write_text(json.dumps(rooms, indent=1) + "\n", encoding="utf-8")
    named = exceptions(words.exceptions)
    found = list(complaints(files, named))
    print("\n".join(found) if found else f"core and seam are executed whole, but for {len(named)} named exceptions")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
