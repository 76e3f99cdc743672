#!/usr/bin/env python3
"""Installs the virtual Mac from a build, into a directory of its own, and uses it there: the programs
find each other, a story is played among them, and nothing lies anywhere else.

usage: install_test.py BUILD
"""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

BUILD = None
PATIENCE = 120  # seconds for any one command


def run(*words, environment=None):
    return subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False,
                          timeout=PATIENCE, env={**os.environ, **(environment or {})})


def install(prefix, folder, environment=None):
    """`cmake --install`; where the build cannot be written, its script without the list of files
    that it leaves there."""
    if os.access(BUILD, os.W_OK):
        return run("cmake", "--install", BUILD, "--prefix", prefix, environment=environment)
    script = (BUILD / "cmake_install.cmake").read_text(encoding="utf-8")
    copy = folder / "install.cmake"
    copy.write_text(script.replace(f'"{BUILD}/${{CMAKE_INSTALL_MANIFEST}}"', f'"{folder}/list"'),
                    encoding="utf-8")
    return run("cmake", f"-DCMAKE_INSTALL_PREFIX={prefix}", "-P", copy, environment=environment)


class Installed(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vm-")
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)

    def expect(self, done, status=0):
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done.stdout

    def test_is_whole_and_works_from_any_directory(self):
        prefix = self.folder / "prefix"
        self.expect(install(prefix, self.folder))
        self.assertEqual(sorted(path.name for path in (prefix / "bin").iterdir()),
                         ["korvel-app", "virtual-mac"])
        machine, app = prefix / "bin/virtual-mac", prefix / "bin/korvel-app"
        root = self.folder / "root"
        self.expect(run(machine, "--root", root, "up", "--speed", "60", "--web=0"))
        try:
            self.assertEqual(self.expect(run(app, "--root", root, "set-limit", "80")), "ok\n")
        finally:
            self.expect(run(machine, "--root", root, "down"))
        story = prefix / "share/virtual-mac/gallery/quit.yaml"
        self.assertIn("passed", self.expect(run(machine, "run", "--processes", story)))
        self.assertTrue((prefix / "share/virtual-mac/profiles/newer-keys.json").is_file())
        for file in ("doc/virtual-mac/client.md", "man/man1/virtual-mac.1.gz", "man/man1/korvel-app.1.gz",
                     "man/man5/virtual-mac-scenario.5.gz", "bash-completion/completions/korvel-app",
                     "fish/vendor_completions.d/virtual-mac.fish", "zsh/vendor-completions/_virtual-mac"):
            self.assertTrue((prefix / "share" / file).is_file(), file)

    def test_may_be_staged_for_a_package(self):
        staged = self.folder / "staged"
        self.expect(install("/usr", self.folder, {"DESTDIR": str(staged)}))
        link = staged / "usr/bin/virtual-mac"
        self.assertTrue(link.is_symlink() and not os.readlink(link).startswith("/"), link)
        self.assertIn("virtual-mac", self.expect(run(link, "--help")))


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    BUILD = pathlib.Path(sys.argv[1]).resolve()
    unittest.main(argv=sys.argv[:1])
