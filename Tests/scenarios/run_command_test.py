#!/usr/bin/env python3
"""Looks at `virtual-mac run` and at the demonstration from outside: exit codes, words, pictures.

usage: run_command_test.py PROGRAMS CASE
"""
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time
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


def total_of(done):
    return done.stdout.splitlines()[-1]


def passing_stories_end_with_0(programs):
    done = run(programs, GALLERY / "quit.yaml", GALLERY / "hand-back.yaml")
    expect(done.returncode == 0 and done.stdout.count("passed  ") == 2, done)


def a_failing_story_ends_with_1_and_a_report(programs):
    path = "Tests/scenarios/data/fails.yaml"
    done = run(programs, path, GALLERY / "quit.yaml")
    expect(done.returncode == 1, done)
    expect(f'{path}:10: at 00:01:00, 60.000 s: expected "gate paused", but the gate is charging' in done.stdout,
           done)
    expect("the journal around it:\n" in done.stdout and "setChargeLimit ok" in done.stdout, done)
    expect(f"run it again: virtual-mac run {path} --in-process\n" in done.stdout, done)
    expect("passed  Leaving for good" in done.stdout, done)


def defects_end_with_2_and_their_lines(programs):
    path = "Tests/scenarios/data/defects.yaml"
    done = run(programs, path)
    expect(done.returncode == 2 and done.stdout == "", done)
    expect(f"{path}:3: " in done.stderr and f"{path}:6: " in done.stderr, done)
    expect("newer-kees" in done.stderr and 'did you mean "connect"?' in done.stderr, done)


def two_ways_at_once_are_refused(programs):
    done = run(programs, GALLERY / "quit.yaml", "--in-process", "--processes")
    expect(done.returncode == 2, done)


def both_stages_say_the_same_of_what_cannot_be_done(programs):
    said = {"connect, helper start": "a helper is already running", "kill, kill": "no helper is running",
            "connect, kill, kill TERM": "no helper is running", "kill, update 2.1.0": "no helper is running",
            "connect as martian": "martian", "battery 50": "this Mac has no battery",
            "lid closed": "this Mac has no lid", "adapter off, adapter renegotiate": "no adapter is connected"}
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
             "display on", "adapter off", "adapter on", "adapter renegotiate", "lid closed", "lid open",
             "fault smc-silent-refusal CHTE on", "fault smc-silent-refusal CHTE off", "fault adapter-unknown on",
             "fault adapter-mistyped on", "connect", "update 2.1.0"]
    told = []
    with tempfile.TemporaryDirectory() as folder:
        story = pathlib.Path(folder, "deeds.yaml")
        story.write_text("name: A\ndescription: B\nsteps: [{at: 00:00:05, do: ["
                         f"{', '.join(deeds)}]}}, {{at: 00:01, do: kill INT}}]\n", encoding="utf-8")
        for way in ("--in-process", "--processes"):
            done = run(programs, story, "--journal", way)
            lines = [re.sub(r"helper \d+$", "helper", line.split(" ", 1)[1])
                     for line in done.stdout.splitlines() if re.match(r"[\d.]+ (mac|proc) ", line)]
            # The ends differ, and a deed among processes takes its time: the battery goes on meanwhile.
            lines = [line for line in lines if re.match(r"mac |proc  signal ", line)
                     and not re.search(r"going down|battery \d+ %$", line)]
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


def copied(programs, folder, *names):
    """Copies of programs. A program looks for the others beside itself, and would follow a link."""
    folder.mkdir(parents=True, exist_ok=True)
    for name in names:
        (folder / name).write_bytes((programs / name).read_bytes())
        (folder / name).chmod(0o755)
    return folder


