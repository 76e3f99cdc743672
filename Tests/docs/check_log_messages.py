#!/usr/bin/env python3
"""Compares docs/log-messages.md with the log calls in the source: level, category and text. A text
that logText renders to stand within messages is quoted in the document.

usage: check_log_messages.py REPOSITORY
       check_log_messages.py --self-test
"""
import pathlib
import re
import sys

CATEGORY_OF_FILE = {
    "SMCWriter.cpp": "SMCWriter",
    "PowerUIChargeBackend.cpp": "PowerUIChargeBackend",
    "HelperPersistence.cpp": "Persistence",
    "IOPMAssertionManager.cpp": "IOPMAssertion",
    "ClamshellSleepController.cpp": "ClamshellSleep",
    "SystemPowerObserver.cpp": "SystemPower",
}
# In the entry and the core, the logger's name determines the category.
CATEGORY_OF_LOGGER = {("main.cpp", "log"): "Listener", ("main.cpp", "bootLog"): "Boot"}
LEVEL_OF_CALL = {"log": "default", "error": "error", "fault": "fault"}
CALL = re.compile(r'\b(\w*[lL]og)\s*(?:\.|->)\s*(log|error|fault)\(\s*((?:"(?:[^"\\]|\\.)*"\s*)+)', re.S)
PART = re.compile(r'\blogText\(\s*((?:"(?:[^"\\]|\\.)*"\s*)+)', re.S)
PIECE = re.compile(r'"((?:[^"\\]|\\.)*)"', re.S)
ROW = re.compile(r"^\| (default|error|fault) \| (`+) ?(.+?) ?\2 \|")


def unescape(text):
    return text.replace('\\"', '"').replace("\\\\", "\\")


def joined(literals):
    return "".join(unescape(piece) for piece in PIECE.findall(literals))


def parts_in(source):
    return {joined(literals) for literals in PART.findall(source)}


def calls_in(name, source):
    for logger, call, literals in CALL.findall(source):
        text = joined(literals)
        if name.startswith("HelperImpl"):
            category = "Boot" if logger == "bootLog" else "HelperImpl"
        else:
            category = CATEGORY_OF_LOGGER.get((name, logger)) or CATEGORY_OF_FILE.get(name)
        yield (category or f"unknown logger {logger} in {name}", LEVEL_OF_CALL[call], text)


def rows_in(document):
    category = None
    for line in document.splitlines():
        if line.startswith("## "):
            category = line[3:].strip()
        row = ROW.match(line)
        if row:
            yield (category, row.group(1), row.group(3))


def differences(source_calls, document_rows):
    in_source, in_document = set(source_calls), set(document_rows)
    for category, level, text in sorted(in_source - in_document):
        yield f"in the source, not in the document: {category} {level}: {text}"
    for category, level, text in sorted(in_document - in_source):
        yield f"in the document, not in the source: {category} {level}: {text}"


def self_test():
    source = 'log.fault("a %d"\n    " — b", 1); bootLog.log("c");'
    calls = set(calls_in("main.cpp", source))
    assert calls == {("Listener", "fault", "a %d — b"), ("Boot", "default", "c")}, calls
    rows = set(rows_in("## Boot\n| default | `c` | m | d |\n## Listener\n| fault | `a %d — b` | m | d |\n"))
    assert not list(differences(calls, rows))
    assert len(list(differences(calls, set()))) == 2
    assert len(list(differences(set(), rows))) == 2
    assert parts_in('s = logText("a=%d"\n  " b", 1); log.log("c");') == {"a=%d b"}
    print("the check finds messages that are missing on either side")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 1:
        sys.exit(__doc__)
    root = pathlib.Path(arguments[0])
    sources = {path.name: path.read_text(encoding="utf-8")
               for path in sorted((root / "KorvelHelper").glob("*.cpp"))}
    calls = [call for name, source in sources.items() for call in calls_in(name, source)]
    document = (root / "docs" / "log-messages.md").read_text(encoding="utf-8")
    found = list(differences(calls, list(rows_in(document))))
    found += [f"in the source, not in the document: {part}" for source in sources.values()
              for part in sorted(parts_in(source)) if f"`{part}`" not in document]
    for line in found:
        print(line)
    if found or not calls:
        sys.exit(f"{len(found)} differences between the log messages and their document")
    print(f"{len(set(calls))} log messages, each documented with its level and category")


if __name__ == "__main__":
    main(sys.argv[1:])
