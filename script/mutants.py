#!/usr/bin/env python3
"""Makes single changes to the core and looks whether a test notices each.

usage: mutants.py TREE BUILD [--count N] [--seed S] [--shard I/N] [--json FILE] [--list] [--only TEXT]
       mutants.py --self-test

The tree is not touched: a changed copy of one source, or what includes a changed header, is compiled by
itself and linked before the rest of the core. EQUIVALENT names the changes that nothing can notice, each
with its reason.
"""
import argparse
import collections
import concurrent.futures
import contextlib
import json
import os
import pathlib
import queue
import random
import re
import shlex
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "checks"))
import mutations  # noqa: E402  (the folder is known from here on)
import tree  # noqa: E402

EQUIVALENT = "script/mutants-equivalent.txt"
# The test programs in the order in which they are asked, with their arguments and environment. Most
# changes are noticed by the first.
PROGRAMS = (("behaviour", "korvel_behaviour_tests", (), {}),
            ("unit", "korvel_unit_tests", (), {}),
            ("model", "korvel_model_tests", ("--gtest_filter=*AgreesWithTheProgram*",), {}),
            ("seam", "vmac_seam_tests", (), {}),
            ("properties", "korvel_property_tests", (), {}))
LIMIT = 10.0     # A program may take so many times as long as without a change,
SLACK = 10.0     # and so many seconds more.
NOTICED = 0.97   # Of those that can be noticed, at least.
MOST_EQUIVALENT = 0.05
ENOUGH = 400     # Of fewer changes, chance decides how many are equivalent.
SHELL = " && "
NOT_COMPILED, SAME = "does not compile", "compiles to the same"


def equivalents(root):
    """{name: reason}."""
    told = {}
    path = root / EQUIVALENT
    for line in path.read_text(encoding="utf-8").splitlines() if path.exists() else ():
        if line and not line.startswith("#"):
            name, separator, reason = line.partition("`: equivalent because ")
            if not separator or not reason:
                sys.exit(f'{EQUIVALENT}: no "equivalent because": {line}')
            told[name + "`"] = reason
    return told


class Workshop:
    """Compiles, links and runs. One for each worker, with a folder of its own."""

    def __init__(self, root, build, folder):
        self.root, self.build, self.folder = root, build, folder
        self.compile = {pathlib.Path(each["file"]): self.compile_command(each["command"])
                        for each in tree.commands(build)}
        self.link = {program: self.link_command(program) for _, program, _, _ in PROGRAMS}
        self.usual = {}
        self.includes = {}

    @staticmethod
    def compile_command(command):
        """(the object file, the command that makes it)."""
        command = command.removeprefix("ccache ")
        return re.search(r" -o (\S+)", command)[1], command

    def link_command(self, program):
        said = subprocess.run(["ninja", "-C", str(self.build), "-t", "commands", program],
                              capture_output=True, text=True, check=True).stdout.splitlines()
        command = next(each for each in said[-1].split(SHELL) if " -o " in each)
        place = re.search(r" -o (\S+)", command)[1]
        return command, place

    def users(self, header):
        """The core's sources that include it."""
        if not self.includes:
            said = subprocess.run(["ninja", "-C", str(self.build), "-t", "deps"], capture_output=True,
                                  text=True, check=True).stdout
            for entry in said.split("\n\n"):
                made, *needed = entry.split("\n")
                if made.startswith("KorvelHelper/"):
                    paths = {(self.build / each.strip()).resolve() for each in needed}
                    self.includes[next(path for path in paths if path.suffix == ".cpp")] = paths
        return [source for source, paths in self.includes.items() if header in paths] or sys.exit(
            f"{header}: no source of the core includes it")

    def objects_of(self, mutant, code):
        """The object files of what is changed, or the verdict: it does not compile, or is the same."""
        source = self.root / mutant.file
        changed = self.folder / source.name
        changed.write_text(code, encoding="utf-8")
        overlay = self.folder / "overlay.json"
        overlay.write_text(json.dumps({"version": 0, "roots": [
            {"type": "file", "name": str(source), "external-contents": str(changed)}]}))
        made, differs = [], False
        for user in [source] if source.suffix == ".cpp" else self.users(source):
            usual, command = self.compile[user]
            made.append(self.folder / f"{user.stem}.o")
            command = command.replace(f" -o {usual}", f" -o {shlex.quote(str(made[-1]))}")
            done = subprocess.run(f"{command} -w -Wno-error -ivfsoverlay {overlay}", shell=True, check=False,
                                  cwd=self.build, capture_output=True)
            if done.returncode != 0:
                return [], NOT_COMPILED
            differs |= made[-1].read_bytes() != (self.build / usual).read_bytes()
        return made, None if differs else SAME

    def linked(self, program, first):
        command, place = self.link[program]
        made = self.folder / program
        command = command.replace(f" -o {place}", f" -o {made} {first or ''}")
        done = subprocess.run(command.removeprefix("ccache "), shell=True, cwd=self.build, check=False,
                              capture_output=True, text=True)
        return made if done.returncode == 0 else None

    def run(self, program, made, words, environment):
        """Its status; none: it takes too long."""
        limit = LIMIT * self.usual[program] + SLACK if program in self.usual else None
        begun = time.monotonic()
        process = subprocess.Popen(
            [str(made), "--gtest_brief=1", "--gtest_fail_fast", *words], cwd=self.folder,
            env={**os.environ, **environment, "TMPDIR": str(self.folder)}, start_new_session=True,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            status = process.wait(limit)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, 9)
            process.wait()
            return None
        if limit is None:
            self.usual[program] = time.monotonic() - begun
        return status

    def prepare(self):
        """Every program passes when nothing is changed."""
        for label, program, words, environment in PROGRAMS:
            made = self.linked(program, None)
            if made is None or self.run(program, made, words, environment) != 0:
                sys.exit(f"{label}: {program} does not pass without a change")

    def verdict(self, mutant, new):
        code = tree.read(self.root, mutant.file)
        made, refusal = self.objects_of(mutant, code[:mutant.start] + new + code[mutant.end:])
        if refusal:
            return refusal, None
        first = shlex.join(map(str, made))
        for label, program, words, environment in PROGRAMS:
            made = self.linked(program, first)
            if made is None:
                return NOT_COMPILED, None
            status = self.run(program, made, words, environment)
            if status is None:
                return "timed out", label
            if status != 0:
                return "noticed", label
        return "not noticed", None


