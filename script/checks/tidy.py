#!/usr/bin/env python3
"""Runs clang-tidy 19 (.clang-tidy) on every source that a build compiles, two or more at a time. A
source of several builds is tidied as the first of them compiles it.

usage: tidy.py REPOSITORY BUILD... [-- FILE...]
"""
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

import tree

TIDY = "clang-tidy-19"
# clang is told what the commands of another compiler mean.
WORDS = {"tin": ("--extra-arg=--target=aarch64-linux-gnu",
                 "--extra-arg=-Wno-unknown-warning-option")}
# A file of parsed headers may not be built yet, and says nothing about a source.
PRECOMPILED = re.compile(r" -Winvalid-pch| -Xclang -include(?:-pch)? -Xclang \S+/cmake_pch\.hxx\S*")
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


def tidy(root, commands, source):
    done = subprocess.run([TIDY, "--quiet", *WORDS.get(commands.name, ()), "-p", str(commands),
                           str(source)], cwd=root, capture_output=True, text=True, check=False)
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
        for status, text in pool.map(lambda s: tidy(root, commands[build_of[s]], s), sources):
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
