#!/usr/bin/env python3
"""Runs clang-tidy 19 (.clang-tidy) on every source that a build compiles. A source of several builds is
tidied as the first of them compiles it. Nearly all of the time goes into headers, so a few sources of a
target that are compiled alike are read as one, or each by itself when they cannot be. Those that were
tidy are not looked at again (build/tidy remembers them) until something changes in them, in what they
include, in how they are compiled, or in clang-tidy and its rules.

usage: tidy.py REPOSITORY BUILD... [-- FILE...]
       tidy.py --self-test
"""
import concurrent.futures
import contextlib
import dataclasses
import hashlib
import io
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

import tree

TIDY, CLANG = "clang-tidy-19", "clang++-19"
# clang is told what the commands of another compiler mean.
WORDS = {"tin": ("--target=aarch64-linux-gnu", "-Wno-unknown-warning-option")}
# A file of parsed headers may not be built yet, and says nothing about a source.
PRECOMPILED = re.compile(r" -Winvalid-pch| -Xclang -include(?:-pch)? -Xclang \S+/cmake_pch\.hxx\S*")
OUTPUT = re.compile(r"(?<=\s)(?:-o \S+|-c)(?=\s)")
TARGET = re.compile(r" -o (\S+?\.dir)/")
INCLUDE = re.compile(r"^#include .*$", re.M)
FINDING = re.compile(r"^(?=\S+:\d+:\d+: (?:error|warning): )", re.M)


SOURCES_AT_ONCE = 6  # As many as a build with KORVEL_PRECOMPILED compiles: those have no name twice.


@dataclasses.dataclass(frozen=True)
class Batch:
    """Sources that one command compiles, but for their names."""
    build: str
    directory: str
    command: str  # Without the compiler and the name of a source.
    sources: tuple

    def apart(self):
        return [dataclasses.replace(self, sources=(each,)) for each in self.sources]

    def words(self):
        beside = f"-iquote{self.sources[0].parent}"
        return [*shlex.split(self.command), *WORDS.get(self.build, ()), beside]


def batches(root, builds, asked=()):
    """All that the builds compile of the tree's own sources, or of the asked ones, each source once."""
    alike, seen = {}, set()
    for build in builds:
        for command in tree.commands(build):
            source = pathlib.Path(command["file"])
            if (source in seen or not source.is_relative_to(root) or source.is_relative_to(root / "build")
                    or (asked and source not in asked)):
                continue
            seen.add(source)
            target = TARGET.search(command["command"])
            words = OUTPUT.sub("", PRECOMPILED.sub("", command["command"])).replace(f" {source}", "")
            words = words.partition(" ")[2]
            # Each folder may have rules of its own.
            alike.setdefault((target and target[1], source.suffix, source.parent,
                              build.name, command["directory"], words), []).append(source)
    return [Batch(*key[3:], tuple(sources[first:first + SOURCES_AT_ONCE])) for key, sources in alike.items()
            for first in range(0, len(sources), SOURCES_AT_ONCE)]


def joined(sources):
    """The text of all of them: some rules are only for the file that is read first. A line that includes
    what an earlier source does is left out, since it would be a finding. What none of them should have
    declared for itself alone (misc-unused-using-decls) is found only if no other uses the same name."""
    parts, included = [], set()
    for source in sources:
        text = source.read_text(encoding="utf-8")
        parts.append(INCLUDE.sub(lambda line: "" if line[0] in included else line[0], text))
        included.update(INCLUDE.findall(text))
    return "\n".join(parts)


class Tidier:
    """Remembers which inputs were tidy: an empty file for each, by the digest of all that it reads."""

    def __init__(self, root, folder):
        self.root, self.folder = root, pathlib.Path(folder)
        self.tidied = root / "build/tidy"
        self.tidied.mkdir(parents=True, exist_ok=True)
        self.version = subprocess.run([TIDY, "--version"], capture_output=True, check=True).stdout

    def rules_of(self, source):
        """The files with the rules for a source."""
        folders = [folder for folder in source.parents if folder.is_relative_to(self.root)]
        return [folder / ".clang-tidy" for folder in folders if (folder / ".clang-tidy").exists()]

    def source_of(self, batch):
        """The path of a source that stands for the whole batch, with the same rules."""
        first = batch.sources[0]
        if len(batch.sources) == 1:
            return first
        place = self.folder / hashlib.sha256(repr(batch).encode()).hexdigest()
        for rules in self.rules_of(first):
            copy = place / rules.relative_to(self.root)
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_bytes(rules.read_bytes())
        together = place / first.relative_to(self.root).with_stem("together")
        together.parent.mkdir(parents=True, exist_ok=True)
        together.write_text(joined(batch.sources), encoding="utf-8")
        return together

    def place_of(self, batch, source):
        """The file that stands for the batch's input; none: it cannot be read as it would be."""
        read = subprocess.run([CLANG, *batch.words(), "-E", "-C", "-dD", source],
                              cwd=batch.directory, capture_output=True, check=False)
        if read.returncode != 0:
            return None
        # The batch's sources are in what was read of it.
        text = read.stdout.replace(str(source).encode(), b"SOURCE")
        rules = [rules.read_bytes() for rules in self.rules_of(batch.sources[0])]
        parts = b"\0".join([self.version, *rules, batch.command.encode(), text])
        return self.tidied / hashlib.sha256(parts).hexdigest()

    def findings(self, batch):
        """[(source, text)] of the batch's sources that are not tidy."""
        source = self.source_of(batch)
        place = self.place_of(batch, source)
        if place and place.exists():
            return []
        done = subprocess.run([TIDY, "--quiet", source, "--", *batch.words()],
                              cwd=batch.directory, capture_output=True, text=True, check=False)
        found = []
        if done.returncode != 0 or done.stdout.strip():
            if len(batch.sources) == 1:
                return [(source, done.stdout or done.stderr)]
            # Each by itself says whose a finding is, and whether it is one of all together alone.
            found = [each for part in batch.apart() for each in self.findings(part)]
        if place and not found:
            place.touch()
        return found


