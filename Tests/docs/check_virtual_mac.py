#!/usr/bin/env python3
"""Compares the names in docs/virtual-mac.md with those that the program knows.

usage: check_virtual_mac.py DOCUMENT VIRTUAL-MAC-PROGRAM
       check_virtual_mac.py --self-test
"""
import pathlib
import re
import subprocess
import sys
import tempfile


def names_in(document, heading):
    """The first words of the code spans that begin the rows of the table below a heading."""
    section = document.split(f"\n## {heading}\n", 1)[-1].split("\n## ", 1)[0]
    return {row.split()[0] for row in re.findall(r"^\| `([^`]+)` \|", section, re.M)}


def first_words(listing):
    return {line.split()[0] for line in listing.splitlines() if line.strip()}


def differences(kind, documented, known):
    for name in sorted(known - documented):
        yield f"{kind} {name} is not in the document"
    for name in sorted(documented - known):
        yield f"{kind} {name} is in the document only"


def self_test():
    document = "\n## Faults\n| a | b |\n|---|---|\n| `disk-full` | x |\n| `smc-size KEY` | x |\n\n## Next\n| `z` | y |\n"
    documented = names_in(document, "Faults")
    assert documented == {"disk-full", "smc-size"}, documented
    assert not list(differences("fault", documented, first_words("disk-full  x\nsmc-size KEY  y\n")))
    assert len(list(differences("fault", documented, {"disk-full"}))) == 1
    assert len(list(differences("fault", documented, {"disk-full", "smc-size", "new"}))) == 1
    print("the check finds names that are missing on either side")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 2:
        sys.exit(__doc__)
    document = pathlib.Path(arguments[0]).read_text(encoding="utf-8")
    with tempfile.TemporaryDirectory(prefix="vm-") as root:
        def ask(*words):
            return subprocess.run([arguments[1], "--root", root, *words], check=True,
                                  capture_output=True, text=True).stdout
        ask("up")
        try:
            found = list(differences("profile", names_in(document, "Profiles"), first_words(ask("profiles"))))
            found += differences("fault", names_in(document, "Faults"), first_words(ask("fault", "list")))
        finally:
            ask("down")
    for line in found:
        print(line)
    if found:
        sys.exit(f"{len(found)} differences between the program and its document")
    print("every profile and every fault is documented")


if __name__ == "__main__":
    main(sys.argv[1:])
