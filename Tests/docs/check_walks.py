#!/usr/bin/env python3
"""Checks the walks in docs/architecture.md: every step names a function, and the file it is in.

usage: check_walks.py REPOSITORY
       check_walks.py --self-test
"""
import pathlib
import re
import sys
import tempfile

FEWEST = 3  # Walks that the document has to have.
STEP = re.compile(r"^\d+\. `([\w:~]+)` \(`([^`]+)`\)", re.M)


def steps(document):
    """(walk, function, file) of every step below the heading, walks being third-level headings."""
    section = document.split("\n## Walks\n", 1)[-1].split("\n## ", 1)[0]
    for walk in section.split("\n### ")[1:]:
        title, _, text = walk.partition("\n")
        yield from ((title, *step) for step in STEP.findall(text))


def findings(root, document):
    walked = list(steps(document))
    if len({title for title, _, _ in walked}) < FEWEST:
        yield f"there are not {FEWEST} walks with steps"
    for number in re.findall(r"^\d+\. (?!`[\w:~]+` \(`[^`]+`\)).*", document, re.M):
        yield f"a step names no function and file: {number}"
    for title, function, name in walked:
        path = root / name
        if not path.is_file():
            yield f"{title}: {name} is gone"
        # Defined with its class in a source, without it in a class or a header.
        elif not re.search(r"\b" + re.escape(function if path.suffix == ".cpp" else
                                             function.split("::")[-1]) + r"\s*[(<]",
                           path.read_text(encoding="utf-8")):
            yield f"{title}: {function} is not in {name}"


def self_test():
    def walk(title, step):
        return f"\n### {title}\n\n1. `{step}` (`a.cpp`) does it.\n2. `f` (`a.h`) does more.\n"
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        (root / "a.cpp").write_text("void A::b() {}\n")
        (root / "a.h").write_text("int f(int);\n")
        good = "\n## Walks\n" + walk("x", "A::b") + walk("y", "A::b") + walk("z", "A::b") + "\n## Next\n"
        assert not list(findings(root, good)), list(findings(root, good))
        for spoiled, word in [(good.replace("A::b", "A::c", 1), "x: A::c is not in a.cpp"),
                              (good.replace("a.h", "b.h", 1), "x: b.h is gone"),
                              (good.replace("### z", "", 1), "there are not 3 walks"),
                              (good.replace("1. `A::b`", "1. it", 1), "names no function")]:
            found = list(findings(root, spoiled))
            assert len(found) == 1 and word in found[0], (word, found)
    print("the check finds steps whose function or file is gone")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 1:
        sys.exit(__doc__.strip())
    root = pathlib.Path(arguments[0])
    document = (root / "docs/architecture.md").read_text(encoding="utf-8")
    found = list(findings(root, document))
    for line in found:
        print(line)
    if found:
        sys.exit(f"{len(found)} findings in the walks")
    print(f"{len(list(steps(document)))} steps: every function is where its walk says")


if __name__ == "__main__":
    main(sys.argv[1:])
