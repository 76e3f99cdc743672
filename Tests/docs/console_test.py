#!/usr/bin/env python3
"""Runs the commands of a document's console blocks, all in one shell, and compares what they print
with what the document shows. A command follows `$ `; `…` stands for anything, alone on a line for any
number of lines. A block after `<!-- on a Mac -->` or `<!-- a script's -->` is not run.

usage: console_test.py REPOSITORY PROGRAMS DOCUMENT...
       console_test.py --self-test
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"(?:^<!-- (on a Mac|a script's) -->\n)?^```console\n(.*?)^```$", re.M | re.S)
# Languages whose blocks hold no commands. What they show is compared elsewhere, or is no code.
OTHERS = {"cpp", "objc", "swift", "python", "json", "yaml", "text"}
SECONDS = 120
MARK = "\x01"


def steps(document):
    """(command, output) of every block that is run."""
    for excuse, block in BLOCK.findall(document):
        if excuse:
            continue
        command, shown = None, []
        for line in block.splitlines():
            if line.startswith("$ "):
                if command is not None:
                    yield command, shown
                command, shown = line[2:], []
            elif command is None:
                raise ValueError(f"a block begins with output: {line}")
            else:
                shown.append(line)
        if command is not None:
            yield command, shown


def strangers(document):
    """Blocks of code of which nobody knows whether they are commands."""
    inside = False
    for line in document.splitlines():
        if line.startswith("```"):
            inside = not inside
            if inside and line[3:] not in OTHERS | {"console"}:
                yield f"a block of \"{line[3:]}\": say console, or text"


def pattern_of(shown):
    pieces = []
    for line in shown:
        if line == "…":
            pieces.append(r"(?:[^\n]*\n)*?")
        else:
            pieces.append("[^\\n]*".join(re.escape(part) for part in line.split("…")) + r"\n")
    return re.compile("".join(pieces))


def differences(document, said):
    """`said` is what each command printed."""
    wanted = list(steps(document))
    if len(said) != len(wanted):
        yield f"{len(wanted)} commands, {len(said)} of them ended"
    for (command, shown), output in zip(wanted, said):
        if not pattern_of(shown).fullmatch(output):
            yield f"$ {command}\nshown:\n" + "\n".join(shown) + f"\nprinted:\n{output}"


def make_patient(folder, programs):
    """Gives the application more time for a reply than a person would: the machine may be busy."""
    (folder / "bin").mkdir()
    program = folder / "bin/korvel-app"
    program.write_text(f'#!/bin/sh\nexec {programs}/korvel-app --timeout {SECONDS} "$@"\n', encoding="utf-8")
    program.chmod(0o700)
    return program.parent


def play(document, programs, folder):
    """What each command printed, in a shell that has these programs and a place of its own."""
    (folder / "run").mkdir()
    patient = make_patient(folder, programs)
    script = "".join(f"{command}\nprintf '{MARK}'\n" for command, _ in steps(document))
    said = folder / "said"
    # A program in the background would hold a pipe open.
    with open(said, "w", encoding="utf-8") as output:
        subprocess.run(["bash"], cwd=folder, input=script, text=True, check=False, timeout=SECONDS,
                       stdout=output, stderr=subprocess.STDOUT,
                       env={**os.environ, "XDG_RUNTIME_DIR": str(folder / "run"), "VIRTUAL_MAC_ROOT": "",
                            "PATH": f"{patient}:{programs}:{os.environ['PATH']}"})
    return said.read_text(encoding="utf-8").split(MARK)[:-1]


def self_test():
    page = ("x\n```console\n$ echo a; echo b\na\n…\n$ true\n$ echo 'pid 12 is up'\npid … is up\n```\n"
            "<!-- on a Mac -->\n```console\n$ open\n```\n```cpp\nint a;\n```\n")
    assert [command for command, _ in steps(page)] == ["echo a; echo b", "true", "echo 'pid 12 is up'"]
    assert not list(strangers(page)) and list(strangers("```\nls\n```\n"))
    with tempfile.TemporaryDirectory() as folder:
        said = play(page, "/nowhere", pathlib.Path(folder))
    assert said == ["a\nb\n", "", "pid 12 is up\n"], said
    assert not list(differences(page, said))
    for bad, word in [(page.replace("\na\n", "\nc\n"), "$ echo a"), (page.replace("pid …", "pid 13"), "pid 13"),
                      (page.replace("$ true", "$ true\nyes"), "$ true")]:
        assert any(word in line for line in differences(bad, said)), word
    assert list(differences(page, said[:1])), "a shell that has ended too early"
    print("the check finds commands that print something else, or nothing")


def findings(root, programs, name):
    document = (root / name).read_text(encoding="utf-8")
    # The name is short because the path of a socket in it has to fit.
    with tempfile.TemporaryDirectory(prefix="vm-") as place:
        folder = pathlib.Path(place)
        try:
            said = play(document, programs, folder)
        finally:
            subprocess.run([programs / "virtual-mac", "--root", folder / "run/virtual-mac", "down"],
                           check=False, capture_output=True)
    yield from strangers(document)
    yield from differences(document, said)
    if not said:
        yield f"{name} has no commands"
    print(f"{len(said)} commands of {name} were run")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) < 3:
        sys.exit(__doc__)
    root, programs = (pathlib.Path(argument).resolve() for argument in arguments[:2])
    found = [finding for name in arguments[2:] for finding in findings(root, programs, name)]
    if found:
        sys.exit("\n".join([*found, f"{len(found)} findings in {', '.join(arguments[2:])}"]))


if __name__ == "__main__":
    main(sys.argv[1:])
