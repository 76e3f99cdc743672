#!/usr/bin/env python3
"""Checks every call of the virtual Mac's programs that a document shows, in a span or a block of code:
the program knows the command and its options. Nothing is carried out.

usage: check_commands.py REPOSITORY PROGRAMS
       check_commands.py --self-test
"""
import functools
import pathlib
import re
import subprocess
import sys

NAMES = ("virtual-mac", "korvel-app")
CALL = re.compile(r"(?:`|^(?: {4})?(?:\$ )?|\| )((?:%s)(?: [^`\n|;&#()]*)?)" % "|".join(NAMES), re.M)
COMMAND = re.compile(r"^  ([a-z][\w-]*)", re.M)
OPTION = re.compile(r"--[a-z][\w-]*")
# A word that stands for many, or says that some may be left out.
PLACEHOLDER = re.compile(r"[A-Z…\[\]<>{}\"$=]")


def calls_in(document):
    """(line, words) of every call; a span may go on in the next line."""
    text = re.sub(r"`([^`\n]*)\n([^`\n]*)`", r"`\1 \2`\n", document)
    for match in CALL.finditer(text):
        yield text.count("\n", 0, match.start(1)) + 1, match.group(1).split()


def defects(name, document, help_of):
    """`help_of(program, command)` is the help of a command, or of the program when it is empty."""
    for line, (program, *words) in calls_in(document):
        said = f"{name}:{line}: {' '.join([program, *words])}"
        general = help_of(program, "")
        known = set(COMMAND.findall(general.split("Subcommands:", 1)[-1]))
        options = set(OPTION.findall(general))
        command = next((word for word in words if word in known), "")
        first = next((word for word in words if not word.startswith("-")), "")
        # Without a known command the first plain word may be an option's value.
        if first and not command and not PLACEHOLDER.search(first) and not words[0].startswith("-"):
            yield f"{said}: there is no command {first}"
        if command:
            options |= set(OPTION.findall(help_of(program, command)))
        for option in OPTION.findall(" ".join(words)):
            if option not in options:
                yield f"{said}: there is no option {option}"


def self_test():
    helps = {"": "Options:\n  --root TEXT  x\nSubcommands:\n  up   starts\n  set  sets\n",
             "up": "Options:\n  --speed N  x\n"}

    def found(document):
        return list(defects("d", document, lambda _, command: helps.get(command, "")))
    for good in ("`virtual-mac up --speed 60`", "    virtual-mac --root x up --speed 6   starts", "`virtual-mac`",
                 "```\n$ virtual-mac set battery 5\n```", "`virtual-mac NAME`", "the virtual-mac, as it is",
                 "`virtual-mac up\n--speed 60`"):
        assert not found(good), (good, found(good))
    for bad, word in (("`virtual-mac down`", "no command down"), ("`virtual-mac up --fast`", "no option --fast"),
                      ("x\n$ virtual-mac set --speed 5\n", "d:2: virtual-mac set --speed 5: there is no option"),
                      ("a\n    virtual-mac dwon   ends it\n", "no command dwon")):
        assert any(word in line for line in found(bad)), (bad, found(bad))
    print("the check finds commands and options that are none")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 2:
        sys.exit(__doc__)
    root, programs = (pathlib.Path(argument).resolve() for argument in arguments)

    @functools.cache
    def help_of(program, command):
        words = [programs / program, *command.split(), "--help"]
        return subprocess.run(words, capture_output=True, text=True, check=True).stdout

    found, count = [], 0
    for path in [*sorted(root.glob("*.md")), *sorted((root / "docs").glob("**/*.md"))]:
        document = path.read_text(encoding="utf-8")
        count += sum(1 for _ in calls_in(document))
        found += defects(path.relative_to(root), document, help_of)
    for line in found:
        print(line)
    if found or not count:
        sys.exit(f"{len(found)} of {count} calls in the documents do not fit the programs")
    print(f"{count} calls in the documents, each with a command and options that exist")


if __name__ == "__main__":
    main(sys.argv[1:])
