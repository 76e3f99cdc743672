"""Recorded runs for tests: of stories, of saved journals, and long ones."""
import json
import pathlib
import re
import subprocess

from case import ROOT, SETTINGS

GALLERY = ROOT / "VirtualMac/Scenarios/gallery"
DATA = re.compile(r'<script type="application/json" id="trace">(.*?)</script>', re.S)
PATIENCE = 120


def virtual_mac(*words):
    return subprocess.run([str(SETTINGS.programs / "virtual-mac"), *map(str, words)], text=True,
                          capture_output=True, timeout=PATIENCE, check=False, cwd=ROOT)


def of_story(story, page, *words):
    """Plays a story in process, passing or not, and leaves its trace in `page`."""
    done = virtual_mac("run", story, "--trace", page, *words)
    if not pathlib.Path(page).exists():
        raise AssertionError(f"no trace of {story}: {done.stdout} {done.stderr}")
    return done


def of_journal(journal, page, *words):
    done = virtual_mac("trace", page, "--journal", journal, *words)
    if done.returncode != 0:
        raise AssertionError(f"no trace of {journal}: {done.stdout} {done.stderr}")


def told_in(page):
    """The object that a trace holds."""
    return json.loads(DATA.search(pathlib.Path(page).read_text(encoding="utf-8")).group(1))


def time_of(line):
    return float(line.split(" ", 1)[0])


def shifted(line, seconds):
    time, rest = line.split(" ", 1)
    return f"{float(time) + seconds:.3f} {rest}"


def long_journal(path, entries):
    """A journal of so many entries: that of a week, again and again."""
    week = pathlib.Path(path).with_suffix(".html")
    of_story(GALLERY / "week.yaml", week)
    run = told_in(week)["runs"][0]
    week.unlink()
    lines = [line for line in run["lines"].split("\n") if line]
    with pathlib.Path(path).open("w", encoding="utf-8") as file:
        file.write("# " + json.dumps(run["head"]) + "\n")
        for number in range(entries):
            again, place = divmod(number, len(lines))
            file.write(shifted(lines[place], again * run["end"]) + "\n")
