#!/usr/bin/env python3
"""Takes the steps of the nightly check, and merges the results of several machines. See script/check.

usage: check.py TREE [STEP...] [--shard I/N] [--seed N] [--results DIR]
       check.py TREE --merge DIR [STEP...]
       check.py --self-test
"""
import argparse
import dataclasses
import datetime
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import long
from long import say

WORKFLOW = ".github/workflows/nightly.yml"
NORMAL = "--label-exclude \"$notNormal\""
PLANTED = "script/fuzz --self-test; script/soak --self-test"


@dataclasses.dataclass(frozen=True)
class Step:
    text: str
    commands: str

    def run(self, tree, _record, _asked):
        words = f"set -euo pipefail; source script/common.sh; {self.commands}"
        return subprocess.run(["bash", "-c", words, "check"], cwd=tree, check=False).returncode == 0


@dataclasses.dataclass(frozen=True)
class LongStep:
    """Can be divided; its parts' figures are judged together."""
    text: str
    run_name: str

    def run(self, tree, record, asked):
        long_run = long.RUNS[self.run_name]
        if isinstance(long_run, long.Tool):
            record["seeds"] = [asked.seed, asked.seed]
        elif long_run.last_seed:
            record["seeds"] = [1, long_run.last_seed]
        seeds = ["--seeds", "{}-{}".format(*record["seeds"])] if "seeds" in record else []
        with tempfile.TemporaryDirectory() as folder:
            told = pathlib.Path(folder, "figures.json")
            status = subprocess.run(
                [str(tree / "script/long"), self.run_name, *seeds, "--shard", record["shard"], "--json", str(told)],
                cwd=tree, check=False).returncode
            if told.exists():
                record["figures"] = json.loads(told.read_text(encoding="utf-8"))
        return status == 0


def tests(preset, selection=NORMAL, environment=""):
    return (f"build {preset}; log=$(mktemp); trap 'rm -f \"$log\"' EXIT; "
            f'{environment} runTests {preset} "$log" {selection}')


STEPS = {
    "clang": Step("clang 19: every test, full sweeps included, but for long ones",
                  tests("clang", "--label-exclude '^(long|tin)$'")),
    # They mostly sleep, and each fails if it wakes up late.
    "long-tests": Step("clang 19: long tests, beside one another only", tests("clang", "-L '^long$' -j $((jobs * 4))")),
    "g++": Step("g++ 12: normal tests", tests("debug")),
    "asan": Step("address and undefined-behaviour sanitizers: normal tests", tests("asan")),
    # By default every program under the thread sanitizer ends a second late, and so would the helper.
    "tsan": Step("thread sanitizer: normal tests", tests("tsan", NORMAL, "TSAN_OPTIONS=atexit_sleep_ms=0")),
    "coverage": Step("all lines and branches of the core, but for named ones", "script/coverage"),
    "planted": Step("fuzzing and soak find the mistakes that are planted", PLANTED),
    "lint": Step("format, lint and tree checks", "script/lint"),
    "release": Step("release build with benchmarks", "build release"),
    "package": Step("Debian package, in a new Debian", "script/package"),
    "demo": Step("demonstration", "script/demo"),
    "model": LongStep("the reference model agrees with the program", "model"),
    "small-scope": LongStep("every short sequence comes right", "small-scope"),
    "swarm": LongStep("comes right after anything", "swarm"),
    "mutants": LongStep("the tests notice changes of the core", "mutants"),
    "fuzz": LongStep("no made-up input ends a target", "fuzz"),
    "soak": LongStep("nothing is left behind by killed helpers", "soak"),
}


def commit_of(tree):
    said = subprocess.run(["git", "-C", str(tree), "rev-parse", "HEAD"], capture_output=True, text=True, check=False)
    return said.stdout.strip() or "unknown"


