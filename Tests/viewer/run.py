#!/usr/bin/env python3
"""Runs browser tests of the viewer: classes, one after the other in one browser, or some tests of one
class. Pictures of what they look at go to the folder PICTURES.

usage: run.py PROGRAMS PICTURES CLASS[.CLASS...] [TEST...]
"""
import importlib
import pathlib
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent


def classes():
    """Every class of browser tests by its name."""
    found = {}
    for path in sorted(HERE.glob("*_test.py")):
        for name, value in vars(importlib.import_module(path.stem)).items():
            if isinstance(value, type) and issubclass(value, unittest.TestCase) \
                    and value.__module__ == path.stem:
                found[name] = value
    return found


def main(arguments):
    if len(arguments) < 3 or arguments[0].startswith("-"):
        sys.exit(__doc__.strip())
    try:
        import case
    except ImportError as error:
        sys.exit(f"{error}; browser tests need chromium, chromium-driver and python3-selenium, which "
                 "script/bootstrap installs")
    case.SETTINGS.programs = pathlib.Path(arguments[0]).resolve()
    case.SETTINGS.pictures = pathlib.Path(arguments[1]).resolve()
    known = classes()
    asked = arguments[2].split(".")
    for name in asked:
        if name not in known:
            sys.exit(f'no class "{name}"; there are: {", ".join(sorted(known))}')
    if arguments[3:] and len(asked) > 1:
        sys.exit("tests are named of one class")
    tests = unittest.TestSuite()
    for name in asked:
        chosen = arguments[3:] or unittest.TestLoader().getTestCaseNames(known[name])
        if not chosen:
            sys.exit(f"{name} has no tests")
        tests.addTest(unittest.TestSuite(map(known[name], chosen)))
    done = unittest.TextTestRunner(verbosity=2).run(tests)
    sys.exit(0 if done.wasSuccessful() else 1)


if __name__ == "__main__":
    main(sys.argv[1:])