def script(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(f"#!/bin/sh\n{text}\n", encoding="utf-8")
    path.chmod(0o755)


def the_macs_own_program_is_played_where_it_is_built(programs):
    done = run(programs, GALLERY / "quit.yaml", "--tin")
    expect(done.returncode == 2 and "--processes" in done.stderr, done)
    with tempfile.TemporaryDirectory() as folder:
        apart = copied(programs, pathlib.Path(folder, "clang/bin"), "virtual-mac", "korvel-app")
        done = run(apart, GALLERY / "quit.yaml", "--processes", "--tin")
        expect(done.returncode == 1 and done.stdout == "" and "script/tin-mac" in done.stderr
               and f"{folder}/clang/bin/../../tin/bin/KorvelHelper" in done.stderr, done)
        # This stands in for the program that needs an SDK: only the place is looked at.
        script(pathlib.Path(folder, "tin/bin/KorvelHelper"),
               f'echo started >> "{folder}/starts"\nexec "{programs / "KorvelHelper"}" "$@"')
        done = run(apart, "Tests/scenarios/data/fails.yaml", "--processes", "--tin")
        expect(done.returncode == 1 and "setChargeLimit ok" in done.stdout, done)
        expect("fails.yaml --processes --tin --speed 600\n" in done.stdout, done)
        expect(pathlib.Path(folder, "starts").read_text(encoding="utf-8") == "started\n", done)


def a_machine_may_run_on_after_a_story(programs):
    with tempfile.TemporaryDirectory() as folder:
        story = pathlib.Path(folder, "short.yaml")
        story.write_text("name: A\ndescription: B\nstart: {battery: 50}\n"
                         "steps: [{at: 00:01, expect: lid open}]\n", encoding="utf-8")
        usual, longer = (run(programs, story, "--journal", *words).stdout.splitlines()
                         for words in ((), ("--linger", "600")))
        said = "passed  A: 1 expectations held over 00:01:00"
        done = subprocess.CompletedProcess([], 0, usual, longer)
        expect(said in usual and said in longer, done)
        expect(not any(" battery 55 %" in line for line in usual), done)
        expect(any(" battery 55 %" in line for line in longer[longer.index(said):]), done)


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
        expect({"Leaving for good", "limit 80 %", "quit", "paused"} <= set(texts_of(picture)), done)
    done = run(programs, GALLERY / "quit.yaml", "--timeline", "/no/such/folder/out.svg")
    expect(done.returncode == 1 and "cannot be written" in done.stderr, done)


def texts_of(picture):
    document = xml.dom.minidom.parse(str(picture))
    return [t.firstChild.data for t in document.getElementsByTagName("text") if t.firstChild]


def begin(programs, folder, *words, errors=subprocess.PIPE):
    """A run in a process group of its own, as a shell starts one, with `folder` for what is temporary."""
    return subprocess.Popen([str(programs / "virtual-mac"), "run", *map(str, words)], cwd=ROOT,
                            stdout=subprocess.PIPE, stderr=errors, text=True, start_new_session=True,
                            env={**os.environ, "TMPDIR": folder},
                            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))


def finish(running):
    try:
        out, errors = running.communicate(timeout=60)
    except subprocess.TimeoutExpired:
        running.kill()
        raise
    return subprocess.CompletedProcess(running.args, running.returncode, out, errors)


def wait_for(what, seen, running, seconds=60):
    end = time.monotonic() + seconds
    while not seen():
        if running.poll() is not None or time.monotonic() > end:
            running.kill()
            sys.exit(f"{what} was not seen (status {running.returncode}): {running.communicate()}")
        time.sleep(0.01)


def processes_about(folder):
    found = []
    for line in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            words = line.read_bytes().decode("utf-8", "replace").replace("\0", " ")
        except OSError:
            continue
        if folder in words:
            found.append(words)
    return found


def a_stopped_run_says_where_draws_what_there_is_and_leaves_nothing(programs):
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        with tempfile.TemporaryDirectory() as outside, tempfile.TemporaryDirectory() as folder:
            story = pathlib.Path(outside, "long.yaml")
            story.write_text("name: Long\ndescription: B\nsteps:\n"
                             "  - {at: 00:00:05, do: [connect, set-limit 80]}\n"
                             "  - {at: 00:00:20, do: [lid closed]}\n"
                             "  - {at: 9d 00:00, expect: lid open}\n", encoding="utf-8")
            picture = pathlib.Path(outside, "out.svg")
            running = begin(programs, folder, story, "--processes", "--timeline", picture)
            journal = lambda: "".join(j.read_text() for j in pathlib.Path(folder).glob("*/journal*"))
            wait_for("the step after the limit", lambda: "lid closed" in journal(), running)
            wait_for("helper and application", lambda: len(processes_about(folder)) > 1, running)
            os.killpg(running.pid, number)
            done = finish(running)
            expect(done.returncode == -number and done.stderr == "", done)
            expect(re.match(r"STOPPED Long: 1 expectations had held\n" + re.escape(str(story)) +
                            rf":5: at \S+ \S+ s: stopped by {number.name}\n", done.stdout), done)
            expect("setChargeLimit ok" in done.stdout and "disconnected" not in done.stdout, done)
            texts = texts_of(picture)
            expect("limit 80 %" in texts and any(f"stopped by {number.name}" in t for t in texts), done)
            expect(os.listdir(folder) == [], done)
            expect(processes_about(folder) == [], done)