def check(root, builds, asked, workers):
    """(how many sources there are, how many are not tidy); prints the findings."""
    todo = batches(root, builds, asked)
    failed, said = set(), set()  # A header's finding comes with every source that includes it.
    with (concurrent.futures.ThreadPoolExecutor(workers) as pool,
          tempfile.TemporaryDirectory() as folder):
        tidier = Tidier(root, folder)
        for found in pool.map(tidier.findings, todo):
            for source, text in found:
                failed.add(source)
                for finding in FINDING.split(text):
                    if finding.strip() and finding not in said:
                        said.add(finding)
                        print(finding.replace(str(root) + "/", "").rstrip(), flush=True)
    return sum(len(batch.sources) for batch in todo), len(failed)
def self_test():
    contents = {
        ".clang-tidy": "Checks: '-*,modernize-use-nullptr,bugprone-suspicious-include'\n"
                       "WarningsAsErrors: '*'\nHeaderFilterRegex: '/Tests/'\n",
        "Tests/Tidy.cpp": "static int* first = nullptr;\nint* tidy() { return first; }\n",
        "Tests/SameName.cpp": "static int* first = nullptr;\nint* same() { return first; }\n",
        "Tests/Header.h": "inline int* header() { return 0; }\n",
        "Tests/Null.cpp": '#include "Header.h"\nint* null() { return 0; }\n',
        "Tests/Other.cpp": '#include "Header.h"\nint* other() { return header(); }\n',
        "Tests/Broken.cpp": "int broken() { return elsewhere; }\n"}
    for sources, wanted in (
            (["Tidy"], []), (["Tidy", "SameName"], []),
            (["Tidy", "Null"], ["Header.h:1:", "Null.cpp:2:"]), (["Null", "Other"], ["Header.h:1:", "Null.cpp:2:"]),
            (["Tidy", "Broken"], ["Broken.cpp:1:"])):
        with tree.made_of(contents) as folder:
            root = folder.resolve()
            build = root / "build/clang"
            build.mkdir(parents=True)
            (build / "compile_commands.json").write_text(json.dumps(
                [{"directory": str(build), "file": f"{root}/Tests/{name}.cpp",
                  "command": f"{CLANG} -o Tests/CMakeFiles/tests.dir/{name}.o -c {root}/Tests/{name}.cpp"}
                 for name in sources]), encoding="utf-8")
            for _ in range(2):  # The second time much of it is remembered.
                said = io.StringIO()
                with contextlib.redirect_stdout(said):
                    looked_at, _ = check(root, [build], set(), 1)
                found = re.findall(r"^Tests/(\S+?:\d+:)", said.getvalue(), re.M)
                if looked_at != len(sources) or found != wanted:
                    sys.exit(f"of {sources}, {looked_at} were looked at, with {found}, not {wanted}")
    print("what is found among several sources is found once and of the right one")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) < 2 or arguments[0].startswith("-"):
        sys.exit(__doc__.strip())
    end = arguments.index("--") if "--" in arguments else len(arguments)
    root, *builds = (pathlib.Path(a).resolve() for a in arguments[:end])
    asked = {pathlib.Path(f).resolve() for f in arguments[end + 1:]}
    sources, failed = check(root, builds, asked, int(os.environ.get("JOBS", os.cpu_count() or 1)))
    if not sources:
        sys.exit("no source to tidy: none of the files is compiled")
    if failed:
        sys.exit(f"{failed} of {sources} sources are not tidy")
    print(f"{sources} sources: tidy")
    return None


if __name__ == "__main__":
    main(sys.argv[1:])
