#!/usr/bin/python3
"""Runs desktop UI test modules (unittest) and ends with "N passed, M failed".

    dbus-run-session -- /usr/bin/python3 run_ui_tests.py [-k PATTERN] [MODULE_OR_FILE ...]

With no modules, runs every test_*.py next to this script; the program is $TAPPIX_PATH.
Exits non-zero when a test failed or none ran. When a test fails, the log and
accessibility tree of each session still open are printed with it.
"""

import argparse
import glob
import importlib
import os
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)

import harness  # noqa: E402


class ReportingResult(unittest.TextTestResult):
    """Tests sharing a session (setUpClass) fail while it is still up: show its state."""

    def addFailure(self, test, err):
        super().addFailure(test, err)
        harness.report_live_sessions()

    def addError(self, test, err):
        super().addError(test, err)
        harness.report_live_sessions()

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            harness.report_live_sessions()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("-k", dest="patterns", action="append",
                        help="only tests whose name contains this (repeatable)")
    parser.add_argument("modules", nargs="*")
    options = parser.parse_args()

    loader = unittest.TestLoader()
    if options.patterns:
        loader.testNamePatterns = ["*%s*" % p for p in options.patterns]
    suite = unittest.TestSuite()
    for module in options.modules or sorted(glob.glob(os.path.join(HERE, "test_*.py"))):
        # A module by file path (its folder joins sys.path) or by import name.
        directory, name = os.path.split(os.path.splitext(os.path.abspath(module))[0])
        if directory not in sys.path:
            sys.path.insert(0, directory)
        suite.addTests(loader.loadTestsFromModule(importlib.import_module(name)))

    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2,
                                     resultclass=ReportingResult).run(suite)
    failed = len(result.failures) + len(result.errors) + len(result.unexpectedSuccesses)
    passed = result.testsRun - len(result.skipped) - len({id(t) for t, _ in result.failures
                                                           + result.errors})
    print("%d skipped\n%d passed, %d failed" % (len(result.skipped), max(passed, 0), failed))
    sys.stdout.flush()
    return 1 if failed or result.testsRun == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