def read_what_there_is(terminal):
    try:
        return os.read(terminal, 65536).decode()
    except (BlockingIOError, OSError):
        return ""


def on_a_terminal_a_long_run_says_how_far_it_is(programs):
    import pty  # Only this case needs it, and some systems lack it.
    with tempfile.TemporaryDirectory() as folder:
        story = pathlib.Path(folder, "long.yaml")
        story.write_text("name: Ten years\ndescription: B\nsteps:\n"
                         "  - {at: 00:00:05, do: [connect, set-limit 80]}\n"
                         "  - {at: 3650d 00:00, expect: lid open}\n", encoding="utf-8")
        leader, follower = pty.openpty()
        os.set_blocking(leader, False)
        running = begin(programs, folder, story, GALLERY / "quit.yaml", errors=follower)
        began = time.monotonic()
        shown = []
        wait_for("progress", lambda: shown.append(read_what_there_is(leader)) or
                 "1/2  Ten years" in "".join(shown), running)
        expect(time.monotonic() - began >= 1.9, subprocess.CompletedProcess([], 0, "too early", shown))
        running.send_signal(signal.SIGINT)
        done = finish(running)
        shown = "".join(shown) + read_what_there_is(leader)
        expect(re.search(r"\r\x1b\[K1/2  Ten years  \S+( \S+)? of 3650d 00:00:00 \(\d+ %\)", shown)
               and shown.endswith("\r\x1b[K"), done)
        expect(done.returncode == -signal.SIGINT and "stopped by SIGINT" in done.stdout, done)
        expect(total_of(done).startswith("2 scenarios: 1 stopped, 1 not played; "), done)

        done = finish(begin(programs, folder, GALLERY / "quit.yaml", errors=follower))
        expect(done.returncode == 0 and read_what_there_is(leader) == "", done)


def a_failure_is_in_the_picture(programs):
    with tempfile.TemporaryDirectory() as folder:
        picture = pathlib.Path(folder, "out.svg")
        done = run(programs, "Tests/scenarios/data/fails.yaml", "--timeline", picture)
        expect(done.returncode == 1 and '00:01:00, 60.000 s: line 10: expected "gate paused", but the gate is charging'
               in texts_of(picture), done)


def a_directory_is_its_stories_in_the_order_of_their_names(programs):
    with tempfile.TemporaryDirectory() as folder:
        for name, limit in (("b.yaml", 2), ("a.yaml", 1), ("c.yaml", 3), (".d.yaml", 4), ("e.txt", 5)):
            pathlib.Path(folder, name).write_text(
                f"name: Story {limit}\ndescription: B\nsteps: [{{at: 00:01, expect: lid "
                f"{'closed' if limit == 3 else 'open'}}}]\n", encoding="utf-8")
        done = run(programs, folder)
        told = re.findall(r"^(passed|FAILED)  (Story \d)", done.stdout, re.M)
        expect(done.returncode == 1 and told == [("passed", "Story 1"), ("passed", "Story 2"),
                                                 ("FAILED", "Story 3")], done)
        expect(re.fullmatch(r"3 scenarios: 2 passed, 1 failed; 00:03:02 of virtual time in \d+\.\d s",
                            total_of(done)), done)
        defects = "Tests/scenarios/data/defects.yaml"
        done = run(programs, defects, folder)
        expect(done.returncode == 2 and total_of(done).startswith(
            "4 scenarios: 2 passed, 1 failed, 1 unreadable; "), done)
        expect("scenarios" not in run(programs, f"{folder}/a.yaml").stdout, done)
        empty = pathlib.Path(folder, "empty")
        empty.mkdir()
        done = run(programs, f"{folder}/a.yaml", empty)
        expect(done.returncode == 2 and done.stdout == "" and f"{empty} holds no *.yaml" in done.stderr, done)


def demo(programs, timeline, *words):
    words = [programs, timeline, timeline.with_suffix(".html"), *words]
    return subprocess.run([sys.executable, str(ROOT / "script/demo.py"), *map(str, words)],
                          capture_output=True, text=True, timeout=170, check=False)


