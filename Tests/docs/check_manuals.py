#!/usr/bin/env python3
"""Checks the manual pages: a reader of their language has nothing to say against them, and each command
and option that a program's --help tells stands in that program's page.

usage: check_manuals.py PAGES PROGRAMS
       check_manuals.py --self-test
"""
import pathlib
import re
import subprocess
import sys
import tempfile

PROGRAMS = ("virtual-mac", "korvel-app")
COMMAND = re.compile(r"^  ([a-z][\w-]*)", re.M)
OPTION = re.compile(r"^  ((?:-\w,)?--[a-z][\w-]*)", re.M)


def complaints(page):
    """What mandoc warns of."""
    told = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", page], capture_output=True,
                          text=True, check=False)
    return told.stdout.splitlines()


def rendered(page):
    """The page as a terminal shows it, without what prints bold."""
    told = subprocess.run(["mandoc", "-T", "utf8", "-O", "width=200", page], capture_output=True,
                          text=True, check=True)
    return re.sub(".\b", "", told.stdout)


def lacks(page, help_of, words=()):
    """The commands and options of a help that its page does not have, each at the begin of a line."""
    said = help_of(*words)
    options, _, commands = said.partition("Subcommands:")
    for option in OPTION.findall(options):
        if not re.search(rf"^ +{re.escape(option)}\b(?!-)", page, re.M):
            yield f"{' '.join(words)} {option}".strip()
    for command in COMMAND.findall(commands):
        whole = " ".join([*words, command])
        if not re.search(rf"^ +{re.escape(whole)}$", page, re.M):
            yield whole
        yield from lacks(page, help_of, (*words, command))


def self_test():
    helps = {(): "Options:\n  -h,--help  x\nSubcommands:\n  up   starts\n",
             ("up",): "Options:\n  --speed N  x\n"}
    page = "OPTIONS\n    -h,--help\nCOMMANDS\n  up\n    --speed N\n       x\n"
    assert not list(lacks(page, lambda *words: helps[words]))
    for part, lack in (("  up\n", "up"), ("    --speed N\n", "up --speed"), ("    -h,--help\n", "-h,--help")):
        assert list(lacks(page.replace(part, ""), lambda *words: helps[words])) == [lack]
    with tempfile.NamedTemporaryFile("w", suffix=".1") as spoiled:
        spoiled.write('.TH A 1 2026-01-01\n.SH NAME\na \\- b\n.nonsense\n')
        spoiled.flush()
        assert any("nonsense" in each for each in complaints(spoiled.name))
    print("the check finds what a page lacks, and what its reader does not understand")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 2:
        sys.exit(__doc__)
    pages, programs = (pathlib.Path(argument).resolve() for argument in arguments)
    found, all_pages = [], sorted(pages.glob("*.gz"))
    for page in all_pages:
        found += complaints(page)
    for program in PROGRAMS:
        def help_of(*words, program=program):
            return subprocess.run([programs / program, *words, "--help"], capture_output=True, text=True,
                                  check=True).stdout
        found += [f"{program}.1 lacks {lack}" for lack in lacks(rendered(pages / f"{program}.1.gz"), help_of)]
    for line in found:
        print(line)
    if found or len(all_pages) <= len(PROGRAMS):
        sys.exit(f"{len(found)} defects in {len(all_pages)} manual pages")
    print(f"{len(all_pages)} manual pages, with every command and option of the programs")


if __name__ == "__main__":
    main(sys.argv[1:])