def take(name, asked):
    """Runs the step and leaves its result."""
    record = {"step": name, "shard": asked.shard or "1/1", "commit": commit_of(asked.tree)}
    begun = time.monotonic()
    record["passed"] = STEPS[name].run(asked.tree, record, asked)
    record["seconds"] = round(time.monotonic() - begun)
    part = record["shard"].replace("/", "-of-")
    (asked.results / f"{name}.{part}.json").write_text(json.dumps(record, indent=1) + "\n", encoding="utf-8")
    return record


def together(name, records):
    """(what is wrong with the results of a step's parts, figures of all)."""
    if not records:
        return ["no result"], {}
    found = [f"part {record['shard']} failed" for record in records if not record["passed"]]
    for what in ("commit", "seeds"):
        values = sorted({str(record.get(what)) for record in records})
        if len(values) > 1:
            found.append(f"its parts differ in {what}: {', '.join(values)}")
    parts = {tuple(map(int, record["shard"].split("/"))) for record in records}
    totals = {total for _, total in parts}
    if len(totals) > 1 or len(parts) < len(records):
        found.append("parts of several runs: " + ", ".join(sorted(record["shard"] for record in records)))
    else:
        whole = max(totals)
        found += [f"part {part}/{whole} is missing" for part in range(1, whole + 1) if (part, whole) not in parts]
    figures = {}
    for record in records:
        figures = long.added(figures, record.get("figures", {}))
    if isinstance(STEPS[name], LongStep) and not found:
        found += long.RUNS[name].problems(figures, records[0].get("seeds"))
    return found, figures


def told(name, figures):
    """The figures that a table has room for."""
    if not isinstance(STEPS[name], LongStep):
        return ""
    counted = ((each, figures.get(each)) for each in long.RUNS[name].counted)
    return ", ".join(f"{sum(value.values()) if isinstance(value, dict) else value} {each}"
                     for each, value in counted if value is not None)


def table(names, records):
    """Prints a row for each step; how many did not pass."""
    failed = 0
    commits = {record["commit"] for record in records}
    say(f"\n{'result':<7} {'seconds':>8} {'parts':>5}  step")
    for name in names:
        mine = [record for record in records if record["step"] == name]
        found, figures = together(name, mine)
        failed += bool(found)
        say(f"{'FAILED' if found else 'passed':<7} {sum(record['seconds'] for record in mine):>8} {len(mine):>5}  "
            f"{name}: {told(name, figures) or STEPS[name].text}")
        for problem in found:
            say(f"{'':24}{problem}")
    if len(commits) > 1:
        say(f"FAILED: results of several commits: {', '.join(sorted(commits))}")
    return failed + (len(commits) > 1)


def read(directory):
    records = []
    for path in sorted(directory.rglob("*.json")):
        try:
            record = json.loads(path.read_text(encoding="utf-8"))
            if record["step"] not in STEPS:
                sys.exit(f"{path}: there is no step {record['step']}")
            records.append(record)
        except (ValueError, KeyError, TypeError) as problem:
            sys.exit(f"{path}: no result of a step: {problem}")
    return records


