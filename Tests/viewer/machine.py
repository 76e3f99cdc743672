"""A live virtual Mac with a page, seen by its own programs and its files."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time

PATIENCE = 60


class LiveMac:
    def __init__(self, programs):
        self.programs = programs
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="viewer-mac-"))
        self.root.chmod(0o700)
        self.link = None

    @property
    def port(self):
        return int(re.match(r"http://127\.0\.0\.1:(\d+)/", self.link).group(1))

    @property
    def token(self):
        return self.link.split("#token=")[1]

    @property
    def address(self):
        return self.link.split("#")[0]

    def up(self, *words, port=0):
        done = self.try_command("up", f"--web={port}", *words)
        found = re.search(r"http://127\.0\.0\.1:\d+/#token=\S+", done.stdout + done.stderr)
        if done.returncode != 0 or not found:
            raise AssertionError(f"up: {done.returncode} {done.stdout} {done.stderr}")
        self.link = found.group(0)

    def down(self):
        self.command("down")

    def end(self):
        self.try_command("down")
        shutil.rmtree(self.root, ignore_errors=True)

    def try_command(self, *words, program="virtual-mac"):
        return subprocess.run([str(self.programs / program), "--root", str(self.root), *map(str, words)],
                              text=True, capture_output=True, timeout=PATIENCE, check=False)

    def command(self, *words, program="virtual-mac"):
        done = self.try_command(*words, program=program)
        if done.returncode != 0:
            raise AssertionError(f"{program} {words}: {done.returncode} {done.stdout} {done.stderr}")
        return done.stdout

    def status(self):
        return json.loads(self.command("--json", "status"))

    def journal(self):
        """The lines of the journal, without its head."""
        return [line for line in self.command("journal").splitlines() if not line.startswith("# ")]

    def until(self, condition, what):
        """Waits until `condition(status)` is true; returns that status."""
        end = time.monotonic() + PATIENCE
        while not condition(status := self.status()):
            if time.monotonic() > end:
                raise AssertionError(f"the machine never came to: {what}; it is {status}")
            time.sleep(0.05)
        return status

    def until_journal(self, text):
        self.command("journal", "--follow", "--until", text, "--timeout", str(PATIENCE))

    def application(self):
        return Application(self)


class Application:
    """An application that stays connected."""

    def __init__(self, mac):
        self.process = subprocess.Popen(
            [str(mac.programs / "korvel-app"), "--root", str(mac.root), "session"], text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=os.environ)
        first = json.loads(self.process.stdout.readline())
        if first.get("event") != "connected":
            raise AssertionError(first)

    def ask(self, request):
        self.process.stdin.write(request + "\n")
        self.process.stdin.flush()
        while True:
            line = json.loads(self.process.stdout.readline())
            if "event" not in line:
                return line

    def end(self):
        self.process.stdin.close()
        self.process.wait(PATIENCE)
        self.process.stdout.close()
