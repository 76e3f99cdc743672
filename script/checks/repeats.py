#!/usr/bin/env python3
"""Checks that no passage of code stands twice: the same lines, one after another, in two places.

Blank lines, comments, include directives, imports and white space do not count, nor do declarations of
overrides, which every class over an interface has to repeat. Tests are left out: a test may tell
its story again.

usage: repeats.py REPOSITORY
       repeats.py --self-test
"""
import re

import tree
import web

FOLDERS = ("KorvelHelper/", "VirtualMac/", "TinMac/")
LINES = 12  # A passage may be this long and stand twice.
ENDINGS = tree.SOURCES + tree.HEADERS + web.SCRIPTS + web.STYLES
IMPORT = re.compile(r"^import\b[^;]*;", re.M)
OVERRIDE = re.compile(r"(?<=[;{}:])[^;{}]*\boverride\s*;")


def code_lines(name, text):
    """(line number, line) of every line that counts. Literals count with what they say."""
    if name.endswith(web.SCRIPTS):
        code = IMPORT.sub(lambda match: "\n" * match.group(0).count("\n"), web.blanked(text))
    else:
        code = OVERRIDE.sub(lambda match: "\n" * match.group(0).count("\n"), tree.blanked(text))
    for number, (line, bare) in enumerate(zip(text.splitlines(), code.splitlines()), 1):
        if bare.strip() and not bare.lstrip().startswith("#include"):
            yield number, "".join(line.split())


def check(root):
    seen, found = {}, []
    for name in (name for name in tree.files(root, ENDINGS) if name.startswith(FOLDERS)):
        lines = list(code_lines(name, tree.read(root, name)))
        skipped = 0  # The windows that belong to the passage reported last.
        for start in range(len(lines) - LINES):
            window = tuple(line for _, line in lines[start:start + LINES + 1])
            place = (name, lines[start][0])
            first = seen.setdefault(window, place)
            if first == place:
                skipped = 0
            elif skipped:
                skipped -= 1
            else:
                found.append(f"{name}:{place[1]}: more than {LINES} lines that also begin at "
                             f"{first[0]}:{first[1]}")
                skipped = LINES
    return found


def self_test():
    passage = "".join(f"call({n});\n" for n in range(LINES))
    other = passage.replace("call", "ask")
    tree.expect(check, {"VirtualMac/A.cpp": "int a;\n" + passage + "int b;\n",
                        "VirtualMac/B.cpp": "int c;\n" + passage + "int d;\n"})
    longer = passage + "end();\n"
    spaced = longer.replace("call(5)", "// a comment\n\n  call( 5 )")
    tree.expect(check, {"KorvelHelper/A.cpp": "int a;\n" + longer, "VirtualMac/B.cpp": spaced},
                "B.cpp:1: more than 12 lines that also begin at KorvelHelper/A.cpp:2")
    tree.expect(check, {"VirtualMac/A.cpp": longer + other + longer}, "VirtualMac/A.cpp:26")
    tree.expect(check, {"VirtualMac/A.cpp": longer,
                        "VirtualMac/B.cpp": longer.replace("call(7)", "call(70)")})
    tree.expect(check, {"VirtualMac/A.cpp": longer, "Tests/B.cpp": longer})
    declared = "class A {\n" + "".join(f"  int f{n}(int a,\n  int b) override;\n"
                                       for n in range(LINES)) + "};\n"
    tree.expect(check, {"VirtualMac/A.h": declared, "VirtualMac/B.h": declared})
    imported = "import {\n" + "".join(f"  name{n},\n" for n in range(LINES)) + "} from 'viewer/a';\n"
    tree.expect(check, {"VirtualMac/Viewer/a.js": imported, "VirtualMac/Viewer/b.js": imported})
    tree.expect(check, {"VirtualMac/Viewer/a.js": longer, "VirtualMac/Viewer/b.js": "f();\n" + longer},
                "b.js:2: more than 12 lines that also begin at VirtualMac/Viewer/a.js:1")


if __name__ == "__main__":
    tree.run(__doc__, self_test, check, "files",
             f"no passage of more than {LINES} lines stands twice",
             lambda root: sum(name.startswith(FOLDERS) for name in tree.files(root, ENDINGS)))
