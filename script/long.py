#!/usr/bin/env python3
"""Makes a long run or a part of one, and judges figures of all its parts. See script/long.

usage: long.py TREE RUN [--seeds A-B] [--count N] [--shard I/N] [--jobs N] [--json FILE]
"""
import argparse
import concurrent.futures
import contextlib
import dataclasses
import io
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import mutants

CHUNKS = 20      # A run of games tells so many times how far it is.
MOST = {"candidates", "peaks"}  # Figures of which the greatest counts; the others are added.
FAILURES = "failures"


@dataclasses.dataclass(frozen=True)
class Games:
    """Cases that a test program plays; they are divided by their numbers."""
    program: str
    tests: str
    counted: tuple       # Properties of its tests that count what was played.
    last_seed: int       # 0: all cases are played, whatever the seed.
    most = None          # Nothing is asked for each seed.

    def play(self, asked, folder):
        first, last = asked.seeds or (1, self.last_seed)
        build(asked.tree, "clang", self.program)
        program = next(asked.tree.glob(f"build/clang/Tests/*/{self.program}"))
        seeds = {"KORVEL_FULL": "1"}
        if self.last_seed:
            seeds = {"KORVEL_FIRST_SEED": str(first), "KORVEL_SEEDS": str(last - first + 1)}
        part, parts = asked.shard
        figures = dict.fromkeys(self.counted, 0) | {FAILURES: []}
        begun = time.monotonic()

        def chunk(number):
            told = folder / f"{number}.json"
            done = subprocess.run(
                ["nice", str(program), f"--gtest_filter={self.tests}", f"--gtest_output=json:{told}"],
                env={**os.environ, **seeds, "KORVEL_SHARD": f"{(number - 1) * parts + part}/{parts * CHUNKS}"},
                cwd=folder, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            if not told.exists():
                return {FAILURES: [f"{self.program} ended with status {done.returncode}: {done.stdout[-2000:]}"]}
            return self.figures(json.loads(told.read_text(encoding="utf-8")))

        with concurrent.futures.ThreadPoolExecutor(asked.jobs) as pool:
            for number, told in enumerate(pool.map(chunk, range(1, CHUNKS + 1)), start=1):
                figures = added(figures, told)
                counts = ", ".join(f"{figures[name]} {name}" for name in self.counted)
                say(f"{100 * number // CHUNKS:3} %  {time.monotonic() - begun:6.0f} s  {counts}, "
                    f"{len(figures[FAILURES])} failures")
        return figures

    def figures(self, report):
        told = dict.fromkeys(self.counted, 0) | {FAILURES: []}
        for suite in report["testsuites"]:
            for test in suite["testsuite"]:
                for name in self.counted:
                    told[name] += int(test.get(name, 0))
                told[FAILURES] += [failure["failure"] for failure in test.get("failures", ())]
        return told

    def problems(self, figures, seeds):
        found = list(figures[FAILURES])
        for name in self.counted:
            if self.last_seed and figures[name] != seeds[1] - seeds[0] + 1 and not found:
                found.append(f"{figures[name]} {name} for the seeds {seeds[0]}-{seeds[1]}")
            if not figures[name]:
                found.append(f"no {name}")
        return found


@dataclasses.dataclass(frozen=True)
class Tool:
    """A script that makes a part of the run for one seed."""
    script: str
    count: str           # Its option for how much.
    most: int            # What it is given if nobody says.
    judge: object        # Problems of the figures of all parts.
    counted: tuple
    last_seed = 1

    def play(self, asked, folder):
        first, last = asked.seeds or (1, 1)
        figures = {FAILURES: []}
        for seed in range(first, last + 1):
            told = folder / f"{seed}.json"
            words = [self.count, str(asked.count or self.most), "--seed", str(seed), "--shard",
                     "/".join(map(str, asked.shard)), "--json", str(told)]
            status = subprocess.run([str(asked.tree / "script" / self.script), *words], check=False).returncode
            if told.exists():
                said = json.loads(told.read_text(encoding="utf-8"))
                figures = added(figures, {name: value for name, value in said.items()
                                          if name not in ("seed", "shard")})
            else:
                figures[FAILURES].append(f"{self.script} {' '.join(words)}: status {status}, see above")
        return figures

    def problems(self, figures, _seeds):
        return figures[FAILURES] or self.judge(figures)


def of_mutants(figures):
    with contextlib.redirect_stdout(io.StringIO()) as words:
        good = mutants.judged({"seed": "of all", "shard": "all", **figures})
    return [] if good else [words.getvalue()]


def of_fuzzing(figures):
    return [] if figures["executions"] else ["no target was fuzzed"]


def of_soak(figures):
    short = 2 * figures["duringAny"] < figures["kills"]
    return ["fewer than half of the kills were during a write, a discharge or a top-off"] if short else []


RUNS = {
    "model": Games("korvel_model_tests", "Slice/ModelTest.*", ("stories",), 100000),
    "small-scope": Games("korvel_smallscope_tests", "*SmallScope.ComesRight*", ("sequences", "kills"), 0),
    "swarm": Games("korvel_swarm_tests", "SwarmTest.ComesRightAfterAnything", ("runs",), 3000),
    "mutants": Tool("mutants", "--count", 60, of_mutants, ("compiled",)),
    "fuzz": Tool("fuzz", "--seconds", 60, of_fuzzing, ("executions",)),
    "soak": Tool("soak", "--kills", 1000, of_soak, ("kills", "checks")),
}


def added(one, other, most=False):
    """Figures of two parts as those of one: numbers are added, and lists joined."""
    if isinstance(one, dict):
        return {name: added(one[name], other[name], most or name in MOST)
                if name in one and name in other else one.get(name, other.get(name))
                for name in [*one, *(name for name in other if name not in one)]}
    return max(one, other) if most else one + other


def build(tree, preset, *targets):
    say(f"Building {' '.join(targets)}")
    done = subprocess.run(["bash", "-c", 'source script/common.sh; build "$@" >/dev/null', "long", preset, *targets],
                          cwd=tree, check=False)
    if done.returncode != 0:
        sys.exit(f"it does not build; cmake --build build/{preset} tells why")


def say(text):
    print(text, flush=True)


def of_part(text):
    found = re.fullmatch(r"([1-9]\d{0,3})/([1-9]\d{0,3})", text)
    if not found or int(found[1]) > int(found[2]):
        raise argparse.ArgumentTypeError(f'takes I/N with I from 1 to N, not "{text}"')
    return int(found[1]), int(found[2])


def of_seeds(text):
    found = re.fullmatch(r"([1-9]\d{0,8})-([1-9]\d{0,8})", text)
    if not found or int(found[1]) > int(found[2]):
        raise argparse.ArgumentTypeError(f'takes A-B with A from 1 and not beyond B, not "{text}"')
    return int(found[1]), int(found[2])


def of_count(text):
    if not re.fullmatch(r"[1-9]\d{0,8}", text):
        raise argparse.ArgumentTypeError(f'takes a whole number from 1, not "{text}"')
    return int(text)


def main(arguments):
    reader = argparse.ArgumentParser(prog="script/long", add_help=False, usage="try script/long --help")
    reader.add_argument("tree", type=pathlib.Path)
    reader.add_argument("run", choices=RUNS)
    reader.add_argument("--seeds", type=of_seeds)
    reader.add_argument("--count", type=of_count)
    reader.add_argument("--shard", type=of_part, default=(1, 1))
    reader.add_argument("--jobs", type=of_count, default=os.cpu_count())
    reader.add_argument("--json", type=pathlib.Path)
    asked = reader.parse_args(arguments)
    run = RUNS[asked.run]
    if asked.count and not run.most:
        reader.error(f"--count is of no use to {asked.run}")
    if asked.seeds and not run.last_seed:
        reader.error(f"{asked.run} has no seeds")
    with tempfile.TemporaryDirectory(prefix="long-") as folder:
        figures = run.play(asked, pathlib.Path(folder))
    if asked.json:
        asked.json.write_text(json.dumps(figures, indent=1) + "\n", encoding="utf-8")
    # A part is not judged by its share of anything.
    problems = run.problems(figures, asked.seeds or (1, run.last_seed)) if asked.shard[1] == 1 else figures[FAILURES]
    for problem in problems:
        say(f"FAILED: {problem}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