def the_demonstration_sees_every_step(programs):
    with tempfile.TemporaryDirectory() as folder:
        picture = pathlib.Path(folder, "out.svg")
        done = demo(programs, picture)
        expect(done.returncode == 0 and "Every step was seen in the machine" in done.stdout, done)
        xml.dom.minidom.parse(str(picture))
        page = picture.with_suffix(".html")
        expect(done.stdout.endswith(f"no server is needed: {page.as_uri()}\n"), done)
        expect('"title":"Held at 80 %: a walk' in page.read_text(encoding="utf-8"), done)


def the_demonstration_fails_without_a_working_helper(programs):
    with tempfile.TemporaryDirectory() as folder:
        apart = copied(programs, pathlib.Path(folder), "virtual-mac", "korvel-app")
        script(apart / "KorvelHelper", "exit 1")
        picture = apart / "out.svg"
        done = demo(apart, picture)
        expect(done.returncode == 1 and "NOT SEEN" in done.stdout and not picture.exists(), done)
        page = picture.with_suffix(".html")
        expect(page.as_uri() in done.stdout and "exited 1" in page.read_text(encoding="utf-8"), done)


def a_demonstration_cleans_up_after_a_machine_that_hangs(programs):
    with tempfile.TemporaryDirectory() as folder:
        script(pathlib.Path(folder, "virtual-mac"),
               'echo no such Mac >&2\n[ "$3" = down ] && exec sleep 60\nexit 1')
        words = [ROOT / "script/demo.py", folder, f"{folder}/out.svg", f"{folder}/out.html"]
        done = subprocess.run([sys.executable, *map(str, words)], capture_output=True, text=True,
                              timeout=170, check=False, env={**os.environ, "TMPDIR": folder})
        expect(done.returncode == 1 and "NOT SEEN" in done.stdout and "Traceback" not in done.stderr, done)
        expect(not list(pathlib.Path(folder).glob("virtual-mac-*")), done)


def the_demonstration_of_the_macs_own_program_says_what_it_needs(programs):
    plain = {name: value for name, value in os.environ.items() if name != "MACOSX_SDK"}
    done = subprocess.run([str(ROOT / "script/demo"), "--tin"], capture_output=True, text=True,
                          timeout=60, check=False, env=plain)
    expect(done.returncode == 1 and done.stdout == "" and "MACOSX_SDK" in done.stderr, done)
    with tempfile.TemporaryDirectory() as folder:
        apart = copied(programs, pathlib.Path(folder, "clang/bin"), "virtual-mac", "korvel-app")
        done = demo(apart, apart / "out.svg", "--tin")
        expect(done.returncode == 1 and "script/tin-mac builds" in done.stdout, done)
        done = demo(apart, apart / "out.svg", "--gold")
        expect(done.returncode == 2 and "usage: " in done.stderr, done)


def stories_of_two_programs_are_compared(programs):
    def compare(*words):
        return subprocess.run([sys.executable, str(ROOT / "script/tin-mac-stories"), *map(str, words)],
                              capture_output=True, text=True, timeout=170, check=False)

    with tempfile.TemporaryDirectory() as folder:
        apart = copied(programs, pathlib.Path(folder, "clang/bin"), "virtual-mac", "korvel-app", "KorvelHelper")
        done = compare("--programs", apart, "hand-back")
        expect(done.returncode == 2 and "script/tin-mac builds it" in done.stderr, done)
        helper = pathlib.Path(folder, "tin/bin/KorvelHelper")
        script(helper, f'exec "{programs / "KorvelHelper"}" "$@"')
        done = compare("--programs", apart, "hand-forward")
        expect(done.returncode == 2 and "hand-forward.yaml" in done.stderr, done)
        story = pathlib.Path(folder, "brief.yaml")
        story.write_text("name: A\ndescription: B\nstart: {battery: 85}\nsteps:\n"
                         "  - {at: 00:00:10, do: [connect, set-limit 80], within: 9s gate paused}\n",
                         encoding="utf-8")
        done = compare("--programs", apart, story)
        expect(done.returncode == 0 and re.search(r"^brief +own and Mac's .* same$", done.stdout, re.M)
               and done.stdout.endswith(
                   "1 of 1 stories held with both programs and tell the same; 1 held\n"), done)
        script(helper, "exit 1")
        done = compare("--programs", apart, story)
        expect(done.returncode == 1 and re.search(r"^brief +own .* NOT HELD$", done.stdout, re.M)
               and "brief.yaml:5: at " in done.stdout, done)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    globals()[sys.argv[2]](pathlib.Path(sys.argv[1]).resolve())