def chosen(all_of_them, asked):
    """In the order of a draw; a part takes each one whose turn it is."""
    drawn = [each for each in all_of_them if not asked.only or asked.only in each[0].name]
    random.Random(asked.seed).shuffle(drawn)
    part, parts = map(int, asked.shard.split("/"))
    return drawn[part - 1::parts], -(-(asked.count - part + 1) // parts)


def tried(asked, drawn, count, known):
    """Verdicts until `count` of them compile."""
    verdicts, waiting = [], iter(drawn)
    with tempfile.TemporaryDirectory(prefix="mutants-") as folder:
        shops = queue.SimpleQueue()
        for number in range(asked.jobs):
            place = pathlib.Path(folder, str(number))
            place.mkdir()
            shops.put(Workshop(asked.tree, asked.build, place))
        first = shops.get()
        first.prepare()
        shops.put(first)

        def judge(each):
            shop = shops.get()
            try:
                shop.usual = first.usual
                return each[0], *shop.verdict(*each)
            finally:
                shops.put(shop)

        with concurrent.futures.ThreadPoolExecutor(asked.jobs) as pool:
            under_way = set()
            begun = time.monotonic()
            while True:
                compiled = sum(verdict not in (NOT_COMPILED, SAME) for _, verdict, _ in verdicts)
                while len(under_way) < asked.jobs and compiled + len(under_way) < count:
                    each = next(waiting, None)
                    if each is None:
                        break
                    under_way.add(pool.submit(judge, each))
                if not under_way:
                    return verdicts
                done, under_way = concurrent.futures.wait(
                    under_way, return_when=concurrent.futures.FIRST_COMPLETED)
                for each in done:
                    mutant, verdict, label = each.result()
                    if verdict == "not noticed" and mutant.name in known:
                        verdict = "equivalent"
                    verdicts.append((mutant, verdict, label))
                    print(f"{len(verdicts):4} {time.monotonic() - begun:5.0f} s  {verdict}"
                          f"{' by ' + label if label else ''}: {mutant.file}:{mutant.line} {mutant.kind} "
                          f"{mutant.old} -> {mutant.new}", flush=True)


def summary(asked, verdicts, total):
    counts = collections.Counter(verdict for _, verdict, _ in verdicts)
    by = collections.Counter(label for _, verdict, label in verdicts if verdict == "noticed")
    compiled = len(verdicts) - counts[NOT_COMPILED] - counts[SAME]
    told = {"seed": asked.seed, "shard": asked.shard, "candidates": total, "compiled": compiled,
            "verdicts": dict(counts), "noticedBy": dict(by),
            "kinds": dict(collections.Counter(mutant.kind for mutant, verdict, _ in verdicts
                                              if verdict not in (NOT_COMPILED, SAME))),
            "notNoticed": [mutant.name for mutant, verdict, _ in verdicts if verdict == "not noticed"]}
    return told


def judged(told):
    """Prints the figures; whether they are good enough."""
    counts, compiled = told["verdicts"], told["compiled"]
    print(f"\n{compiled} of {told['candidates']} possible changes, seed {told['seed']}, part {told['shard']}")
    for word in ("noticed", "timed out", "equivalent", "not noticed", SAME, NOT_COMPILED):
        print(f"  {word:<20} {counts.get(word, 0):>5}")
    for label, number in sorted(told["noticedBy"].items(), key=lambda each: -each[1]):
        print(f"  noticed by {label:<14} {number:>5}")
    for name in told["notNoticed"]:
        print(f"NOT NOTICED {name}")
    real = compiled - counts.get("equivalent", 0)
    share = (counts.get("noticed", 0) + counts.get("timed out", 0)) / max(1, real)
    print(f"{100 * share:.1f} % of those that can be noticed are")
    equivalent = counts.get("equivalent", 0) if compiled >= ENOUGH else 0
    return share >= NOTICED and equivalent <= MOST_EQUIVALENT * compiled


def self_test():
    code = ('#include "a.h"\n// if (no)\nvoid f(int& a) {\n  if (a < 5) return;\n  a = 0x10;\n  g(a, "text");\n'
            '  h(!b && true);\n  log.error("x");\n}\n')
    made = {(kind, code[:start] + new + code[end:]) for start, end, new, kind in mutations.changes(code, tree.blanked(code))}
    for kind, old, new in (("operator", "a < 5", "a <= 5"), ("number", "a < 5", "a < 6"),
                           ("condition", "(a < 5)", "(!(a < 5))"), ("number", "0x10", "0x11"),
                           ("statement", "  g(a, \"text\");", "  ;"), ("text", '"text"', '"~ext"'),
                           ("negation", "!b", "b"), ("operator", "&&", "||"),
                           ("truth value", "true", "false"), ("level", "log.error", "log.fault"),
                           ("neighbours", '  a = 0x10;\n  g(a, "text");', '  g(a, "text");\n  a = 0x10;')):
        if (kind, code.replace(old, new, 1)) not in made:
            sys.exit(f"no change of kind {kind} makes {new} of {old}")
    if any("yes" in text or "~.h" in text for _, text in made) or len(made) < 14:
        sys.exit("a comment or an include is changed")
    for noticed, equivalent, compiled, good in ((388, 0, 400, True), (387, 0, 400, False), (376, 12, 400, False),
                                                (380, 20, 400, True), (379, 21, 400, False), (55, 5, 60, True),
                                                (53, 5, 60, False)):
        told = {"seed": 1, "shard": "1/1", "candidates": 400, "compiled": compiled, "noticedBy": {},
                "notNoticed": [], "verdicts": {"noticed": noticed, "equivalent": equivalent}}
        with contextlib.redirect_stdout(None):
            is_good = judged(told)
        if is_good != good:
            sys.exit(f"{noticed} noticed and {equivalent} equivalent of {compiled} are judged wrongly")
    print("every kind of change is made, and the figures are judged as they should be")


def main(arguments):
    if arguments == ["--self-test"]:
        self_test()
        return 0
    reader = argparse.ArgumentParser(description=__doc__)
    reader.add_argument("tree", type=pathlib.Path)
    reader.add_argument("build", type=pathlib.Path)
    reader.add_argument("--count", type=int, default=60)
    reader.add_argument("--seed", type=int, default=1)
    reader.add_argument("--shard", default="1/1")
    reader.add_argument("--jobs", type=int, default=os.cpu_count())
    reader.add_argument("--json", type=pathlib.Path)
    reader.add_argument("--only", default="", help="those whose name has this text")
    reader.add_argument("--list", action="store_true", help="print all possible changes, and try none")
    asked = reader.parse_args(arguments)
    asked.tree, asked.build = asked.tree.resolve(), asked.build.resolve()
    found = mutations.candidates(asked.tree)
    names = {mutant.name for mutant, _ in found}
    known = equivalents(asked.tree)
    gone = sorted(set(known) - names)
    if gone:
        sys.exit("\n".join(f"{EQUIVALENT}: there is no such change any more: {name}" for name in gone))
    if asked.list:
        print("\n".join(sorted(name for name in names if asked.only in name)))
        return 0
    drawn, count = chosen(found, asked)
    told = summary(asked, tried(asked, drawn, count, known), len(found))
    if asked.json:
        asked.json.write_text(json.dumps(told, indent=1) + "\n", encoding="utf-8")
    return 0 if judged(told) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
