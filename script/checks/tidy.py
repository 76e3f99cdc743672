#!/usr/bin/env python3
"""Runs clang-tidy 19 (.clang-tidy) on every source that a build compiles, two or more at a time. A
source of several builds is tidied as the first of them compiles it. One that was tidy is not looked at
again (build/tidy remembers it) until something changes in it, in what it includes, in how it is compiled,
or in clang-tidy and its rules.

usage: tidy.py REPOSITORY BUILD... [-- FILE...]
"""
import concurrent.futures
import hashlib
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
WORDS = {"tin": ("--extra-arg=--target=aarch64-linux-gnu",
                 "--extra-arg=-Wno-unknown-warning-option")}
# A file of parsed headers may not be built yet, and says nothing about a source.
PRECOMPILED = re.compile(r" -Winvalid-pch| -Xclang -include(?:-pch)? -Xclang \S+/cmake_pch\.hxx\S*")
OUTPUT = re.compile(r"(?<=\s)(?:-o \S+|-c)(?=\s)")
FINDING = re.compile(r"^(?=\S+:\d+:\d+: (?:error|warning): )", re.M)


def compiled(root, build):
    """Paths of the tree's own sources that a build compiles."""
    names = {pathlib.Path(command["file"]) for command in tree.commands(build)}
    return [n for n in names if n.is_relative_to(root) and not n.is_relative_to(root / "build")]


def plain_commands(build, folder):
    """A folder with the build's commands: each source by itself, without precompiled headers."""
    place = pathlib.Path(folder, build.name)
    place.mkdir()
    commands = [command | {"command": PRECOMPILED.sub("", command["command"])}
                for command in tree.commands(build)]
    (place / "compile_commands.json").write_text(json.dumps(commands), encoding="utf-8")
    return place


class Memory:
    """Which inputs of clang-tidy were tidy: an empty file for each, by the digest of all that it reads."""

    def __init__(self, root, commands):
        self.folder = root / "build/tidy"
        self.folder.mkdir(parents=True, exist_ok=True)
        version = subprocess.run([TIDY, "--version"], capture_output=True, check=True).stdout
        self.rules = version + (root / ".clang-tidy").read_bytes()
        self.commands = {}
        for place in commands.values():
            for command in json.loads((place / "compile_commands.json").read_text(encoding="utf-8")):
                self.commands.setdefault((place, command["file"]), []).append(command)

    def place_of(self, commands, source):
        """The file that stands for the source's input; none: the source cannot be read as it would be."""
        digest = hashlib.sha256(self.rules)
        for command in self.commands[commands, str(source)]:
            extra = [word.removeprefix("--extra-arg=") for word in WORDS.get(commands.name, ())]
            words = [CLANG, *shlex.split(OUTPUT.sub("", command["command"]))[1:], *extra, "-E", "-C", "-dD"]
            read = subprocess.run(words, cwd=command["directory"], capture_output=True, check=False)
            if read.returncode != 0:
                return None
            digest.update(command["command"].encode() + b"\0" + read.stdout)
        return self.folder / digest.hexdigest()


def tidy(root, commands, source, memory):
    place = memory.place_of(commands, source)
    if place and place.exists():
        return 0, ""
    done = subprocess.run([TIDY, "--quiet", *WORDS.get(commands.name, ()), "-p", str(commands),
                           str(source)], cwd=root, capture_output=True, text=True, check=False)
    if place and done.returncode == 0 and not done.stdout.strip():
        place.touch()
    return done.returncode, done.stdout


def main(arguments):
    if len(arguments) < 2 or arguments[0].startswith("-"):
        sys.exit(__doc__.strip())
    end = arguments.index("--") if "--" in arguments else len(arguments)
    root, *builds = (pathlib.Path(a).resolve() for a in arguments[:end])
    asked = {pathlib.Path(f).resolve() for f in arguments[end + 1:]}
    build_of = {s: build for build in reversed(builds) for s in compiled(root, build)}
    sources = sorted(s for s in build_of if not asked or s in asked)
    if not sources:
        sys.exit("no source to tidy: none of the files is compiled")
    failed, said = 0, set()  # A header's finding comes with every source that includes it.
    workers = int(os.environ.get("JOBS", os.cpu_count() or 1))
    with (concurrent.futures.ThreadPoolExecutor(workers) as pool,
          tempfile.TemporaryDirectory() as folder):
        commands = {build: plain_commands(build, folder) for build in builds}
        memory = Memory(root, commands)
        for status, text in pool.map(lambda s: tidy(root, commands[build_of[s]], s, memory), sources):
            failed += status != 0
            for finding in FINDING.split(text):
                if finding.strip() and finding not in said:
                    said.add(finding)
                    print(finding.replace(str(root) + "/", "").rstrip(), flush=True)
    if failed:
        sys.exit(f"{failed} of {len(sources)} sources are not tidy")
    print(f"{len(sources)} sources: tidy")


if __name__ == "__main__":
    main(sys.argv[1:])
