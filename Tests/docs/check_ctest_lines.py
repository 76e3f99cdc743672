#!/usr/bin/env python3
"""Checks every line of the documents that calls the test runner: it says where the tests are, by a
preset that exists or a directory, and a pattern of names (-R) selects at least one test.

usage: check_ctest_lines.py REPOSITORY BUILD
       check_ctest_lines.py --self-test
"""
import json
import pathlib
import re
import shlex
import sys

CALL = re.compile(r"(?:^ *|`)((?:ctest|script/test)(?: [^`\n]*)?)(?:`|$)", re.M)


def calls_in(document):
    """(line, words) of every call, in a block of code or in a span; a span may go on in the next
    line."""
    text = re.sub(r"`([^`\n]*)\n([^`\n]*)`", r"`\1 \2`\n", document)
    for match in CALL.finditer(text):
        # Comments in a block, and the escaped bar of a table, are not part of the call.
        words = shlex.split(match.group(1).replace("\\|", "|"), comments=True)
        yield text.count("\n", 0, match.start(1)) + 1, words


def value_of(words, *options):
    for index, word in enumerate(words[:-1]):
        if word in options:
            return words[index + 1]
    return None


def defects(name, document, presets, selected):
    """`selected(pattern)` says how many tests a pattern selects."""
    for line, words in calls_in(document):
        call = " ".join(words)
        preset = value_of(words, "--preset")
        if preset is not None and preset not in presets:
            yield f"{name}:{line}: {call}: there is no test preset {preset}"
        if words[0] == "ctest" and preset is None and value_of(words, "--test-dir") is None:
            yield f"{name}:{line}: {call}: says neither --preset nor --test-dir; it finds no tests"
        pattern = value_of(words, "-R", "--tests-regex")
        if pattern is not None and selected(pattern) == 0:
            yield f"{name}:{line}: {call}: no test's name fits"


def self_test():
    def found(document):
        return list(defects("d", document, {"clang"}, lambda p: len(re.findall(p, "Part.One"))))
    for good in ("`ctest --preset clang -R Part`", "```\nctest --preset clang -LE x   # it's all\n```",
                 r"| a | `ctest --test-dir build/x -R 'Part\|Two'` |", "`script/test -R '^Part\\.'`",
                 "of (`ctest --preset clang\n-R Part`) it", "`script/test`", "the ctest of it"):
        assert not found(good), (good, found(good))
    for bad, why in (("`ctest --preset clang -R Two`", "d:1: ctest --preset clang -R Two: no test's"),
                     ("a\n\n`script/test -R Two`", "d:3: script/test -R Two: no test's name"),
                     ("```\nctest --preset gone -L x\n```", "d:2: ctest --preset gone -L x: there is no"),
                     ("(`ctest -R Part`)", "d:1: ctest -R Part: says neither"),
                     ("see (`ctest --preset clang -R\nTwo`).", "d:1: ctest --preset clang -R Two: no")):
        assert len(found(bad)) == 1 and found(bad)[0].startswith(why), (bad, found(bad))
    assert [words for _, words in calls_in("x\nctest --preset clang -R Part\ny")] == [
        ["ctest", "--preset", "clang", "-R", "Part"]]
    print("the check finds patterns without a test, presets that are none, and calls without a place")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 2:
        sys.exit(__doc__)
    root, build = (pathlib.Path(argument).resolve() for argument in arguments)
    sys.path.insert(0, str(root / "script" / "checks"))
    import registered
    settings = json.loads((root / "CMakePresets.json").read_text(encoding="utf-8"))
    presets = {preset["name"] for preset in settings["testPresets"]}

    found, count = [], 0
    for path in [*sorted(root.glob("*.md")), *sorted((root / "docs").glob("**/*.md"))]:
        document = path.read_text(encoding="utf-8")
        count += sum(1 for _ in calls_in(document))
        found += defects(path.relative_to(root), document, presets,
                         lambda pattern: len(registered.known_to(build, "-R", pattern)))
    for line in found:
        print(line)
    if found or not count:
        sys.exit(f"{len(found)} of {count} calls of the test runner in the documents do not work")
    print(f"{count} calls of the test runner in the documents, each finds its tests")


if __name__ == "__main__":
    main(sys.argv[1:])
