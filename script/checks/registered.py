#!/usr/bin/env python3
"""Checks that every test written in the sources is one that the runner knows, and that every test
program was built; and that the runner knows every class of browser tests. The tests of the Mac's
adapters are built on a Mac only, and asked for only there. Those of the tin Mac's rooms have a build
of their own, which script/tin-mac runs whole.

usage: registered.py REPOSITORY BUILD
       registered.py --self-test
"""
import ast
import json
import pathlib
import re
import subprocess
import sys
import tempfile

import tree

WRITTEN = re.compile(r"^(TEST|TEST_F|TEST_P|TYPED_TEST|TYPED_TEST_P|RC_GTEST_PROP|RC_GTEST_FIXTURE_PROP)"
                     r"\s*\(\s*(\w+)\s*,\s*(\w+)\s*[,)]", re.M)


MAC_FOLDER = "Tests/macos/"
BROWSER_FOLDER = "Tests/viewer/"
TIN_FOLDER = "Tests/tin/"
TIN_CLIENTS = "Tests/tin/client/"  # Native tests of both ends of a connection; not built on a Mac.


def is_built_here(name, on_mac):
    if name.startswith(TIN_FOLDER):
        return name.startswith(TIN_CLIENTS) and not on_mac
    return on_mac or not name.startswith(MAC_FOLDER)


def written(root, on_mac=sys.platform == "darwin"):
    """(file, line, kind, suite, name) of every test in the sources that this system builds."""
    for name in tree.files(root, tree.SOURCES):
        if name.startswith("Tests/") and is_built_here(name, on_mac):
            code = tree.blanked(tree.read(root, name))
            for match in WRITTEN.finditer(code):
                yield (name, tree.line_of(code, match.start())) + match.groups()


def browser_classes(root):
    """(file, line, name) of every class of browser tests."""
    for path in sorted((root / BROWSER_FOLDER).glob("*_test.py")):
        for node in ast.parse(path.read_text(encoding="utf-8")).body:
            if isinstance(node, ast.ClassDef) and any(
                    isinstance(each, ast.FunctionDef) and each.name.startswith("test_")
                    for each in node.body):
                yield path.relative_to(root).as_posix(), node.lineno, node.name


def known_to(build, *words):
    """The names of all tests, or of those that the runner's arguments select. The runner wants to
    write where it is told to look, even to list; the build may be one that can only be read."""
    with tempfile.TemporaryDirectory() as elsewhere:
        pathlib.Path(elsewhere, "CTestTestfile.cmake").write_text(f'subdirs("{build}")\n',
                                                                  encoding="utf-8")
        listed = subprocess.run(["ctest", "--show-only=json-v1", *words], cwd=elsewhere,
                                capture_output=True, text=True, check=True)
    return [test["name"] for test in json.loads(listed.stdout)["tests"]]


def check(root, known, on_mac=sys.platform == "darwin"):
    found = [f"{name[:-len('_NOT_BUILT')]}: the test program is not built; its tests cannot run"
             for name in known if name.endswith("_NOT_BUILT")]
    # Parameterised tests are printed as Instance/Suite.Name/0, typed ones as Suite/0.Name.
    plain = set()
    for name in known:
        suite, _, test = name.partition(".")
        parts = suite.split("/")
        for part in parts:
            plain.add(part + "." + test.split("/")[0])
    for file, line, kind, suite, name in written(root, on_mac):
        if f"{suite}.{name}" not in plain:
            why = ("no instance of it exists" if kind.endswith("_P") else "the test runner does not "
                   "know it; add its file to a test program")
            found.append(f"{file}:{line}: {suite}.{name}: {why}")
    browsers = {part for name in known if name.startswith("Browser.") for part in name.split(".")[1:]}
    for file, line, name in browser_classes(root):
        if name not in browsers and not on_mac:
            found.append(f"{file}:{line}: Browser.{name}: the test runner does not know it; add it to "
                         f"{BROWSER_FOLDER}CMakeLists.txt")
    return found


def self_test():
    source = {"Tests/unit/T.cpp": "TEST(A, B) {}\nTEST_F(Fix,\n       C) {}\nTEST_P(Par, D) {}\n"
                                  "// TEST(No, One)\nTYPED_TEST(Ty, E) {}\n"}
    known = ["A.B", "Fix.C", "All/Par.D/0", "Ty/0.E", "Other.Test"]
    tree.expect(lambda root: check(root, known), source)
    tree.expect(lambda root: check(root, known[1:]), source, "T.cpp:1: A.B: the test runner does not")
    mac = source | {MAC_FOLDER + "M.mm": "TEST(Mac, Only) {}\n"}
    tree.expect(lambda root: check(root, known, False), mac)
    tree.expect(lambda root: check(root, known, True), mac, "M.mm:1: Mac.Only: the test runner")
    tin = source | {TIN_FOLDER + "R.cpp": "TEST(Room, Only) {}\n"}
    tree.expect(lambda root: check(root, known), tin)
    clients = tin | {TIN_CLIENTS + "C.cpp": "TEST(Both, Ends) {}\n"}
    tree.expect(lambda root: check(root, known, False), clients, "C.cpp:1: Both.Ends: the test runner")
    tree.expect(lambda root: check(root, known, True), clients)
    browser = {BROWSER_FOLDER + "live_test.py": "class Base:\n    pass\nclass Live(Base):\n"
                                                "    def test_it(self):\n        pass\n"}
    tree.expect(lambda root: check(root, ["Browser.Live"]), browser)
    tree.expect(lambda root: check(root, ["Browser.Other.Live"]), browser)
    tree.expect(lambda root: check(root, known, True), browser)
    tree.expect(lambda root: check(root, known, False), browser, "live_test.py:3: Browser.Live: the test runner")
    tree.expect(lambda root: check(root, known[:2] + known[3:]), source, "Par.D: no instance of it")
    tree.expect(lambda root: check(root, known + ["unit_tests_NOT_BUILT"]), source,
                "unit_tests: the test program is not built")


def main(arguments):
    if arguments == ["--self-test"]:
        self_test()
        print("the check passes known tests and finds one that the runner does not know")
        return
    if len(arguments) != 2:
        sys.exit(__doc__.strip())
    root, build = (pathlib.Path(a).resolve() for a in arguments)
    tree.report(check(root, known_to(build)), len(list(written(root)) + list(browser_classes(root))),
                "tests in the sources",
                "the runner knows them all")


if __name__ == "__main__":
    main(sys.argv[1:])
