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


def commands_in(text):
    return set(COMMAND.findall(text.split("Subcommands:", 1)[1])) if "Subcommands:" in text else set()


def defects(name, document, help_of):
    """`help_of(program, commands)` is the help of a command; with none, that of the program."""
    for line, (program, *words) in calls_in(document):
        said = f"{name}:{line}: {' '.join([program, *words])}"
        text, chosen, plain = help_of(program, ""), [], [word for word in words if word[0] != "-"]
        options = set(OPTION.findall(text))
        while command := next((word for word in plain if word in commands_in(text)), ""):
            chosen.append(command)
            plain = plain[plain.index(command) + 1:]
            text = help_of(program, " ".join(chosen))
            options |= set(OPTION.findall(text))
        # Without a known command the first plain word may be an option's value.
        first = plain[0] if plain and commands_in(text) else ""
        if first and not PLACEHOLDER.search(first) and (chosen or words[0][0] != "-"):
            yield f"{said}: there is no command {first}"
        for option in OPTION.findall(" ".join(words)):
            if option not in options:
                yield f"{said}: there is no option {option}"


def self_test():
    helps = {"": "Options:\n  --root TEXT  x\nSubcommands:\n  up   starts\n  set  sets\n  kind  makes\n",
             "up": "Options:\n  --speed N  x\n", "kind": "Subcommands:\n  import  reads\n",
             "kind import": "Options:\n  --like KIND\n"}

    def found(document):
        return list(defects("d", document, lambda _, command: helps.get(command, "")))
    for good in ("`virtual-mac up --speed 60`", "    virtual-mac --root x up --speed 6   starts", "`virtual-mac`",
                 "```\n$ virtual-mac set battery 5\n```", "`virtual-mac NAME`", "the virtual-mac, as it is",
                 "`virtual-mac up\n--speed 60`", "`virtual-mac kind import file --like up`"):
        assert not found(good), (good, found(good))
    for bad, word in (("`virtual-mac down`", "no command down"), ("`virtual-mac up --fast`", "no option --fast"),
                      ("x\n$ virtual-mac set --speed 5\n", "d:2: virtual-mac set --speed 5: there is no option"),
                      ("`virtual-mac kind export x`", "no command export"),
                      ("`virtual-mac kind --like up`", "no option --like"),
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
