#!/usr/bin/env python3
"""Runs browser tests of the viewer. Pictures of what they look at go to the folder PICTURES.

usage: run.py PROGRAMS PICTURES CLASS [TEST...]
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
    if arguments[2] not in known:
        sys.exit(f'no class "{arguments[2]}"; there are: {", ".join(sorted(known))}')
    loader = unittest.TestLoader()
    names = arguments[3:] or loader.getTestCaseNames(known[arguments[2]])
    tests = unittest.TestSuite(known[arguments[2]](name) for name in names)
    if tests.countTestCases() == 0:
        sys.exit(f"{arguments[2]} has no tests")
    done = unittest.TextTestRunner(verbosity=2).run(tests)
    sys.exit(0 if done.wasSuccessful() else 1)


if __name__ == "__main__":
    main(sys.argv[1:])
