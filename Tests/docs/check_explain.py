#!/usr/bin/env python3
"""Asks `virtual-mac explain` for every message of the source, every code of the document, every line
that the gallery's stories log, and every line that the document shows: each is found, and explained
in the document's words.

usage: check_explain.py REPOSITORY VIRTUAL-MAC-PROGRAM
       check_explain.py --self-test
"""
import json
import pathlib
import re
import subprocess
import sys

import check_log_messages as messages

CONVERSION = re.compile(r"%%|%(?:\{[^}]*\})?(?:hh|h|ll|l)?([a-z])")
SAMPLES = {"s": "some words", "d": "17", "u": "4", "i": "3"}
LOG_LINE = re.compile(r' log +(\w+) (default|error|fault) "')
ROW = re.compile(r"^\| (`.*) \|$", re.M)
# A message in which a number can follow the mark of a table of codes.
CARRIERS = {
    "smcResult=": "kSMCWriteKey CHTE smcResult=%s",
    "failed:": "IOServiceOpen(AppleSMC) failed: %s",
    "kIOReturn=": "pre-sleep pause-write failed: kSMCGetKeyInfo failed (kIOReturn=%s)",
    "errno=": "fsync parent dir: open(/a) errno=%s",
    "NSPOSIXErrorDomain": "persistence.write failed: write failed: It is so [NSPOSIXErrorDomain %s]",
    "NSCocoaErrorDomain": "state.json corrupt — It is so [NSCocoaErrorDomain %s]; continuing with "
                          "empty defaults until next setChargeLimit",
    "com.korvel.app.helper.persistence":
        "persistence.write failed: read-back verify failed: It is so "
        "[com.korvel.app.helper.persistence %s]",
}


def rendered(message):
    return CONVERSION.sub(lambda found: "%" if found.group(0) == "%%" else SAMPLES[found.group(1)],
                          message)


def rows_by_message(document):
    """(category, level, message): (meaning, remedy), as the document has them."""
    category, found = None, {}
    for line in document.splitlines():
        if line.startswith("## "):
            category = line[3:].strip()
        row = messages.ROW.match(line)
        if row:
            meaning, remedy = line[row.end():].strip().rstrip("|").split(" | ")
            found[(category, row.group(1), row.group(3))] = (meaning.strip(), remedy.strip())
    return found


def codes_in(document):
    """(mark, number, cells of its row) of every code."""
    section = document.split("\n## Codes\n", 1)[-1]
    for table in section.split("\n### ")[1:]:
        head, _, rest = table.partition("\n| Code |")
        for row in ROW.findall(rest):
            cells = row.split(" | ")
            for number in re.findall(r"`([^`]+)`", cells[0]):
                for mark in re.findall(r"`([^`]+)`", head):
                    yield mark, number, cells[1:]


def asked(program, lines):
    done = subprocess.run([program, "--json", "explain", "-"], input="\n".join(lines) + "\n",
                          capture_output=True, text=True, timeout=120, check=False)
    answers = [json.loads(line) for line in done.stdout.splitlines()]
    assert len(answers) == len(lines), (len(answers), len(lines), done.stderr)
    return list(zip(lines, answers))


def message_findings(answer, calls, document_rows):
    """Every message, as a journal tells it and as nothing but its text."""
    for call in calls:
        category, level, text = call
        # The text alone does not say which of two messages with one text it is; none are there.
        for line in (f'1.000 log   {category} {level} "{rendered(text)}"', rendered(text)):
            told = answer[line]
            if not told["ok"] or (told["category"], told["level"], told["message"]) != call:
                yield f"{line}: {told}"
            elif (told["meaning"], told["remedy"]) != document_rows.get(call):
                yield f"{line}: is not explained in the document's words: {told}"


def code_findings(answer, codes):
    for mark, number, (name, meaning, remedy) in codes:
        line = CARRIERS[mark] % number
        parts = answer[line].get("parts", [])
        if not any(part.get("code") and part["text"] == number and part["name"] == name
                   and (part["meaning"], part["remedy"]) == (meaning, remedy) for part in parts):
            yield f"{line}: the code is not explained: {answer[line]}"


