#!/usr/bin/env python3
"""Checks that every source file belongs to something that is built: to the given build, or, in a
room of which another system has the build, to that room's own list of sources. Benchmarks count
when the build has them on.

usage: built.py REPOSITORY BUILD
       built.py --self-test
"""
import json
import pathlib
import re
import sys

import tree

ELSEWHERE = ("KorvelHelper/macOS/", "Packaging/", "Tests/macos/", "TinMac/Loader/",
             "TinMac/System/", "TinMac/Frameworks/", "TinMac/Glue/", "Tests/tin/")


def compiled(root, build):
    names = (pathlib.Path(command["file"]) for command in tree.commands(build))
    return {n.relative_to(root).as_posix() for n in names if n.is_relative_to(root)}


def listed_in(folder):
    lists = [*folder.rglob("CMakeLists.txt"), *folder.rglob("*.cmake")]
    return {word for path in lists
            for word in re.findall(r"[\w.+/-]+", path.read_text(encoding="utf-8"))}


def twin(name):
    """The same file for the other system: each build has one of the two."""
    systems = {"Darwin": "Linux", "Linux": "Darwin"}
    return re.sub(r"(Darwin|Linux)\.cpp$", lambda m: systems[m.group(1)] + ".cpp", name)


# Sources that belong to an option.
OPTIONAL = (("Benchmarks/", "KORVEL_BENCHMARKS"), ("Tests/CountsAtAbort.cpp", "KORVEL_COVERAGE"))


def option_is_on(build, option):
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    return re.search(rf"^{option}:BOOL=(?:ON|1|TRUE|YES)$", cache, re.M | re.I) is not None


def check(root, build):
    built = compiled(root, build)
    listed = {folder: listed_in(root / folder) for folder in ELSEWHERE}
    found = []
    for name in tree.files(root, tree.SOURCES):
        folder = next((f for f in ELSEWHERE if name.startswith(f)), None)
        if folder:
            if name not in built and not {name[len(folder):], pathlib.Path(name).name} & listed[folder]:
                found.append(f"{name}: not in the lists of {folder}")
        elif any(name.startswith(start) and not option_is_on(build, option) for start, option in OPTIONAL):
            continue
        elif name not in built and twin(name) not in built:
            found.append(f"{name}: no target builds it")
    return found


def self_test():
    def check_made(root):
        commands = [{"directory": str(root), "file": "Tests/a.cpp"}]
        (root / "build/Unity").mkdir(parents=True)
        if (root / "together").exists():
            together = root / "build/Unity/some.cxx"
            together.write_text(f'#include "{root}/Tests/c.cpp"\n', encoding="utf-8")
            commands.append({"directory": str(root), "file": str(together),
                             "command": f"cc -c {together}"})
        (root / "build/compile_commands.json").write_text(json.dumps(commands), encoding="utf-8")
        on = "ON" if (root / "on").exists() else "OFF"
        (root / "build/CMakeCache.txt").write_text(f"KORVEL_BENCHMARKS:BOOL={on}\n", encoding="utf-8")
        return check(root, root / "build")

    mac = ELSEWHERE[0]
    clean = {"Tests/a.cpp": "", mac + "M.mm": "", "Benchmarks/b.cpp": "",
             mac + "CMakeLists.txt": "add_library(mac M.mm)\n"}
    tree.expect(check_made, clean)
    tree.expect(check_made, clean | {"KorvelHelper/C.cpp": ""}, "C.cpp: no target builds it")
    tree.expect(check_made, clean | {mac + "N.mm": ""}, "N.mm: not in")
    tree.expect(check_made, clean | {"Tests/bLinux.cpp": ""}, "bLinux.cpp: no target builds it")
    tree.expect(check_made, clean | {ELSEWHERE[1] + "M.mm": ""}, "M.mm: not in")
    tree.expect(check_made, clean | {mac + "in/I.mm": "", mac + "in/CMakeLists.txt": "I.mm\n"})
    tree.expect(check_made, clean | {"on": ""}, "Benchmarks/b.cpp: no target builds it")
    tree.expect(check_made, clean | {"Tests/c.cpp": "", "together": ""})
    tree.expect(check_made, clean | {"Tests/c.cpp": "", "Tests/d.cpp": "", "together": ""},
                "d.cpp: no target builds it")


def main(arguments):
    if arguments == ["--self-test"]:
        self_test()
        print("the check passes a tree that is built and finds a source that is not")
        return
    if len(arguments) != 2:
        sys.exit(__doc__.strip())
    root, build = (pathlib.Path(a).resolve() for a in arguments)
    tree.report(check(root, build), len(tree.files(root, tree.SOURCES)), "sources", "all are built")


if __name__ == "__main__":
    main(sys.argv[1:])
