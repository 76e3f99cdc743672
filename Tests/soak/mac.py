"""A virtual Mac among processes, as its control socket, its files and its journal tell of it."""
import json
import pathlib
import re
import shutil
import socket
import subprocess
import tempfile
import threading
import time

PATIENCE = 60
STARTED = re.compile(r"helper (\d+) started$")
ENDED = re.compile(r"helper (\d+) (?:exited|killed)")


class NotHeld(AssertionError):
    """Something that must hold does not."""


class Control:
    """A connection to the machine's control socket: lines of JSON both ways."""

    def __init__(self, root):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(str(root / "control.sock"))
        self.lines = self.socket.makefile("r", encoding="utf-8", errors="replace")

    def ask(self, command, *arguments):
        request = {"command": command, "arguments": [str(each) for each in arguments]}
        self.socket.sendall(json.dumps(request).encode() + b"\n")
        return json.loads(self.lines.readline())

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.lines.close()
        self.socket.close()


class Mac:
    """The machine; it is brought up with the helper that is its own."""

    def __init__(self, programs, speed):
        self.programs = programs
        self.speed = speed
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="korvel-soak-"))
        self.root.chmod(0o700)
        self.change = threading.Condition()
        self.helper = None
        self.run("up", "--speed", speed)
        self.control = Control(self.root)
        self.follower = Control(self.root)
        self.follower.socket.settimeout(None)
        self.follower.ask("follow")
        self.helper = self.status()["helperPid"]
        self.thread = threading.Thread(target=self.follow, daemon=True)
        self.thread.start()

    def follow(self):
        """Follows the helper's life by the journal."""
        for text in self.follower.lines:
            line = json.loads(text).get("line", "")
            started, ended = STARTED.search(line), ENDED.search(line)
            if not (started or ended):
                continue
            with self.change:
                self.helper = int(started.group(1)) if started else None
                self.change.notify_all()

    def end(self):
        self.run("down")
        self.thread.join(PATIENCE)
        self.follower.close()
        self.control.close()
        shutil.rmtree(self.root, ignore_errors=True)

    def run(self, *words):
        """Runs the program virtual-mac."""
        done = subprocess.run([str(self.programs / "virtual-mac"), "--root", str(self.root),
                               *map(str, words)], text=True, capture_output=True, timeout=PATIENCE,
                              check=False)
        if done.returncode != 0:
            raise NotHeld(f"{words}: status {done.returncode} {done.stderr.strip()}")
        return done.stdout

    def command(self, *words):
        told = self.control.ask(*words)
        if not told["ok"]:
            raise NotHeld(f"{words}: {told['error']}")
        return told

    def attempt(self, *words):
        """A deed may be impossible as things are, a wake of a machine that is awake for one."""
        return self.control.ask(*words)["ok"]

    def status(self):
        return json.loads(self.command("status")["json"])

    def running(self, patience=PATIENCE):
        """The helper's process, once there is one."""
        with self.change:
            if not self.change.wait_for(lambda: self.helper is not None, patience):
                raise NotHeld(f"no helper is started for {patience} s")
            return self.helper

    def gone(self, pid):
        """Waits until that process is not the helper any more."""
        with self.change:
            if not self.change.wait_for(lambda: self.helper != pid, PATIENCE):
                raise NotHeld(f"helper {pid} has been killed, and its end is not told")

    def until(self, condition, patience=PATIENCE):
        """Waits until `condition(status)` is true; returns that status, or none when it is late."""
        end = time.monotonic() + patience
        while not condition(status := self.status()):
            if time.monotonic() > end:
                return None
            time.sleep(0.004)
        return status

    def record_file(self):
        return next(iter(self.root.rglob("state.json")), None)

    def record(self):
        """The helper's record on the disk; none: it has not written one yet."""
        found = self.record_file()
        if found is None:
            return None
        try:
            return json.loads(found.read_text(encoding="utf-8"))
        except ValueError as error:
            raise NotHeld(f"the record is not whole: {error}") from error

    def files(self):
        """Every file and directory of the machine."""
        return sorted(str(path.relative_to(self.root)) for path in self.root.rglob("*"))
