#!/usr/bin/env python3
"""Runs every command of the virtual Mac's programs with --json, and compares what they print with
docs/json.md: the keys and their types, in the tables of fields and in the examples.

usage: json_test.py REPOSITORY PROGRAMS
       json_test.py --self-test
"""
import json
import os
import pathlib
import plistlib
import re
import subprocess
import sys
import tempfile

PROGRAMS = ("virtual-mac", "korvel-app")
PATIENCE = 120  # seconds for any one command
COMMAND = re.compile(r"^  ([a-z][\w-]*)", re.M)
SECTION = re.compile(r"^### ([^\n]*)\n(.*?)(?=^##|\Z)", re.M | re.S)
FIELD = re.compile(r"^\| `([^`]+)` \| ([^|]+) \|", re.M)
EXAMPLE = re.compile(r"^```json\n(.*?)^```$", re.M | re.S)
TYPES = {"text": str, "number": (int, float), "boolean": bool, "list": list, "object": dict,
         "null": type(None)}
ERROR = {"ok": {"boolean"}, "error": {"text"}}
DUMP = {"IOObjectClass": "AppleSmartBattery", "DesignCapacity": 6068, "MaxCapacity": 100,
        "CurrentCapacity": 63, "ExternalConnected": False, "Temperature": "warm"}
LINE = '1.000 log   SMCWriter error "SMC write CHTE bytes=01 result=132"'


class Form:
    """What one section says of the objects of its commands."""

    def __init__(self, fields, examples):
        self.types, self.optional, self.examples = {}, set(), examples
        for path, said in fields:
            words = said.strip().removesuffix(", optional")
            if words != said.strip():
                self.optional.add(path)
            self.types[path] = set(words.split(" or "))


def forms_in(document):
    """{(program, command): form}; a command may be a word, or an option such as --version."""
    forms = {}
    for heading, text in SECTION.findall(document):
        examples = [line for block in EXAMPLE.findall(text) for line in block.splitlines()]
        form = Form(FIELD.findall(text), examples)
        program = ""
        for span in re.findall(r"`([^`]+)`", heading):
            words = span.split()
            program = words.pop(0) if words[0] in PROGRAMS else program
            forms[program, words[0]] = form
    return forms


def kind_of(value):
    return next(name for name in ("boolean", "number", "text", "list", "object", "null")
                if isinstance(value, TYPES[name]))


def members(value, prefix, types):
    """(path, value) of everything below an object that the document goes into; `[]` is an element."""
    for key, each in value.items():
        path = f"{prefix}{key}"
        yield path, each
        if isinstance(each, dict) and any(known.startswith(path + ".") for known in types):
            yield from members(each, path + ".", types)
        if isinstance(each, list) and any(known.startswith(path + "[].") for known in types):
            for element in each:
                yield from members(element, path + "[].", types)


def parent_of(path):
    return path.rpartition(".")[0].removesuffix("[]")


def defects(text, form):
    """What a printed line has that its section does not say, and the other way about."""
    try:
        told = json.loads(text)
    except ValueError:
        yield f"no JSON: {text!r}"
        return
    if not isinstance(told, dict) or not (isinstance(told.get("ok"), bool) or "event" in told):
        yield f"no object with ok: {text}"
        return
    if told.get("ok") is False and not isinstance(told.get("error"), str):
        yield f"fails without an error: {text}"
    types = form.types
    if told.get("ok") is False and "error" not in types:
        types = {**types, **ERROR}
    if "event" in told:
        types = {path[len("event: "):]: kinds for path, kinds in types.items()
                 if path.startswith("event: ")}
    found = list(members(told, "", types))
    for path, value in found:
        if path not in types:
            yield f"{path} is not in the document: {text}"
        elif kind_of(value) not in types[path]:
            yield f"{path} is a {kind_of(value)}: {text}"
    if told.get("ok"):
        there = {path for path, value in found if value not in (None, [])} | {""}
        for path in set(types) - form.optional - {path for path, _ in found}:
            if parent_of(path) in there and not path.startswith("event: "):
                yield f"{path} is missing: {text}"


def document_defects(forms, commands):
    for pair in sorted(commands - set(forms)):
        yield f"{' '.join(pair)}: it is in no section"
    for program, command in sorted(set(forms) - commands):
        if not command.startswith("-"):
            yield f"{program} {command}: there is no such command"
    for (program, command), form in forms.items():
        if not form.examples:
            yield f"{program} {command}: there is no example"
        for line in form.examples:
            yield from (f"{program} {command}, the example: {each}" for each in defects(line, form))


class Player:
    """Runs commands on a machine of its own."""

    def __init__(self, programs, folder, forms):
        self.programs, self.folder, self.forms = programs, folder, forms
        self.found, self.went_well = [], set()

    def run(self, program, *words, given=""):
        command = next(word for word in words if (program, word) in self.forms)
        done = subprocess.run(
            [self.programs / program, "--root", self.folder / "root", "--json", *map(str, words)],
            input=given, capture_output=True, text=True, timeout=PATIENCE, check=False,
            cwd=self.folder, env={**os.environ, "TERM": "xterm"})
        lines = done.stdout.splitlines()
        if not lines:
            self.found.append(f"{program} {' '.join(map(str, words))}: prints nothing; {done.stderr}")
        for line in lines:
            self.found += [f"{program} {' '.join(map(str, words))}: {each}"
                           for each in defects(line, self.forms[program, command])]
            if '"ok":true' in line:
                self.went_well.add((program, command))

    def machine(self, *words):
        self.run("virtual-mac", *words)

    def app(self, *words, given=""):
        self.run("korvel-app", *words, given=given)


