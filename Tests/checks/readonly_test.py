"""script/demo and script/test in a tree that cannot be written: a small tree with the real scripts
and stand-ins for the programs, given away to its user with every right to write taken.

usage: readonly_test.py REPOSITORY
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = None
# The superuser may write everywhere, so the scripts run as another user then.
NOBODY = {"user": 65534, "group": 65534, "extra_groups": []} if os.geteuid() == 0 else {}
PROJECT = """cmake_minimum_required(VERSION 3.25)
project(Small NONE)
file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/*.txt)
foreach(program virtual-mac KorvelHelper korvel-app)
  add_custom_command(OUTPUT ${program}.made DEPENDS source.cpp
    COMMAND ${CMAKE_COMMAND} -E touch ${program}.made)
  add_custom_target(${program} ALL DEPENDS ${program}.made)
endforeach()
enable_testing()
add_test(NAME Small.Test COMMAND ${CMAKE_COMMAND} -E echo fine)
"""
PRESETS = """{"version": 6, "configurePresets": [
  {"name": "clang", "generator": "Ninja", "binaryDir": "${sourceDir}/build/clang"}]}"""
DEMO = """import pathlib, sys
for file in sys.argv[2:4]:
    pathlib.Path(file).write_text("drawn")
    print("shown", file)
"""


class ReadOnlyTree(unittest.TestCase):
    def setUp(self):
        folder = tempfile.mkdtemp(prefix="read-only-")
        self.tree = pathlib.Path(folder, "tree")
        self.elsewhere = pathlib.Path(folder, "tmp")
        self.addCleanup(self.give_back, folder)
        (self.tree / "script").mkdir(parents=True)
        self.elsewhere.mkdir()
        for name in ("common.sh", "demo", "test"):
            shutil.copy(ROOT / "script" / name, self.tree / "script")
        for name, text in (("script/bootstrap", "#!/bin/sh\n"), ("script/demo.py", DEMO),
                           ("CMakeLists.txt", PROJECT), ("CMakePresets.json", PRESETS),
                           ("source.cpp", "")):
            (self.tree / name).write_text(text, encoding="utf-8")
        (self.tree / "script/bootstrap").chmod(0o755)
        pathlib.Path(folder).chmod(0o755)
        self.elsewhere.chmod(0o777)

    def give_back(self, folder):
        self.lock(True)
        shutil.rmtree(folder)

    def lock(self, writable):
        for folder, _, files in os.walk(self.tree):
            os.chmod(folder, 0o755 if writable else 0o555)
            for name in files:
                path = pathlib.Path(folder, name)
                if not path.is_symlink():
                    mode = path.stat().st_mode
                    path.chmod(mode | 0o644 if writable else mode & 0o555 | 0o444)

    def script(self, name, *words):
        return subprocess.run([str(self.tree / "script" / name), *words], cwd=self.tree, text=True,
                              capture_output=True, check=False, timeout=120,
                              env={**os.environ, "TMPDIR": str(self.elsewhere)}, **NOBODY)

    def build(self):
        for words in (["--preset", "clang"], ["--build", "build/clang"]):
            subprocess.run(["cmake", *words], cwd=self.tree, check=True, capture_output=True)
        self.lock(False)

    def assert_refused(self, done):
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertIn(f"{self.tree} cannot be written and build/clang is not built from it",
                      done.stderr)

    def test_a_demonstration_that_is_built_is_shown_and_draws_elsewhere(self):
        self.build()
        done = self.script("demo")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertRegex(done.stdout, rf"^shown ({self.elsewhere}/virtual-mac-\w+)/timeline.svg\n"
                                      r"shown \1/trace.html\n$")
        for option, name in (("--timeline", "chosen.svg"), ("--trace", "chosen.html")):
            file = self.elsewhere / name
            self.assertIn(f"shown {file}\n", self.script("demo", option, str(file)).stdout)

    def test_tests_that_are_built_run_and_leave_nothing(self):
        self.build()
        done = self.script("test", "-R", "Small")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn("100% tests passed, 0 tests failed out of 1", done.stdout)
        self.assertEqual(list(self.elsewhere.iterdir()), [])

    def test_no_test_at_all_is_a_failure_here_too(self):
        self.build()
        self.assertNotEqual(self.script("test", "-R", "Nowhere").returncode, 0)

    def test_what_is_not_built_is_said_in_one_sentence(self):
        self.lock(False)
        self.assert_refused(self.script("demo"))
        self.assert_refused(self.script("test"))

    def test_what_is_not_built_from_these_sources_is_refused(self):
        self.build()
        (self.tree / "source.cpp").chmod(0o644)
        (self.tree / "source.cpp").write_text("// newer", encoding="utf-8")
        self.assert_refused(self.script("demo"))

    def test_a_plan_older_than_its_project_is_refused(self):
        self.build()
        os.utime(self.tree / "CMakeLists.txt")
        self.assert_refused(self.script("demo"))

    def test_a_tree_that_can_be_written_is_built(self):
        done = subprocess.run([str(self.tree / "script/demo")], cwd=self.tree, text=True,
                              capture_output=True, check=False, timeout=120)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(done.stdout.splitlines()[-2:],
                         [f"shown {self.tree}/timeline.svg", f"shown {self.tree}/trace.html"])
        self.assertTrue((self.tree / "build/clang/virtual-mac.made").exists())


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main(verbosity=2)
