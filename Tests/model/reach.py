#!/usr/bin/env python3
"""Shows which messages of docs/log-messages.md and which pairs of successive states the drawn
stories do not come by, and compares them with the named exceptions.

usage: reach.py REPOSITORY EXCEPTIONS DIRECTORY
       reach.py --self-test

DIRECTORY is the one that the model's test writes to, as KORVEL_REACH. A line of EXCEPTIONS
reads "log CATEGORY LEVEL MESSAGE: because ..." or "state TOPIC BEFORE AFTER: because ...". An
exception that is reached, or that does not exist, is a mistake too.
"""
import itertools
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "docs"))
import check_log_messages  # noqa: E402

LEVELS = {"default": "0", "error": "16", "fault": "17"}
STATES = {
    "limit": ("idle", "enforcing", "lifting"),
    "gate": ("none", "pause", "pause-failed", "resume", "resume-failed"),
    "check": ("verified", "unverified"),
    "discharge": ("none", "running", "armed", "stopped"),
    "keep-awake": ("off", "own", "found"),
    "top-off": ("none", "running"),
    "clients": ("none", "one", "several", "grace"),
}
EXCEPTION = re.compile(r"^(?P<what>(log|state) .+): because \S.*$")


def pattern(message):
    """Arguments of a message are of any text, none included."""
    parts = re.split(r"%(?:\{[^}]*\})?(?:hhu|ld|d|u|s)", message.replace("%%", "\0"))
    return re.compile(".*".join(re.escape(part.replace("\0", "%")) for part in parts), re.S)


def messages(document):
    """{name: the beginning and the pattern of its lines}"""
    return {f"log {category} {level} {text}": (f"log {category} {LEVELS[level]} ", pattern(text))
            for category, level, text in check_log_messages.rows_in(document)
            if category != "Texts within messages"}


def pairs():
    return [f"state {topic} {before} {after}" for topic, states in STATES.items()
            for before, after in itertools.permutations(states, 2)]


def missing(document, reached):
    found = [pair for pair in pairs() if pair not in reached]
    for name, (start, shape) in messages(document).items():
        if not any(line.startswith(start) and shape.fullmatch(line[len(start):]) for line in reached):
            found.append(name)
    return found


def exceptions(text):
    lines = [line for line in text.splitlines() if line and not line.startswith("#")]
    told = [EXCEPTION.match(line) for line in lines]
    wrong = [f"an exception reads WHAT: because ..., not: {line}"
             for line, match in zip(lines, told) if match is None]
    return [match["what"] for match in told if match], wrong


def complaints(document, excepted, reached):
    unknown = [f"a state that is not listed: {line}" for line in sorted(reached)
               if line.startswith("state ") and line not in pairs()]
    left = missing(document, reached)
    named, wrong = exceptions(excepted)
    return (unknown + wrong + [f"not reached: {each}" for each in left if each not in named]
            + [f"an exception is reached, or gone: {each}" for each in named if each not in left])


def self_test():
    document = "## Boot\n| default | `up pid=%{public}d.` | a | b |\n| fault | `down` | a | b |\n"
    every = {*pairs(), "log Boot 0 up pid=12.", "log Boot 17 down"}
    assert not complaints(document, "# none\n", every), complaints(document, "", every)
    without = every - {"log Boot 17 down"}
    assert complaints(document, "", without) == ["not reached: log Boot fault down"]
    assert not complaints(document, "log Boot fault down: because it is never so\n", without)
    assert complaints(document, "log Boot fault down: because it is never so\n", every)
    assert complaints(document, "log Boot fault down\n", every)
    assert complaints(document, "", every - {"state check verified unverified"})
    assert complaints(document, "", every | {"state check verified odd"})
    assert complaints(document, "", every - {"log Boot 0 up pid=12."} | {"log Boot 16 up pid=12."})


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    root, excepted, directory = map(pathlib.Path, sys.argv[1:])
    document = (root / "docs/log-messages.md").read_text(encoding="utf-8")
    reached = {line for file in directory.glob("reach.*")
               for line in file.read_text(encoding="utf-8").splitlines()}
    found = complaints(document, excepted.read_text(encoding="utf-8"), reached)
    print("\n".join(found) if found else "every message and pair of states is reached, but for the "
          f"named ones: {len(messages(document))} messages, {len(pairs())} pairs")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
