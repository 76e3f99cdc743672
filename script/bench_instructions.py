"""Instructions that the helper's process executes, counted by callgrind: unlike times, they do not
depend on what else the machine does."""
import pathlib
import re
import shutil
import subprocess
import tempfile
import time

MANY = 100
REQUESTS = ("ping", "state", "set-limit 80")


def count(programs, lines):
    """Of one life in which a client sends these lines: start, answers, end."""
    with tempfile.TemporaryDirectory() as folder:
        bin_folder = pathlib.Path(folder, "bin")
        bin_folder.mkdir()
        for name in ("virtual-mac", "korvel-app"):
            shutil.copy2(programs / name, bin_folder / name)
        helper = bin_folder / "KorvelHelper"
        helper.write_text("#!/bin/sh\nexec valgrind --tool=callgrind "
                          f"--callgrind-out-file={folder}/out {programs}/KorvelHelper \"$@\"\n", encoding="utf-8")
        helper.chmod(0o755)

        def run(name, *words, told=""):
            done = subprocess.run([str(bin_folder / name), "--root", f"{folder}/mac", *words], input=told,
                                  capture_output=True, text=True, check=False)
            if done.returncode != 0:
                raise SystemExit(f"{name} {' '.join(words)}: status {done.returncode}\n{done.stdout}{done.stderr}")
            return done.stdout

        run("virtual-mac", "up")
        answers = run("korvel-app", "--timeout", "60", "session", told="".join(f"{line}\n" for line in lines))
        if answers.count('"ok":true') != len(lines):
            raise SystemExit(f"{len(lines)} requests and other answers:\n{answers}")
        run("virtual-mac", "down")
        out = pathlib.Path(folder, "out")
        deadline = time.monotonic() + 20
        while not (found := re.search(r"^(?:summary|totals): (\d+)", out.read_text() if out.exists() else "", re.M)):
            if time.monotonic() > deadline:
                raise SystemExit("callgrind told nothing")
            time.sleep(0.1)
        return int(found[1])


def rows(programs):
    """(what, instructions)"""
    life = count(programs, ["ping"])
    yield "A life: start, one `ping`, end", life
    for request in REQUESTS:
        yield f"`{request}`, each of {MANY}", (count(programs, ["ping", *[request] * MANY]) - life) // MANY
