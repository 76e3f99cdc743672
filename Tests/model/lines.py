#!/usr/bin/env python3
"""Compares the lines of HelperImpl* that the model's stories do not execute with named exceptions.

usage: lines.py REPOSITORY EXPORT EXCEPTIONS
       lines.py --self-test

EXPORT is what llvm-cov exports; a line of EXCEPTIONS reads as those of script/coverage do.
"""
import collections
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "script"))
import coverage  # noqa: E402

HELD = "KorvelHelper/HelperImpl"


def complaints(files, named):
    left = collections.Counter((path, text) for path, what, text in named)
    yield from (f"{path}: an exception is for a line here, not for {what} `{text}`"
                for path, what, text in named if what != "line")
    for path, file in sorted(files.items()):
        for what, line, text in file.missed() if path.startswith(HELD) else ():
            if what != "line" or text == "}":
                continue
            if left[path, text] > 0:
                left[path, text] -= 1
            else:
                yield f"{path}:{line}: not executed: {text}"
    for (path, text), count in left.items():
        if count > 0:
            yield f"{path}: an exception is executed, or gone: `{text}`"


def self_test():
    def tree(count):
        file = coverage.File(HELD + ".cpp", ["go();", "trap();"])
        file.lines = {1: 1, 2: count}
        other = coverage.File("KorvelHelper/Other.cpp", ["rest();"])
        other.lines = {1: 0}
        return {file.path: file, other.path: other}

    exception = (HELD + ".cpp", "line", "trap();")
    assert not list(complaints(tree(1), []))
    assert list(complaints(tree(0), [])) == [HELD + ".cpp:2: not executed: trap();"]
    assert not list(complaints(tree(0), [exception]))
    assert list(complaints(tree(1), [exception]))
    assert list(complaints(tree(1), [(HELD + ".cpp", "true", "a > b")]))


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    root, export, excepted = map(pathlib.Path, sys.argv[1:])
    files = coverage.read(root.resolve(), export)
    held = [file for path, file in files.items() if path.startswith(HELD)]
    if not held:
        sys.exit(f"{export} tells nothing of {HELD}*")
    found = list(complaints(files, coverage.exceptions(excepted)))
    lines = [count for file in held for count in file.lines.values()]
    print("\n".join(found + [f"{sum(count > 0 for count in lines)} of {len(lines)} lines of {HELD}* are executed"]))
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