def play_application(player):
    player.app("capabilities")
    player.app("set-limit", "5")
    for words in ("set-limit 80", "top-off", "cancel-top-off", "set-limit 50", "discharge on",
                  "discharge off", "keep-awake on", "keep-awake off", "state", "status",
                  "watch --for 0.5", "doctor", "clear-limit", "reset"):
        player.app(*words.split())
    player.app("session", given="ping\nstate\nset-limit 5\nno such request\ncapabilities\n")
    player.app("--as", "other-team", "watch", "--for", "0.2")
    player.machine("fault", "helper-without-team", "on")
    player.app("quit")
    player.app("--timeout", "2", "doctor")
    player.machine("fault", "helper-without-team", "off")


def play_machine(player, root):
    for words in ("status", "set battery 70", "set battery 101", "fault list", "fault disk-full on",
                  "fault list", "status", "fault disk-full off", "touch", "install 9.9.9", "sleep",
                  "wake", "speed 60", "kill", "identities", "profiles", "journal", "log",
                  "journal --until no-such-text", "timeline out.svg", "trace out.html",
                  "record out.yaml", "record", "bundle out.json", "bundle --ask-nothing", "bundle",
                  "profile import dump.plist", "profile import dump.plist --output made.json",
                  "launch -- /no/such/program", "reboot", "power-loss"):
        player.machine(*words.split())
    player.machine("explain", LINE)
    player.machine("explain", "no such line at all")
    data, gallery = root / "Tests/scenarios/data", root / "VirtualMac/Scenarios/gallery"
    player.machine("run", "--journal", gallery / "quit.yaml", data / "fails.yaml",
                   data / "defects.yaml")


def play(programs, root, forms):
    with tempfile.TemporaryDirectory(prefix="vm-") as name:
        folder = pathlib.Path(name)
        (folder / "dump.plist").write_bytes(plistlib.dumps([DUMP]))
        player = Player(programs, folder, forms)
        player.machine("status")
        player.machine("up", "--web=0", "--profile", "newer-keys", "--speed", "20")
        try:
            player.app("ping")
            player.machine("record")  # A story cannot tell of all that comes later.
            play_application(player)
            play_machine(player, root)
        finally:
            player.machine("down")
        player.machine("schema", "profile")
        for program in PROGRAMS:
            player.run(program, "--version")
            player.run(program, "completion", "zsh")
            player.run(program, "completion", "words", "--", "st")
    return player


def self_test():
    document = ("## A\n### `virtual-mac up`, `go`\n```json\n{\"ok\":true,\"a\":[{\"b\":1}]}\n```\n\n"
                "| Field | Type | M |\n|---|---|---|\n| `ok` | boolean | x |\n| `a` | list | x |\n"
                "| `a[].b` | number or null | x |\n| `c` | text, optional | x |\n## Next\n| `z` | text | y |\n")
    forms = forms_in(document)
    commands = {("virtual-mac", "up"), ("virtual-mac", "go")}
    assert set(forms) == commands, forms
    assert not list(document_defects(forms, commands)), list(document_defects(forms, commands))
    assert len(list(document_defects(forms, commands | {("korvel-app", "new")}))) == 1
    assert len(list(document_defects(forms, {("virtual-mac", "up")}))) == 1
    form = forms["virtual-mac", "up"]
    for good in ('{"ok":true,"a":[]}', '{"ok":true,"a":[{"b":null}],"c":"x"}', '{"ok":false,"error":"x"}'):
        assert not list(defects(good, form)), (good, list(defects(good, form)))
    for bad in ("x", "[]", '{"a":[]}', '{"ok":true}', '{"ok":true,"a":[{}]}', '{"ok":false}',
                '{"ok":true,"a":[{"b":"1"}]}', '{"ok":true,"a":[],"d":1}', '{"ok":1,"a":[]}'):
        assert list(defects(bad, form)), bad
    print("the test finds keys, types and commands that the document does not tell")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 2:
        sys.exit(__doc__)
    root, programs = (pathlib.Path(argument).resolve() for argument in arguments)
    forms = forms_in((root / "docs/json.md").read_text(encoding="utf-8"))
    commands = set()
    for program in PROGRAMS:
        said = subprocess.run([programs / program, "--help"], capture_output=True, text=True, check=True)
        commands |= {(program, word) for word in COMMAND.findall(said.stdout.split("Subcommands:", 1)[-1])}
    found = list(document_defects(forms, commands))
    if not found:
        player = play(programs, root, forms)
        # A program that is launched takes the command's place, so its success prints nothing.
        never = commands - player.went_well - {("virtual-mac", "launch")}
        found = player.found + [f"{' '.join(pair)}: never went well" for pair in sorted(never)]
    if found:
        sys.exit("\n".join(found))
    print(f"{len(commands)} commands print what docs/json.md says")


if __name__ == "__main__":
    main(sys.argv[1:])
