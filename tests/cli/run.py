#!/usr/bin/env python3
"""The tests of capso-cli: run.py --list, or run.py --build DIR TEST...

With --emulator PROGRAM, of a capso-cli for another system, which that program runs: those that need neither a device nor
Linux. --list then ends with the number of the others.
"""

import argparse
import pathlib
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from support import CliTest  # noqa: E402


def flat(suite):
    for test in suite:
        if isinstance(test, unittest.TestSuite):
            yield from flat(test)
        else:
            yield test


def is_for_anywhere(test):
    return getattr(getattr(test, test._testMethodName), "anywhere", False)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path)
    parser.add_argument("--emulator")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("tests", nargs="*")
    arguments = parser.parse_args()
    everything = unittest.defaultTestLoader.discover(str(HERE), "test_*.py")
    all_tests = list(flat(everything))
    chosen = [test for test in all_tests if not arguments.emulator or is_for_anywhere(test)]
    names = sorted(test.id() for test in chosen)
    if arguments.list:
        print("\n".join(names))
        if arguments.emulator:
            print(len(all_tests) - len(chosen))
        return 0
    CliTest.emulator = arguments.emulator
    CliTest.build = arguments.build.resolve()
    suite = unittest.defaultTestLoader.loadTestsFromNames(arguments.tests or names)
    if suite.countTestCases() == 0:
        return 1
    return 0 if unittest.TextTestRunner(verbosity=2).run(suite).wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
