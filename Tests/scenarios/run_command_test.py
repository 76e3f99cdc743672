#!/usr/bin/env python3
"""Looks at `virtual-mac run` and at the demonstration from outside: exit codes, words, pictures.

usage: run_command_test.py PROGRAMS CASE
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.dom.minidom

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
GALLERY = ROOT / "VirtualMac/Scenarios/gallery"


def run(programs, *words):
    return subprocess.run([str(programs / "virtual-mac"), "run", *map(str, words)], cwd=ROOT,
                          capture_output=True, text=True, timeout=120, check=False)


def expect(condition, done):
    if not condition:
        sys.exit(f"status {done.returncode}\n{done.stdout}\n{done.stderr}")


def passing_stories_end_with_0(programs):
    done = run(programs, GALLERY / "quit.yaml", GALLERY / "hand-back.yaml")
    expect(done.returncode == 0 and done.stdout.count("passed  ") == 2, done)


def a_failing_story_ends_with_1_and_a_report(programs):
    path = "Tests/scenarios/data/fails.yaml"
    done = run(programs, path, GALLERY / "quit.yaml")
    expect(done.returncode == 1, done)
    expect(f'{path}:10: at 00:01:00: expected "gate paused", but the gate is charging' in done.stdout,
           done)
    expect("the journal around it:\n" in done.stdout and "setChargeLimit ok" in done.stdout, done)
    expect(f"run it again: virtual-mac run {path} --in-process\n" in done.stdout, done)
    expect("passed  Leaving for good" in done.stdout, done)


def defects_end_with_2_and_their_lines(programs):
    path = "Tests/scenarios/data/defects.yaml"
    done = run(programs, path)
    expect(done.returncode == 2 and done.stdout == "", done)
    expect(f"{path}:3: " in done.stderr and f"{path}:6: " in done.stderr, done)
    expect("newer-kees" in done.stderr and "is it connect?" in done.stderr, done)


def two_ways_at_once_are_refused(programs):
    done = run(programs, GALLERY / "quit.yaml", "--in-process", "--processes")
    expect(done.returncode == 2, done)


def both_stages_say_the_same_of_what_cannot_be_done(programs):
    said = {"connect, helper start": "a helper is already running", "kill": "no helper is running",
            "connect, kill, signal TERM": "no helper is running", "update 2.1.0": "no helper is running",
            "connect as martian": "martian", "battery 50": "this Mac has no battery",
            "lid close": "this Mac has no lid", "adapter out, adapter renegotiates": "no adapter is connected"}
    with tempfile.TemporaryDirectory() as folder:
        for number, (actions, text) in enumerate(said.items()):
            story = pathlib.Path(folder, f"{number}.yaml")
            profile = "desktop" if "this Mac has no" in text else "newer-keys"
            story.write_text(f"name: A\ndescription: B\nprofile: {profile}\n"
                             f"steps: [{{at: 00:00:05, do: [{actions}]}}]\n", encoding="utf-8")
            for way in ("--in-process", "--processes"):
                done = run(programs, story, way)
                expect(done.returncode == 1 and " cannot be done: " in done.stdout
                       and text in done.stdout.split(" cannot be done: ")[1].splitlines()[0], done)


def both_stages_journal_the_same_deeds(programs):
    deeds = ["battery 64", "temperature 41.5", "temperature free", "ambient 30", "idle-sleep 10", "touch",
             "display in", "adapter out", "adapter in", "adapter renegotiates", "lid close", "lid open",
             "fault smc-silent-refusal CHTE", "heal smc-silent-refusal CHTE", "fault adapter-unknown",
             "fault adapter-mistyped", "connect", "update 2.1.0"]
    told = []
    with tempfile.TemporaryDirectory() as folder:
        story = pathlib.Path(folder, "deeds.yaml")
        story.write_text("name: A\ndescription: B\nsteps: [{at: 00:00:05, do: ["
                         f"{', '.join(deeds)}]}}, {{at: 00:01, do: signal INT}}]\n", encoding="utf-8")
        for way in ("--in-process", "--processes"):
            done = run(programs, story, "--journal", way)
            lines = [re.sub(r"helper \d+$", "helper", line.split(" ", 1)[1])
                     for line in done.stdout.splitlines() if re.match(r"[\d.]+ (mac|proc) ", line)]
            # How it ends is another matter: who is asked to, and how.
            lines = [line for line in lines if re.match(r"mac |proc  signal ", line)]
            lines = [line for line in lines if "going down" not in line]
            expect(done.returncode == 0 and len(lines) > len(deeds), done)
            told.append(lines)
    expect(told[0] == told[1] and "mac   fault smc-silent-refusal CHTE on" in told[0]
           and "proc  signal 2 to helper" in told[0], done)


def what_would_be_ignored_is_refused(programs):
    with tempfile.TemporaryDirectory() as folder:
        picture = pathlib.Path(folder, "out.svg")
        done = run(programs, GALLERY / "quit.yaml", GALLERY / "hand-back.yaml", "--timeline", picture)
        expect(done.returncode == 2 and "--timeline" in done.stderr and not picture.exists(), done)
    done = run(programs, GALLERY / "quit.yaml", "--speed", "60")
    expect(done.returncode == 2 and "--processes" in done.stderr, done)


def a_program_gets_json(programs):
    done = run(programs, "--json", GALLERY / "quit.yaml", "Tests/scenarios/data/fails.yaml")
    told = [json.loads(line) for line in done.stdout.splitlines()]
    expect(done.returncode == 1 and [each["ok"] for each in told] == [True, False], done)
    expect(told[0]["report"] == "" and told[0]["expectations"] > 0, done)
    expect("fails.yaml:10: " in told[1]["report"], done)
    done = run(programs, "--json", "Tests/scenarios/data/defects.yaml")
    expect(done.returncode == 2 and "newer-kees" in json.loads(done.stdout)["error"], done)


def the_journal_is_printed_on_demand(programs):
    done = run(programs, GALLERY / "quit.yaml", "--journal")
    expect(done.returncode == 0 and " smc   CHIE <- 08\n" in done.stdout, done)


def the_timeline_is_a_picture(programs):
    with tempfile.TemporaryDirectory() as folder:
        picture = pathlib.Path(folder, "out.svg")
        done = run(programs, GALLERY / "quit.yaml", "--timeline", picture)
        expect(done.returncode == 0, done)
        document = xml.dom.minidom.parse(str(picture))
        texts = [t.firstChild.data for t in document.getElementsByTagName("text") if t.firstChild]
        expect({"Leaving for good", "limit 80 %", "quit", "paused"} <= set(texts), done)
    done = run(programs, GALLERY / "quit.yaml", "--timeline", "/no/such/folder/out.svg")
    expect(done.returncode == 1 and "cannot be written" in done.stderr, done)


def demo(programs, timeline):
    return subprocess.run([sys.executable, str(ROOT / "script/demo.py"), str(programs), str(timeline)],
                          capture_output=True, text=True, timeout=170, check=False)


def the_demonstration_sees_every_step(programs):
    with tempfile.TemporaryDirectory() as folder:
        picture = pathlib.Path(folder, "out.svg")
        done = demo(programs, picture)
        expect(done.returncode == 0 and "Every step was seen in the machine" in done.stdout, done)
        xml.dom.minidom.parse(str(picture))


def the_demonstration_fails_without_a_working_helper(programs):
    with tempfile.TemporaryDirectory() as folder:
        for name in ("virtual-mac", "korvel-app"):
            # A link would lead the machine to the helper beside the real program.
            pathlib.Path(folder, name).write_bytes((programs / name).read_bytes())
            pathlib.Path(folder, name).chmod(0o755)
        broken = pathlib.Path(folder, "KorvelHelper")
        broken.write_text("#!/bin/sh\nexit 1\n", encoding="utf-8")
        broken.chmod(0o755)
        picture = pathlib.Path(folder, "out.svg")
        done = demo(pathlib.Path(folder), picture)
        expect(done.returncode == 1 and "NOT SEEN" in done.stdout and not picture.exists(), done)


def a_demonstration_cleans_up_after_a_machine_that_hangs(programs):
    with tempfile.TemporaryDirectory() as folder:
        hanging = pathlib.Path(folder, "virtual-mac")
        hanging.write_text("#!/bin/sh\necho no such Mac >&2\n[ \"$3\" = down ] && exec sleep 60\nexit 1\n",
                           encoding="utf-8")
        hanging.chmod(0o755)
        done = subprocess.run([sys.executable, str(ROOT / "script/demo.py"), folder, f"{folder}/out.svg"],
                              capture_output=True, text=True, timeout=170, check=False,
                              env={**os.environ, "TMPDIR": folder})
        expect(done.returncode == 1 and "NOT SEEN" in done.stdout and "Traceback" not in done.stderr, done)
        expect(not list(pathlib.Path(folder).glob("virtual-mac-*")), done)


CASES = [passing_stories_end_with_0, a_failing_story_ends_with_1_and_a_report,
         defects_end_with_2_and_their_lines, two_ways_at_once_are_refused,
         both_stages_say_the_same_of_what_cannot_be_done, both_stages_journal_the_same_deeds, what_would_be_ignored_is_refused,
         a_program_gets_json, the_journal_is_printed_on_demand, the_timeline_is_a_picture,
         the_demonstration_sees_every_step, the_demonstration_fails_without_a_working_helper,
         a_demonstration_cleans_up_after_a_machine_that_hangs]

if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    named = {case.__name__: case for case in CASES}
    named[sys.argv[2]](pathlib.Path(sys.argv[1]).resolve())
