"""An application with a connection of its own, which comes back after every loss."""
import json
import subprocess
import threading

from mac import PATIENCE, NotHeld


class Application:
    """Its requests are sent without waiting for an answer, unless one is asked for."""

    def __init__(self, mac):
        self.process = subprocess.Popen(
            [str(mac.programs / "korvel-app"), "--root", str(mac.root), "session", "--reconnect",
             "at-once"], text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.change = threading.Condition()
        self.sent = 0
        self.answered = 0
        self.answer = None
        self.connected = False
        self.thread = threading.Thread(target=self.read, daemon=True)
        self.thread.start()

    def read(self):
        for line in self.process.stdout:
            told = json.loads(line)
            with self.change:
                if "event" in told:
                    self.connected = told["event"] == "connected"
                else:
                    self.answered += 1
                    self.answer = told
                self.change.notify_all()

    def tell(self, request):
        self.sent += 1
        self.process.stdin.write(request + "\n")
        self.process.stdin.flush()

    def ask(self, request):
        """Sends a request and waits for its answer."""
        self.tell(request)
        self.settle()
        return self.answer

    def settle(self):
        """Waits until it is connected and every request has its answer."""
        with self.change:
            if not self.change.wait_for(lambda: self.connected and self.answered == self.sent, PATIENCE):
                raise NotHeld(f"an application has {self.answered} answers to {self.sent} requests, "
                              f"and is {'' if self.connected else 'not '}connected")

    def end(self):
        self.process.stdin.close()
        self.process.wait(PATIENCE)
        self.thread.join()
        self.process.stdout.close()
