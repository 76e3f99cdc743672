#!/usr/bin/env python3
"""Compares the states of the doctor: those that the virtual Mac's application knows with those that
docs/virtual-mac.md lists, in their order.

usage: check_doctor.py REPOSITORY
       check_doctor.py --self-test
"""
import pathlib
import re
import sys

STATE = re.compile(r'^DOCTOR_STATE\((\w+), "([^"]+)",\s(.*?)\)$', re.M | re.S)
TABLE = "\n### What `doctor` says\n"


def states_in(table):
    return [name for _, name, _ in STATE.findall(table)]


def documented_in(document):
    section = document.split(TABLE, 1)[-1].split("\n### ", 1)[0]
    return re.findall(r"^\| `([^`]+)` \|", section, re.M)


def differences(known, documented):
    if known != documented:
        yield f"the program knows {known}, the document lists {documented}"


def self_test():
    table = 'DOCTOR_STATE(a, "a-b", "x",\n             "y")\nDOCTOR_STATE(c, "c", "x {}", "y")\n'
    assert states_in(table) == ["a-b", "c"], states_in(table)
    document = f"{TABLE}\n| State |\n|---|\n| `a-b` | x |\n| `c` | y |\n\n### Next\n| `d` | z |\n"
    assert documented_in(document) == ["a-b", "c"]
    assert not list(differences(["a-b", "c"], documented_in(document)))
    assert list(differences(["c", "a-b"], documented_in(document)))
    assert list(differences(["a-b"], documented_in(document)))
    print("the check finds states that are missing or in another order")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 1:
        sys.exit(__doc__)
    root = pathlib.Path(arguments[0])
    known = states_in((root / "VirtualMac/Tools/DoctorStates.def").read_text(encoding="utf-8"))
    document = (root / "docs/virtual-mac.md").read_text(encoding="utf-8")
    found = list(differences(known, documented_in(document)))
    if found or not known:
        sys.exit("\n".join(found))
    print(f"{len(known)} states of the doctor, each documented in its place")


if __name__ == "__main__":
    main(sys.argv[1:])
