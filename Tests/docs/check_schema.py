#!/usr/bin/env python3
"""Holds the schemas of scenarios and profiles against the programs: every story and profile of the tree fits,
the words are those that the readers know, and both refuse what is spoiled.

usage: check_schema.py REPOSITORY VIRTUAL_MAC
       check_schema.py --self-test
"""
import json
import pathlib
import re
import subprocess
import sys
import tempfile

import jsonschema
import yaml

MODELINE = re.compile(r"^# yaml-language-server: \$schema=(\S+)\n")
NO_WORD = "qqqqqqqqqqqqqqqqqqqqqqqqqqqqqq"
STORY = """name: A
description: B
profile: newer-keys
start:
  battery: 80
  lid: open
  faults: [lid-unknown]
steps:
  - at: 00:00:05
    do: [connect, set-limit 80]
    reply: ok
    within: 10s gate paused
  - after: 42m
    given: gate paused
    do: adapter off
    expect: draining
    holds: 10m gate paused
  - at: 01:00
    repeat: 2
    every: 10m
    steps:
      - at: 00:00
        do: touch
never: CHIE=08 while asleep
ends: 03:00
"""
SPOILED_STORIES = [
    ("name: A", "nom: A"), ("description: B\n", ""), ("newer-keys", "newer-kees"), ("battery: 80", "battery: 101"),
    ("lid: open", "lid: ajar"), ("lid: open", "lit: open"), ("lid-unknown", "lid-unknwon"),
    ("at: 00:00:05", "at: 5 seconds"), ("at: 00:00:05", "at: 24:00"), ("[connect,", "[conect,"),
    ("reply: ok", "reply: perhaps"), ("10s gate paused", "gate paused"), ("given: gate", "given: gait"),
    ("after: 42m", "after: 42"), ("repeat: 2", "repeat: 0"), ("every: 10m", "every: soon"),
    ("    do: adapter off", "    did: adapter off"), ("CHIE=08", "CHIE=8"), ("ends: 03:00", "ends: late"),
    ("at: 00:00:05\n", "at: 00:00:05\n    after: 1m\n"), ("    every: 10m\n", "")]
PROFILE = {
    "$schema": "profile.schema.json", "description": "A", "lid": True, "adapterConnected": True,
    "externalDisplayConnected": False, "idleSleepMinutes": 0,
    "smc": {"present": True, "keys": {"CHTE": {"size": 4, "type": "ui32", "attributes": 208, "bytes": [0, 0, 0, 0]}}},
    "battery": {"present": True, "layout": "pack", "banks": 2, "startPercent": 60.5},
    "powerSources": [{"name": "UPS", "type": "UPS", "currentCapacity": 97, "place": "before battery"}],
    "powerUI": {"present": True, "supported": True, "offeredLimits": [80], "currentLimit": 0},
    "identities": [{"name": "other", "signed": True, "leafExtensions": ["1.2.3"]}]}
# A path into the profile, and the value that spoils it.
SPOILED_PROFILES = [
    ("lit", True), ("lid", "yes"), ("idleSleepMinutes", 1441), ("smc/present", 1), ("smc/kees", {}),
    ("smc/keys/CHTE/size", 0), ("smc/keys/CHTE/type", "ui8"), ("smc/keys/CHTE/bytes", [256]), ("smc/keys/CH", {}),
    ("battery/layout", "side"), ("battery/banks", 1.5), ("battery/startPercent", -1), ("battery/fullCapacityMilliampHours", 0),
    ("powerSources/0/place", "here"), ("powerUI/currentLimit", 101), ("identities/0/name", ""),
    ("identities/0/leafExtensions", [1]), ("$schema", 7)]


class Core(yaml.SafeLoader):
    """Takes scalars as YAML 1.2 does, and with it the editors: on is a word, and 00:42 no number."""


Core.yaml_implicit_resolvers = {}
for tag, pattern, first in (("null", r"~|null|", ["~", "n", ""]), ("bool", r"true|false", list("tf")),
                            ("int", r"[-+]?[0-9]+", list("-+0123456789")),
                            ("float", r"[-+]?[0-9]+\.[0-9]*", list("-+0123456789"))):
    Core.add_implicit_resolver(f"tag:yaml.org,2002:{tag}", re.compile(f"^(?:{pattern})$"), first)


def misfit(schema, value):
    """Why a value does not fit the schema; empty: it does."""
    found = jsonschema.Draft7Validator(schema).iter_errors(value)
    return "; ".join(f"{'/'.join(map(str, each.absolute_path))}: {each.message[:160]}" for each in found)


