#!/usr/bin/env python3
"""Pastes the README's block of commands, all of it at once, into a shell: every command works, and
what the block is there to show is seen, in its order.

usage: walk_test.py REPOSITORY PROGRAMS
       walk_test.py --self-test
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

SEEN = ("is up at 60x",
        "SMC write unverified — read-back disagreed",  # the firmware says yes and does nothing
        "charge enforcement pause:ok",
        "\nlimit          80 %",                       # the status, after the helper's words
        "passed  Too warm under the lid")
WRITTEN = ("mine.html", "limit.yaml", "overheating.html")
SECONDS = 60


def block_in(document):
    """The one block of code that starts a machine by hand."""
    blocks = [block for block in re.findall(r"^```\n(.*?)^```$", document, re.M | re.S)
              if "\nvirtual-mac up" in block]
    assert len(blocks) == 1, f"{len(blocks)} blocks start a machine"
    return blocks[0]


def missing(output, status):
    """What was not seen, or not in its place."""
    place = 0
    for words in SEEN:
        found = output.find(words, place)
        if found < 0:
            yield f'not seen, or too early: "{words.strip()}"'
        else:
            place = found + len(words)
    if status != 0:
        yield f"a command ended with status {status}"


def paste(block, root, programs, folder):
    """A shell's output and status in a tree with these programs and nothing that may be spoiled."""
    (folder / "build/clang").mkdir(parents=True)
    (folder / "build/clang/bin").symlink_to(programs)
    (folder / "VirtualMac").symlink_to(root / "VirtualMac")
    (folder / "run").mkdir()
    # The output is a file, because the application in the background would hold a pipe open.
    said = folder / "said"
    with open(said, "w", encoding="utf-8") as output:
        done = subprocess.run(["bash", "-e"], cwd=folder, input=block, text=True, check=False,
                              stdout=output, stderr=subprocess.STDOUT, timeout=SECONDS,
                              env={**os.environ, "XDG_RUNTIME_DIR": str(folder / "run"), "VIRTUAL_MAC_ROOT": ""})
    return said.read_text(encoding="utf-8"), done.returncode


def self_test():
    assert block_in("```\nls\n```\nx\n```\na\nvirtual-mac up\n```\n") == "a\nvirtual-mac up\n"
    good = "\n".join(("x",) + tuple(words.strip() for words in SEEN))
    assert not list(missing(good, 0))
    assert list(missing(good, 2)) == ["a command ended with status 2"]
    for words in SEEN:
        assert list(missing(good.replace(words.strip(), ""), 0)), words
    late = good.replace(SEEN[1], "") + "\n" + SEEN[1]
    assert list(missing(late, 0)), "in the wrong order"
    print("the check finds what is not seen, or in the wrong order, and a failed command")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 2:
        sys.exit(__doc__)
    root, programs = (pathlib.Path(argument).resolve() for argument in arguments)
    block = block_in((root / "README.md").read_text(encoding="utf-8"))
    # Another machine of this computer may be shown on the port that a person gets.
    block = block.replace(" --web ", " --web=0 ")
    # The name is short because the path of a socket in it has to fit.
    with tempfile.TemporaryDirectory(prefix="vm-") as name:
        folder = pathlib.Path(name)
        try:
            output, status = paste(block, root, programs, folder)
            unwritten = [name for name in WRITTEN if not (folder / name).exists()]
        finally:
            subprocess.run([programs / "virtual-mac", "--root", folder / "run/virtual-mac", "down"],
                           check=False, capture_output=True)
    found = [*missing(output, status), *(f"{name} was not written" for name in unwritten)]
    if found:
        sys.exit("\n".join([output, *found]))
    print("the README's commands, pasted as one block, show what they are there to show")


if __name__ == "__main__":
    main(sys.argv[1:])
