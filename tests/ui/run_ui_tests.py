#!/usr/bin/python3
"""dbus-run-session -- /usr/bin/python3 run_ui_tests.py [-k PATTERN] MODULE_FILE ...: runs
desktop UI test modules (unittest) on $TAPPIX_PATH; fails when a test failed or none ran."""

import argparse
import importlib
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import harness  # noqa: E402


def report_live_sessions():
    for session in list(harness.LIVE):
        session.report()


class Reporting(unittest.TextTestResult):
    """A failing test shows the log of each Tappix still running, as it was then."""

    def addFailure(self, test, err):
        super().addFailure(test, err)
        report_live_sessions()

    def addError(self, test, err):
        super().addError(test, err)
        report_live_sessions()

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            report_live_sessions()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("-k", dest="patterns", action="append")
    parser.add_argument("modules", nargs="+")
    options = parser.parse_args()
    loader = unittest.TestLoader()
    if options.patterns:
        loader.testNamePatterns = ["*%s*" % p for p in options.patterns]
    suite = unittest.TestSuite()
    for module in options.modules:
        directory, name = os.path.split(os.path.splitext(os.path.abspath(module))[0])
        sys.path.insert(0, directory)
        suite.addTests(loader.loadTestsFromModule(importlib.import_module(name)))
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2,
                                     resultclass=Reporting).run(suite)
    failed = len(result.failures) + len(result.errors) + len(result.unexpectedSuccesses)
    print("%d skipped\n%d passed, %d failed" % (
        len(result.skipped), max(0, result.testsRun - len(result.skipped) - failed), failed))
    sys.stdout.flush()
    return 1 if failed or result.testsRun == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
