#!/usr/bin/env python3
"""Runs the sample in Python on a virtual Mac: it sets the limit, tells of a helper that is killed, sets
the limit again, and ends when it is refused.

usage: python_sample_test.py REPOSITORY PROGRAMS
"""
import os
import pathlib
import queue
import subprocess
import sys
import tempfile
import threading
import unittest

SAMPLE, PROGRAMS = None, None
PATIENCE = 60  # seconds for a line


class Sample(unittest.TestCase):
    def setUp(self):
        place = tempfile.TemporaryDirectory(prefix="vm-")
        self.addCleanup(place.cleanup)
        self.environment = {**os.environ, "XDG_RUNTIME_DIR": place.name, "VIRTUAL_MAC_ROOT": "",
                            "PATH": f"{PROGRAMS}:{os.environ['PATH']}"}
        self.tell("up", "--speed", "60")
        self.addCleanup(self.tell, "down")

    def tell(self, *words):
        subprocess.run([PROGRAMS / "virtual-mac", *words], env=self.environment, check=True,
                       capture_output=True, timeout=PATIENCE)

    def lines_of(self, process):
        lines = queue.Queue()
        threading.Thread(target=lambda: [lines.put(line) for line in process.stdout], daemon=True).start()
        return lines

    def test_holds_a_limit_across_the_helpers_end(self):
        with subprocess.Popen([sys.executable, SAMPLE, "80"], env=self.environment, text=True,
                              stdout=subprocess.PIPE) as sample:
            lines = self.lines_of(sample)
            try:
                self.assertEqual(lines.get(timeout=PATIENCE), "holding at 80 %\n")
                self.tell("kill")
                self.assertEqual(lines.get(timeout=PATIENCE), "the helper is gone\n")
                self.assertEqual(lines.get(timeout=PATIENCE), "holding at 80 %\n")
            finally:
                sample.kill()

    def test_ends_when_it_is_refused(self):
        done = subprocess.run([sys.executable, SAMPLE, "19"], env=self.environment, text=True,
                              capture_output=True, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, "refused: Charge limit must be between 20 and 100 (got 19).\n")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    SAMPLE = pathlib.Path(sys.argv[1]).resolve() / "Packaging/samples/python/hold.py"
    PROGRAMS = pathlib.Path(sys.argv[2]).resolve()
    unittest.main(argv=sys.argv[:1])
