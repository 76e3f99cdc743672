#!/usr/bin/env python3
"""Checks that every C++ and JavaScript file is as clang-format 19 writes it (.clang-format).

usage: format.py [--fix] REPOSITORY [FILE...]    files that are neither are passed over
       format.py --self-test
"""
import pathlib
import subprocess
import sys

import tree
import web

FORMATTER = "clang-format-19"
BATCH = 20


def formatted(root, names, fix):
    """Findings of the formatter on `names`; with `fix` it rewrites them instead."""
    found = []
    mode = ["-i"] if fix else ["--dry-run", "--ferror-limit=1"]
    for start in range(0, len(names), BATCH):
        done = subprocess.run([FORMATTER, "--style=file"] + mode + names[start:start + BATCH],
                              cwd=root, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"{FORMATTER} failed: {done.stderr}")
        found += [line.replace("code should be clang-formatted", "not formatted; run script/lint --fix")
                  for line in done.stderr.splitlines() if "warning:" in line]
    return found


def all_names(root):
    return [n for n in tree.files(root) if not n.endswith(".def")] + tree.files(root, web.SCRIPTS)


def check(root):
    return formatted(root, all_names(root), False)


def self_test():
    style = {".clang-format": "BasedOnStyle: Google\n"}
    tree.expect(check, style | {"KorvelHelper/A.cpp": "int a = 1;\n"})
    tree.expect(check, style | {"KorvelHelper/A.cpp": "int  a=1;\n"}, "A.cpp:1:4: warning: not formatted")
    tree.expect(check, style | {"VirtualMac/Viewer/a.js": "const a = 1;\n",
                                "VirtualMac/Viewer/lib/b.js": "const  b=1\n"})
    tree.expect(check, style | {"VirtualMac/Viewer/a.js": "const  a = 1;\n"}, "a.js:1:6: warning: not")


def main(arguments):
    if arguments == ["--self-test"]:
        self_test()
        print("the check passes a formatted file and finds one that is not")
        return
    fix = "--fix" in arguments
    rest = [a for a in arguments if a != "--fix"]
    if not rest or rest[0].startswith("-"):
        sys.exit(__doc__.strip())
    root = pathlib.Path(rest[0]).resolve()
    names = all_names(root)
    if rest[1:]:  # A changed file of another kind has no format.
        asked = {pathlib.Path(f).resolve().relative_to(root).as_posix() for f in rest[1:]}
        names = [name for name in names if name in asked]
    tree.report(formatted(root, names, fix), len(names), "files", "every file is formatted")


if __name__ == "__main__":
    main(sys.argv[1:])
