#!/usr/bin/env python3
"""Makes the manual pages of the virtual Mac's programs, from what the programs say of themselves with
--help and from the documents.

usage: make.py REPOSITORY PROGRAMS VERSION FOLDER
"""
import gzip
import pathlib
import re
import subprocess
import sys

import history
import roff

BOOK = "Virtual Mac"
VIRTUAL_MAC, SCENARIOS = "docs/virtual-mac.md", "docs/scenarios.md"
# A page of a program: its sentence, and the sections of docs/virtual-mac.md that it holds, each under
# its title. The table of commands is left out, because the commands tell their own.
PROGRAMS = {
    "virtual-mac": ("a Mac as a program, for its charging helper",
                    [("A first walk", "EXAMPLES"), ("`virtual-mac`", "USE"), ("In a browser", None),
                     ("Profiles", None), ("Faults", None), ("Bounds", None), ("Journal", None)]),
    "korvel-app": ("an application that asks the helper of a virtual Mac", [("`korvel-app`", "USE")]),
}
PAGES = {"virtual-mac": 1, "korvel-app": 1, "virtual-mac-scenario": 5}
ENTRY = re.compile(r"  (\S.*?)(?:\s{2,}(.*))?$")


class Help:
    """What a program or a command of it says with --help."""

    def __init__(self, program, *words):
        said = subprocess.run([program, *words, "--help"], capture_output=True, text=True, check=True)
        self.description, rest = said.stdout.split("\nUsage: ", 1)
        self.usage, rest = rest.split("\n", 1)
        self.parts, self.footer, part, free = {}, [], None, False
        for text in rest.splitlines():
            entry = ENTRY.match(text)
            if re.fullmatch(r"(Positionals|Options|Subcommands):", text):
                part, free = self.parts.setdefault(text[:-1], []), False
            elif text.startswith(" " * 20) and part and not free:
                part[-1][1] = f"{part[-1][1]} {text.strip()}".strip()
            elif entry and part is not None and not free:
                part.append([entry.group(1), entry.group(2) or ""])
            elif text.strip():
                self.footer.append(text)
                free = True
        self.commands = [name for name, _ in self.parts.get("Subcommands", [])]

    def entries(self, part):
        for name, text in self.parts.get(part, []):
            yield from (".TP", f"\\fB{roff.plain(name)}\\fR", roff.line(roff.plain(text)) or "\\&")


def section(document, name):
    """The text below a heading of the second level, down to the next."""
    return document.split(f"\n## {name}\n", 1)[1].split("\n## ", 1)[0]


def command_pages(program, words):
    """Every command, and the commands of commands."""
    own = Help(program, *words)
    yield f'.SS "{roff.plain(" ".join(words))}"'
    yield f"\\fB{roff.plain(own.usage)}\\fR"
    yield from (".PP", roff.line(roff.plain(" ".join(own.description.split()))))
    yield from own.entries("Positionals")
    yield from (entry for entry in without_help(own))
    if own.footer:
        yield from roff.code(own.footer)
    for name in own.commands:
        yield from command_pages(program, [*words, name])


def without_help(own):
    """The options of a command but --help, which each of them has."""
    own.parts["Options"] = [each for each in own.parts.get("Options", []) if each[0] != "-h,--help"]
    return own.entries("Options")


def program_page(name, program, document):
    sentence, sections = PROGRAMS[name]
    own = Help(program)
    yield from (".SH NAME", f"{roff.plain(name)} \\- {sentence}")
    yield from (".SH SYNOPSIS", f"\\fB{roff.plain(own.usage)}\\fR")
    yield from (".SH DESCRIPTION", roff.plain(own.description))
    if name == "virtual-mac":
        yield from roff.document(document.split("\n## ", 1)[0])
    yield ".SH OPTIONS"
    yield from own.entries("Options")
    yield from (".SH COMMANDS", "Every command takes these options too.")
    for command in own.commands:
        yield from command_pages(program, [command])
    for heading, title in sections:
        yield from roff.heading(2, title or heading)
        yield from roff.document(section(document, heading), with_tables=heading != "`virtual-mac`")


def scenario_page(document):
    yield from (".SH NAME", "virtual\\-mac\\-scenario \\- stories about a virtual Mac, in YAML")
    yield ".SH DESCRIPTION"
    yield from roff.document(document)


def see_also(name):
    others = [f"\\fB{roff.plain(page)}\\fR({number})" for page, number in PAGES.items() if page != name]
    return [".SH SEE ALSO", ",\n".join(others)]


def main(arguments):
    if len(arguments) != 4:
        sys.exit(__doc__)
    root, programs, version, folder = arguments
    root, folder = pathlib.Path(root), pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    texts = {name: (root / name).read_text(encoding="utf-8") for name in (VIRTUAL_MAC, SCENARIOS)}
    for name, number in PAGES.items():
        body = (scenario_page(texts[SCENARIOS]) if name not in PROGRAMS else
                program_page(name, pathlib.Path(programs) / name, texts[VIRTUAL_MAC]))
        head = f'.TH "{name.upper()}" {number} "{history.day_of(root)}" "{BOOK} {version}" "{BOOK}"'
        # Neither stretched lines nor cut words: a person copies options from here.
        lines = roff.without_idle([head, ".ad l", ".nh", *body, *see_also(name)])
        packed = gzip.compress(("\n".join(lines) + "\n").encode(), mtime=0)
        (folder / f"{name}.{number}.gz").write_bytes(packed)


if __name__ == "__main__":
    main(sys.argv[1:])
