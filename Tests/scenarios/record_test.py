#!/usr/bin/env python3
"""Looks at `virtual-mac record` from outside: recordings do again what was recorded.

usage: record_test.py PROGRAMS CASE
       record_test.py PROGRAMS among_processes STORY [OPTION...]   options for the story's playing
"""
import json
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "script"))
import story_replay  # noqa: E402

GALLERY = ROOT / "VirtualMac/Scenarios/gallery"
# A busy computer makes real processes late; that it is not always busy is enough.
PLAYINGS = 3
LINGER_SECONDS = 30


class Recorder:
    """The program, with a folder for what it writes."""

    def __init__(self, programs, folder):
        self.program, self.folder = str(programs / "virtual-mac"), pathlib.Path(folder)

    def run(self, *words):
        return subprocess.run([self.program, *map(str, words)], cwd=ROOT, capture_output=True,
                              text=True, timeout=1700, check=False)

    def play(self, story, name, *options):
        """Plays a story, which has to hold; its journal."""
        journal = self.folder / f"{name}.journal"
        expect_done(self.run("run", story, "--save-journal", journal, *options))
        return journal

    def record(self, journal, name):
        story = self.folder / f"{name}.yaml"
        expect_done(self.run("record", "--journal", journal, story))
        return story


def expect_done(done):
    if done.returncode != 0:
        sys.exit(f"{done.args}\nstatus {done.returncode}\n{done.stdout}\n{done.stderr}")


def expect(condition, *told):
    if not condition:
        sys.exit("\n".join(map(str, told)))


def lines_of(journal):
    """Those after the head, which tells the start in other words."""
    return journal.read_text(encoding="utf-8").split("\n", 1)[1]


def recordings_of_the_gallery_give_its_journals_and_themselves(programs):
    for path in sorted(GALLERY.glob("*.yaml")):
        with tempfile.TemporaryDirectory() as folder:
            recorder = Recorder(programs, folder)
            first = recorder.play(path, "first")
            story = recorder.record(first, "first")
            again = recorder.play(story, "again")
            expect(lines_of(first) == lines_of(again), path, story.read_text(encoding="utf-8"))
            same = recorder.record(again, "again")
            expect(story.read_bytes() == same.read_bytes(), path, same.read_text(encoding="utf-8"))


FAULTS = {"hand-back": "smc-silent-refusal CHTE", "quit": "smc-write-result CHTE 134",
          "discharge-to-limit": "battery-unreadable", "app-returns": "disk-full",
          "crash-keep-awake": "settings-refused", "two-clients": "smc-missing",
          "native-limit": "powerui-refuses", "update": "connection-breaks at",
          "sleep-enforcing": "power-registration-fails", "heat-soak-cap": "lid-unknown"}


def a_recording_fails_where_the_machine_behaves_otherwise(programs):
    with tempfile.TemporaryDirectory() as folder:
        recorder = Recorder(programs, folder)
        for name, fault in FAULTS.items():
            story = recorder.record(recorder.play(GALLERY / f"{name}.yaml", name), name)
            text = story.read_text(encoding="utf-8")
            expect("faults:" not in text, text)
            start, steps = text.split("steps:\n", 1)
            start += ("" if "start:\n" in start else "start:\n") + f"  faults: {fault}\n"
            story.write_text(f"{start}steps:\n{steps}", encoding="utf-8")
            done = recorder.run("run", story)
            expect(done.returncode == 1 and "FAILED" in done.stdout, name, done.stdout, done.stderr)


def what_no_story_says_is_named_and_the_rest_is_told(programs):
    with tempfile.TemporaryDirectory() as folder:
        recorder = Recorder(programs, folder)
        journal = recorder.play(GALLERY / "quit.yaml", "quit")
        text = journal.read_text(encoding="utf-8")
        head = text.index("\n") + 1
        journal.write_text(f"{text[:head]}0.000 proc  signal 19 to helper 501\n{text[head:]}",
                           encoding="utf-8")
        story = recorder.folder / "quit.yaml"
        done = recorder.run("record", "--journal", journal, story)
        expect(done.returncode == 1 and done.stdout == "", done)
        expect(f"{journal}:2: at 0.000: a story cannot say this: signal 19" in done.stderr, done)
        expect_done(recorder.run("run", story))
        done = recorder.run("--json", "record", "--journal", journal)
        told = json.loads(done.stdout)
        expect(done.returncode == 1 and told["ok"] is False, done)
        expect(told["untold"][0]["line"] == 2 and told["story"] == story.read_text(encoding="utf-8"),
               done)


def a_recording_is_printed_or_written_and_errors_name_the_file(programs):
    with tempfile.TemporaryDirectory() as folder:
        recorder = Recorder(programs, folder)
        journal = recorder.play(GALLERY / "hand-back.yaml", "hand-back")
        written = recorder.record(journal, "hand-back").read_text(encoding="utf-8")
        printed = recorder.run("record", "--journal", journal)
        expect(printed.returncode == 0 and printed.stdout == written and not printed.stderr, printed)
        nowhere = recorder.folder / "no/such/folder.yaml"
        done = recorder.run("record", "--journal", journal, nowhere)
        expect(done.returncode == 1 and f"{nowhere} cannot be written" in done.stderr, done)
        done = recorder.run("record", "--journal", nowhere)
        expect(done.returncode == 1 and f"{nowhere}: cannot be read" in done.stderr, done)
        done = recorder.run("--root", folder, "record")
        expect(done.returncode == 1 and f"{folder}/journal: cannot be read" in done.stderr, done)
        done = recorder.run("run", GALLERY / "quit.yaml", "--save-journal", nowhere)
        expect(done.returncode == 1 and f"{nowhere} cannot be written" in done.stderr, done)
        done = recorder.run("run", GALLERY, "--save-journal", recorder.folder / "all")
        expect(done.returncode == 2 and "--save-journal saves one" in done.stderr, done)
        for command in ("record", "run"):
            done = recorder.run(command, "--help")
            expect(done.returncode == 0 and re.search("--(save-)?journal", done.stdout), done)


def differences_are_noticed(_programs):
    wrong = story_replay.self_test()
    expect(not wrong, *wrong)


def among_processes(programs, story, *options):
    for playing in range(PLAYINGS):
        with tempfile.TemporaryDirectory() as folder:
            recorder = Recorder(programs, folder)
            first = recorder.play(GALLERY / f"{story}.yaml", "first", "--processes", "--linger",
                                  LINGER_SECONDS, *options)
            again = recorder.folder / "again.journal"
            done = recorder.run("run", recorder.record(first, "first"), "--save-journal", again)
            other, late = story_replay.differences(*(path.read_text(encoding="utf-8")
                                                     for path in (first, again)))
            if done.returncode == 0 and not other and not late:
                return
            other.insert(0, done.stdout)
            print(f"playing {playing + 1}:", *other, *late, sep="\n")
    sys.exit(1)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    globals()[sys.argv[2]](pathlib.Path(sys.argv[1]).resolve(), *sys.argv[3:])