def story_misfit(schema, text):
    return misfit(schema, yaml.load(text, Loader=Core))


def compared(what, of_schema, of_program):
    for word in sorted(set(of_schema) - set(of_program)):
        yield f"{what}: the schema has \"{word}\", the program does not"
    for word in sorted(set(of_program) - set(of_schema)):
        yield f"{what}: the program has \"{word}\", the schema does not"


def words_of(schema):
    """{what: words} of the scenarios' schema."""
    defined = schema["definitions"]

    def first_words(name):
        pattern = defined[name]["anyOf"][1]["pattern"]
        return set(re.search(r"\(([a-z|-]+)\)", pattern.replace("(not )?", "")).group(1).split("|"))

    return {"scenario": set(schema["properties"]), "start": set(defined["start"]["properties"]),
            "step": set(defined["step"]["properties"]), "repetition": set(defined["repetition"]["properties"]),
            "action": first_words("action"), "condition": first_words("condition"),
            "reply": set(defined["reply"]["anyOf"][0]["enum"]),
            "profile": set(schema["properties"]["profile"]["anyOf"][0]["enum"]),
            "fault": set(re.search(r"\(([a-z|-]+)\)", defined["fault"]["pattern"]).group(1).split("|"))}


class Programs:
    def __init__(self, virtual_mac, folder):
        self.virtual_mac, self.folder = virtual_mac, folder

    def run(self, *words):
        return subprocess.run([self.virtual_mac, *words], capture_output=True, text=True, timeout=120, check=False)

    def check(self, text):
        """What the reader has against a story; empty: nothing."""
        file = self.folder / "story.yaml"
        file.write_text(text, encoding="utf-8")
        done = self.run("run", "--check", str(file))
        return done.stderr if done.returncode else ""

    def check_profile(self, profile):
        file = self.folder / "mine.json"
        file.write_text(json.dumps(profile), encoding="utf-8")
        return self.check(STORY.replace("newer-keys", str(file)))

    def allowed(self, old, new):
        told = self.check(STORY.replace(old, new, 1))
        found = re.search(NO_WORD + r'" is unknown[^(]*\(allowed: ([^)]*)\)', told)
        return set(found.group(1).split(", ")) if found else {f"nothing, but said: {told}"}

    def words(self):
        return {"scenario": self.allowed("name: A", f"name: A\n{NO_WORD}: A"),
                "start": self.allowed("  lid: open", f"  {NO_WORD}: open"),
                "step": self.allowed("    reply: ok", f"    {NO_WORD}: ok"),
                "repetition": self.allowed("    repeat: 2", f"    repeat: 2\n    {NO_WORD}: 2"),
                "action": self.allowed("adapter off", NO_WORD), "condition": self.allowed("draining", NO_WORD)
                - {"KEY=BYTES"}, "reply": self.allowed("reply: ok", f"reply: {NO_WORD}"),
                "profile": self.allowed("newer-keys", NO_WORD), "fault": self.allowed("lid-unknown", NO_WORD)}

    def profile_keys(self, *path):
        """What the reader knows in an object of a profile."""
        told = self.check_profile(changed(PROFILE, [*path, NO_WORD], 1))
        found = re.search(NO_WORD + r" is not known; known here: (.*)", told)
        return set(found.group(1).split(", ")) if found else {f"nothing, but said: {told}"}


def changed(value, path, new):
    """A copy of a value with another one at a path."""
    copy = json.loads(json.dumps(value))
    inner = copy
    for step in path[:-1]:
        inner = inner[int(step)] if isinstance(inner, list) else inner[step]
    inner[path[-1]] = new
    return copy


def files_of_the_tree(root, scenario, profile):
    stories = sorted((root / "VirtualMac/Scenarios/gallery").glob("*.yaml"))
    profiles = sorted((root / "VirtualMac/Machine/profiles").glob("*.json"))
    if len(stories) < 40 or len(profiles) < 10:
        yield f"only {len(stories)} stories and {len(profiles)} profiles were found"
    for file in stories:
        text = file.read_text(encoding="utf-8")
        line = MODELINE.match(text)
        if line is None or (file.parent / line.group(1)).resolve() != root / "docs/schema/scenario.schema.json":
            yield f"{file}: its first line does not lead to the schema"
        if why := story_misfit(scenario, text):
            yield f"{file}: {why}"
    for file in profiles:
        if why := misfit(profile, json.loads(file.read_text(encoding="utf-8"))):
            yield f"{file}: {why}"


