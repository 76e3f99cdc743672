#!/usr/bin/env python3
"""Looks at the version that the programs tell, and at the commit in it: how it is found, and that
the source that has it is left alone while it is the same.

usage: version_test.py REPOSITORY BUILD PROGRAMS
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = BUILD = PROGRAMS = None
NAMES = ("virtual-mac", "korvel-app", "virtual-mac-page")
PATIENCE = 60  # seconds for any one command


def output_of(*words, cwd=None):
    """Git looks at no repository but that of `cwd`, and at nobody's settings."""
    kept = {name: value for name, value in os.environ.items() if not name.startswith("GIT_")}
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True, cwd=cwd,
                          timeout=PATIENCE, check=False,
                          env={**kept, "GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_SYSTEM": "/dev/null"})
    if done.returncode != 0:
        raise AssertionError(f"{words}: {done.stdout}{done.stderr}")
    return done.stdout


class Commit(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vm-")
        self.addCleanup(temporary.cleanup)
        self.tree = pathlib.Path(temporary.name).resolve() / "tree"
        self.source = self.tree.parent / "BuiltCommit.cpp"
        self.tree.mkdir()
        self.git = shutil.which("git")

    def commit(self, git):
        output_of("cmake", "-D", f"GIT={git}", "-D", f"TREE={self.tree}", "-D", f"SOURCE={self.source}",
                  "-P", ROOT / "cmake/commit.cmake")
        return re.search(r'builtCommit = "([^"]*)"', self.source.read_text(encoding="utf-8"))[1]

    def do(self, *words):
        return output_of(self.git, "-c", "user.name=A", "-c", "user.email=a@b", *words, cwd=self.tree)

    def test_is_unknown_without_a_repository_of_the_tree(self):
        self.assertEqual(self.commit(""), "unknown")
        self.assertEqual(self.commit("/no/such/git"), "unknown")
        if self.git is None:
            self.skipTest("git is not installed")
        output_of(self.git, "init", "-q", cwd=self.tree.parent)
        self.assertEqual(self.commit(self.git), "unknown", "the repository is of another tree")

    def test_is_that_of_the_tree_and_tells_of_changes(self):
        if self.git is None:
            self.skipTest("git is not installed")
        self.do("init", "-q")
        self.assertEqual(self.commit(self.git), "unknown", "nothing was committed")
        (self.tree / "file").write_text("one\n", encoding="utf-8")
        self.do("add", "file")
        self.do("commit", "-q", "-m", "One")
        head = self.do("rev-parse", "--short=12", "HEAD").strip()
        self.assertEqual(self.commit(self.git), head)
        written = self.source.stat().st_mtime_ns
        (self.tree / "new").write_text("nobody's yet\n", encoding="utf-8")
        self.assertEqual(self.commit(self.git), head)
        self.assertEqual(self.source.stat().st_mtime_ns, written, "it says the same, and is left alone")
        (self.tree / "file").write_text("two\n", encoding="utf-8")
        self.assertEqual(self.commit(self.git), head + "-dirty")


class Version(unittest.TestCase):
    def test_is_the_same_for_all_programs(self):
        project = re.search(r"^project\(KorvelHelper VERSION ([\d.]+)",
                            (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"), re.M)[1]
        source = (BUILD / "VirtualMac/Tools/BuiltCommit.cpp").read_text(encoding="utf-8")
        commit = re.search(r'builtCommit = "(unknown|[0-9a-f]{12,}(?:-dirty)?)"', source)[1]
        [facts] = BUILD.glob("CMakeFiles/*/CMakeCXXCompiler.cmake")
        compiler = " ".join(re.search(rf'CMAKE_CXX_COMPILER_{fact} "([^"]+)"',
                                      facts.read_text(encoding="utf-8"))[1]
                            for fact in ("ID", "VERSION"))
        for name in NAMES:
            self.assertEqual(output_of(PROGRAMS / name, "--version"),
                             f"{name} {project}, commit {commit}, {compiler}\n")
        for words in (("--json", "--version"), ("--version", "--json")):
            self.assertEqual(json.loads(output_of(PROGRAMS / "korvel-app", *words)),
                             {"ok": True, "program": "korvel-app", "version": project,
                              "commit": commit, "compiler": compiler})
        for name in NAMES:
            self.assertIn("--version", output_of(PROGRAMS / name, "--help"))


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    ROOT, BUILD, PROGRAMS = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    unittest.main(argv=sys.argv[:1])