def self_test():
    def part(shard, **others):
        return {"step": "soak", "shard": shard, "commit": "a", "passed": True, "seconds": 1, "seeds": [1, 1],
                "figures": {"failures": [], "kills": 10, "duringAny": 6, "checks": 1}} | others

    for records, wanted in (
            ([part("1/2"), part("2/2")], []), ([part("1/2")], ["part 2/2 is missing"]), ([], ["no result"]),
            ([part("1/2"), part("2/2", passed=False)], ["part 2/2 failed"]),
            ([part("1/2"), part("2/2", commit="b")], ["its parts differ in commit: a, b"]),
            ([part("1/2"), part("2/2", seeds=[2, 2])], ["its parts differ in seeds: [1, 1], [2, 2]"]),
            ([part("1/2"), part("2/3")], ["parts of several runs: 1/2, 2/3"]),
            ([part("1/1"), part("1/1")], ["parts of several runs: 1/1, 1/1"]),
            # Half of one part is less than half of the whole.
            ([part("1/2"), part("2/2", figures={"failures": [], "kills": 10, "duringAny": 1, "checks": 1})],
             ["fewer than half of the kills were during a write, a discharge or a top-off"]),
            ([part("1/1", figures={"failures": ["so"]})], ["so"])):
        found, figures = together("soak", records)
        if found != wanted:
            sys.exit(f"{records} give {found}, not {wanted}")
    found, figures = together("soak", [part("1/2"), part("2/2")])
    if told("soak", figures) != "20 kills, 2 checks":
        sys.exit(f"the figures of two parts are told as {told('soak', figures)}")
    stories = {"step": "model", "shard": "1/1", "commit": "a", "passed": True, "seconds": 1, "seeds": [1, 50],
               "figures": {"failures": [], "stories": 49}}
    if together("model", [stories])[0] != ["49 stories for the seeds 1-50"]:
        sys.exit("a story that was not played is not missed")
    tree = pathlib.Path(__file__).resolve().parent.parent
    listed = re.search(r"step: \[(.*?)\]", (tree / WORKFLOW).read_text(encoding="utf-8"), re.S)[1]
    whole = [name for name, step in STEPS.items() if isinstance(step, Step)]
    if listed.replace(",", " ").split() != whole:
        sys.exit(f"{WORKFLOW} does not take the steps {', '.join(whole)}")
    print("parts that fail, are missing, are of other runs or too little together are named")


def main(arguments):
    if arguments == ["--self-test"]:
        self_test()
        return 0
    reader = argparse.ArgumentParser(prog="script/check", add_help=False, usage="try script/check --help")
    reader.add_argument("tree", type=pathlib.Path)
    reader.add_argument("steps", nargs="*", metavar="STEP")
    reader.add_argument("--shard", type=lambda text: "/".join(map(str, long.of_part(text))))
    reader.add_argument("--seed", type=long.of_count, default=int(f"{datetime.date.today():%Y%m%d}"))
    reader.add_argument("--results", type=pathlib.Path)
    reader.add_argument("--merge", type=pathlib.Path, metavar="DIR")
    reader.add_argument("--list", action="store_true")
    asked = reader.parse_intermixed_args(arguments)
    for name in asked.steps:
        if name not in STEPS:
            reader.error(f'there is no step "{name}"; there are: {" ".join(STEPS)}')
    if asked.list:
        say("\n".join(STEPS))
        return 0
    names = [name for name in STEPS if not asked.steps or name in asked.steps]
    if asked.merge:
        if not asked.merge.is_dir():
            reader.error(f"{asked.merge} is no directory")
        return 1 if table(names, read(asked.merge)) else 0
    if asked.shard:
        whole = [name for name in asked.steps if isinstance(STEPS[name], Step)]
        if whole:
            reader.error(f"{whole[0]} cannot be divided")
        names = [name for name in names if isinstance(STEPS[name], LongStep)]
    asked.results = (asked.results or asked.tree / "build/check").resolve()
    asked.results.mkdir(parents=True, exist_ok=True)
    for stale in asked.results.glob("*.json"):
        if re.sub(r"\.\d+-of-\d+$", "", stale.stem) in names:
            stale.unlink()
    return night(names, asked)


def night(names, asked):
    records = []
    begun = time.monotonic()
    for number, name in enumerate(names, start=1):
        minutes, seconds = divmod(int(time.monotonic() - begun), 60)
        say(f"\n=== step {number} of {len(names)}: {name}, {STEPS[name].text} ({minutes}m{seconds:02}s)")
        records.append(take(name, asked))
    if asked.shard:
        for record in records:
            say(f"{'passed' if record['passed'] else 'FAILED'} {record['seconds']:>7}  part {asked.shard} of "
                f"{record['step']}: {told(record['step'], record.get('figures', {}))}")
        return 0 if all(record["passed"] for record in records) else 1
    failed = table(names, records)
    say(f"\n{len(names) - failed} of {len(names)} steps passed in {int(time.monotonic() - begun) // 60} min")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
