"""A virtual Mac under a scene: its programs, what the scene expects of them, and the books that the
Mac's program leaves."""
import json
import os
import pathlib
import queue
import re
import shutil
import subprocess
import tempfile
import threading
import time

BRIEF = 0.02  # real seconds between two looks

# As many objects of a class as the unspoiled program may own when it ends.
FURNITURE = {"IONotificationPort": 1, "KorvelListenerBridge": 1, "NSString": 1, "NSXPCListener": 1,
             "TinRunLoopSource": 1, "dispatch_main_queue": 1, "dispatch_queue": 2,
             "dispatch_group": 1, "dispatch_source": 5, "io_connect": 2, "io_object": 1}


class Unmet(Exception):
    """An expectation of a scene that does not hold."""


class Session:
    """An application that stays connected and asks one thing after the other."""

    def __init__(self, mac):
        self.mac = mac
        self.process = subprocess.Popen(
            mac.words("korvel-app", "--timeout", str(mac.patience), "session", "--reconnect", "never"),
            text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.answers = queue.Queue()

    def begin(self):
        threading.Thread(target=self.read, daemon=True).start()
        self.mac.expect("the application connects", self.line() == {"event": "connected"})

    def read(self):
        for line in self.process.stdout:
            self.answers.put(line)
        self.answers.put(None)

    def answer(self):
        while True:
            told = self.line()
            if "event" not in told:
                return told

    def line(self):
        deadline = time.monotonic() + self.mac.patience
        while time.monotonic() < deadline:
            try:
                line = self.answers.get(timeout=0.2)
            except queue.Empty:
                self.mac.notice_traps()
                continue
            if line is None:
                break
            return json.loads(line)
        self.mac.notice_traps()
        raise Unmet("the application is answered")

    def ask(self, words):
        self.process.stdin.write(words + "\n")
        try:
            self.process.stdin.flush()
        except BrokenPipeError as gone:
            self.mac.notice_traps()
            raise Unmet(f"the application stays connected to ask: {words}") from gone
        return self.answer()

    def does(self, words):
        """Asks for a thing that must succeed; the record's or the capabilities' fields, if asked for."""
        answer = self.ask(words)
        self.mac.expect(f"{words}: yes", answer.get("ok") is True, answer)
        return answer.get(words, answer)

    def refuses(self, words, code, text):
        answer = self.ask(words)
        told = (answer.get("ok"), answer.get("code"), answer.get("error"))
        self.mac.expect(f"{words}: {code} {text}", told == (False, code, text), answer)

    def end(self):
        if self.process.poll() is None:
            self.process.terminate()
        self.process.wait()


class Mac:
    """A machine of its own; `patience`: real seconds for a thing to come true."""

    def __init__(self, programs, wrapper, program, patience):
        self.programs, self.patience = programs, patience
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="virtual-mac-"))
        self.root, self.books_place = self.place / "root", self.place / "books"
        self.books_place.mkdir()
        self.root.mkdir(mode=0o700)
        self.environment = dict(os.environ, TIN_MAC_PROGRAM=str(program),
                                TIN_MAC_BOOKS=str(self.books_place))
        self.wrapper, self.sessions = wrapper, []
        # The scene says what else the program may own when it ends.
        self.furniture = dict(FURNITURE)

    def words(self, program, *words):
        return [str(self.programs / program), "--root", str(self.root), "--json", *words]

    def run(self, program, *words):
        return subprocess.run(self.words(program, *words), env=self.environment, text=True,
                              capture_output=True, timeout=4 * self.patience, check=False)

    def tell(self, *words):
        done = self.run("virtual-mac", *words)
        if done.returncode != 0:
            said = done.stdout.strip() or done.stderr.strip()
            raise OSError(f"virtual-mac {' '.join(words)}: {said}")
        return done.stdout

    def up(self, profile="newer-keys", speed=20):
        self.tell("up", "--profile", profile, "--speed", str(speed), "--helper", str(self.wrapper))

    def connect(self):
        session = Session(self)
        self.sessions.append(session)
        session.begin()
        return session

    def status(self):
        return json.loads(self.tell("status"))

    def disk(self, name):
        folder = self.root / "disk/Library/Application Support/com.korvel.app.helper"
        return folder / name

    def state(self):
        return json.loads(self.disk("state.json").read_text(encoding="utf-8"))

    def journal(self):
        return (self.root / "journal").read_text(encoding="utf-8")

    def expect(self, what, holds, seen=None):
        if not holds:
            self.notice_traps()
            raise Unmet(what if seen is None else f"{what} (seen: {seen})")

    def becomes(self, what, holds):
        """Looks until it holds."""
        deadline = time.monotonic() + self.patience
        while not holds():
            self.notice_traps()
            if time.monotonic() > deadline:
                raise Unmet(what)
            time.sleep(BRIEF)

    def logs(self, text, times=1):
        """The journal has the text so often by and by; a line is a time, a kind and a text."""
        self.becomes(f"the journal says: {text}", lambda: self.journal().count(text) >= times)

    def silent(self, text):
        self.expect(f"the journal does not say: {text}", text not in self.journal())

    def passes(self, seconds):
        """So many virtual seconds pass."""
        until = self.status()["seconds"] + seconds
        self.becomes(f"{seconds} s pass", lambda: self.status()["seconds"] > until)

    def holds(self, **facts):
        """The status has these facts by and by."""
        def found():
            status = self.status()
            return all(status.get(name) == value for name, value in facts.items())
        self.becomes("the Mac: " + ", ".join(f"{name} = {value}" for name, value in facts.items()),
                     found)

    def books(self):
        return [json.loads(path.read_text(encoding="utf-8"))
                for path in sorted(self.books_place.glob("*.json"))]

    def notice_traps(self):
        for book in self.books():
            if "trap" in book:
                raise Unmet(f"no trap: {book['trap']['rule']}: {book['trap']['detail']}")
            if book["reason"] not in ("exit", "trap"):
                raise Unmet(f"the program is not ended by {book['reason']}")

    def stop(self, signal):
        """Tells the program to end, and sees it end in order."""
        pid = self.status()["helperPid"]
        self.expect("the program still runs", pid is not None)
        for session in self.sessions:
            session.end()
        self.tell("kill", signal)
        self.logs(f"helper {pid} exited ")
        self.notice_traps()
        self.logs(f"helper {pid} exited 0")
        restarts = re.findall(r"helper \d+ (?:died|killed)[^\n]*", self.journal())
        self.expect("the program is not ended by anything else", not restarts, restarts)

    def end(self, signal="TERM"):
        """Ends the program in order and reads its books."""
        self.stop(signal)
        self.becomes("the books are written", self.books)
        for book in self.books():
            self.expect("it ends with status 0", book.get("status") == 0, book.get("status"))
            self.expect("no rule is bent", book["notes"] == [], book["notes"])
            more = {name: count for name, count in book["live"].items()
                    if count > self.furniture.get(name, 0)}
            self.expect("nothing is left behind", not more, more)
            queues = {(made["label"], made["qos"]) for made in book["queues"]}
            self.expect("the queues have their quality of service",
                        queues <= {("com.korvel.app.helper.iopm", "utility"),
                                   ("com.korvel.app.helper.smc", "utility")}, queues)

    def down(self):
        for session in self.sessions:
            session.end()
        if (self.root / "journal").exists():
            self.run("virtual-mac", "down")
        shutil.rmtree(self.place, ignore_errors=True)