def log_findings(answers):
    for line, told in answers:
        where = LOG_LINE.search(line).groups()
        if not told["ok"] or (told["category"], told["level"]) != where:
            yield f"{line}: {told}"


def self_test():
    assert rendered("a %{public}s b %hhu%% %{bool}d %ld") == "a some words b 4% 17 17"
    document = ("## Core\n| default | `a %d` | m | r |\n## Codes\n\n### One\nAfter `failed:`.\n\n"
                "| Code | Name | Meaning | What to do |\n|---|---|---|---|\n| `1` `2` | n | c | d |\n")
    rows = rows_by_message(document)
    assert rows == {("Core", "default", "a %d"): ("m", "r")}, rows
    codes = list(codes_in(document))
    assert codes == [("failed:", "1", ["n", "c", "d"]), ("failed:", "2", ["n", "c", "d"])], codes
    call = ("Core", "default", "a %d")
    good = {"ok": True, "category": "Core", "level": "default", "message": "a %d", "meaning": "m",
            "remedy": "r"}
    def found(told):
        return list(message_findings({'1.000 log   Core default "a 17"': told, "a 17": told}, [call],
                                     rows))
    assert not found(good)
    for spoiled in ({"ok": False}, good | {"message": "b"}, good | {"meaning": "x"},
                    good | {"level": "fault"}):
        assert len(found(spoiled)) == 2, spoiled
    part = {"text": "1", "code": "One", "name": "n", "meaning": "c", "remedy": "d"}
    line = CARRIERS["failed:"] % 1
    assert not list(code_findings({line: {"parts": [part]}}, codes[:1]))
    assert list(code_findings({line: {"parts": [part | {"name": "x"}]}}, codes[:1]))
    assert list(code_findings({line: {"ok": False}}, codes[:1]))
    logged = '1.0 log   Core default "a 17"'
    assert not list(log_findings([(logged, good)]))
    assert list(log_findings([(logged, good | {"category": "x"})]))
    assert list(log_findings([(logged, {"ok": False})]))
    print("the check finds messages, codes and lines that are not explained, or in other words")


def shown_commands(document):
    return re.findall(r"^ {4}(virtual-mac explain .*)$", document, re.M)


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 2:
        sys.exit(__doc__)
    root, program = pathlib.Path(arguments[0]).resolve(), pathlib.Path(arguments[1]).resolve()
    calls = {call for path in sorted((root / "KorvelHelper").glob("*.cpp"))
             for call in messages.calls_in(path.name, path.read_text(encoding="utf-8"))}
    document = (root / "docs/log-messages.md").read_text(encoding="utf-8")
    codes = list(codes_in(document))
    lines = [line for category, level, text in sorted(calls)
             for line in (f'1.000 log   {category} {level} "{rendered(text)}"', rendered(text))]
    lines += [CARRIERS[mark] % number for mark, number, _ in codes]
    answer = dict(asked(program, lines))
    played = subprocess.run([program, "run", root / "VirtualMac/Scenarios/gallery", "--journal"],
                            cwd=root, capture_output=True, text=True, timeout=300, check=True)
    logged = [line for line in played.stdout.splitlines() if LOG_LINE.search(line)]
    found = list(message_findings(answer, calls, rows_by_message(document)))
    found += code_findings(answer, codes)
    found += log_findings(asked(program, logged))
    commands = shown_commands(document)
    for command in commands:
        done = subprocess.run(["bash", "-c", command], capture_output=True, text=True, timeout=60,
                              check=False, env={"PATH": f"{program.parent}:/usr/bin:/bin"})
        if done.returncode != 0 or "\nwhat to do  " not in done.stdout:
            found.append(f"{command}: {done.stdout}{done.stderr}")
    for line in found:
        print(line)
    if found or not (calls and codes and logged and commands):
        sys.exit(f"{len(found)} lines are not explained")
    print(f"{len(calls)} messages, {len(codes)} codes and {len(logged)} lines of the gallery, each explained")


if __name__ == "__main__":
    main(sys.argv[1:])