def refusals(scenario, profile, programs):
    if why := story_misfit(scenario, STORY) or programs.check(STORY):
        yield f"the good story is refused: {why}"
    for old, new in SPOILED_STORIES:
        text = STORY.replace(old, new, 1)
        if text == STORY:
            yield f"\"{old}\" is not in the story"
        if not story_misfit(scenario, text):
            yield f"the schema takes \"{new}\" in place of \"{old}\""
        if not programs.check(text):
            yield f"the reader takes \"{new}\" in place of \"{old}\""
    if why := misfit(profile, PROFILE) or programs.check_profile(PROFILE):
        yield f"the good profile is refused: {why}"
    for path, value in SPOILED_PROFILES:
        spoiled = changed(PROFILE, path.split("/"), value)
        if not misfit(profile, spoiled):
            yield f"the schema takes {value!r} at {path}"
        if not programs.check_profile(spoiled):
            yield f"the reader takes {value!r} at {path}"


def complaints(root, virtual_mac, folder):
    texts = {kind: (root / f"docs/schema/{kind}.schema.json").read_text(encoding="utf-8")
             for kind in ("scenario", "profile")}
    scenario, profile = json.loads(texts["scenario"]), json.loads(texts["profile"])
    programs = Programs(virtual_mac, folder)
    for kind, schema in (("scenario", scenario), ("profile", profile)):
        jsonschema.Draft7Validator.check_schema(schema)
        if programs.run("schema", kind).stdout != texts[kind]:
            yield f"virtual-mac schema {kind} prints something else than docs/schema"
    yield from files_of_the_tree(root, scenario, profile)
    known = programs.words()
    for what, words in words_of(scenario).items():
        yield from compared(what, words, known[what])
    for kind in ("action", "condition"):
        for phrase in scenario["definitions"][kind]["anyOf"][0]["enum"]:
            if told := programs.check(STORY.replace("adapter off" if kind == "action" else "draining", phrase)
                                      .replace("    reply: ok\n", "")):
                yield f"the reader does not take the {kind} \"{phrase}\": {told}"
    parts, key = profile["properties"], profile["definitions"]["key"]
    for path, schema in {(): profile, ("smc",): parts["smc"], ("battery",): parts["battery"],
                         ("powerSources", "0"): parts["powerSources"]["items"], ("powerUI",): parts["powerUI"],
                         ("identities", "0"): parts["identities"]["items"], ("smc", "keys", "CHTE"): key}.items():
        yield from compared("/".join(path) or "profile", set(schema["properties"]), programs.profile_keys(*path))
    yield from refusals(scenario, profile, programs)
    yield from recording(root, scenario, programs)


def recording(root, scenario, programs):
    """A story that the program writes fits too, and leads to the schema beside it."""
    journal, story = programs.folder / "quit.journal", programs.folder / "recorded.yaml"
    programs.run("run", str(root / "VirtualMac/Scenarios/gallery/quit.yaml"), "--save-journal", str(journal))
    programs.run("record", "--journal", str(journal), str(story))
    text = story.read_text(encoding="utf-8") if story.exists() else ""
    line = MODELINE.match(text)
    if line is None or line.group(1) != "scenario.schema.json":
        yield f"the first line of a recording does not name the schema: {text[:80]}"
    elif why := story_misfit(scenario, text):
        yield f"a recording does not fit: {why}"


def self_test():
    root = pathlib.Path(__file__).resolve().parent.parent.parent
    schema = json.loads((root / "docs/schema/scenario.schema.json").read_text(encoding="utf-8"))
    assert not story_misfit(schema, STORY)
    assert all(story_misfit(schema, STORY.replace(old, new, 1)) for old, new in SPOILED_STORIES)
    assert list(compared("x", {"a", "b"}, {"b", "c"})) == ['x: the schema has "a", the program does not',
                                                         'x: the program has "c", the schema does not']
    assert not list(compared("x", {"a"}, {"a"}))
    words = words_of(schema)
    assert "connect" in words["action"] and "gate" in words["condition"] and "disk-full" in words["fault"]
    assert changed({"a": [{"b": 1}]}, ["a", "0", "b"], 2) == {"a": [{"b": 2}]}
    assert yaml.load("[on, 00:42, 80, 2.0.0, 2.5]", Loader=Core) == ["on", "00:42", 80, "2.0.0", 2.5]


def main():
    if sys.argv[1:] == ["--self-test"]:
        self_test()
        return 0
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    with tempfile.TemporaryDirectory() as folder:
        found = list(complaints(pathlib.Path(sys.argv[1]).resolve(), sys.argv[2], pathlib.Path(folder)))
    print("\n".join(found) or "the schemas and the programs agree")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
