#!/usr/bin/python3
"""Runs desktop UI test modules (unittest) and ends with "N passed, M failed".

    dbus-run-session -- /usr/bin/python3 run_ui_tests.py [--program PATH] [-k PATTERN]
                        [MODULE_OR_FILE ...]

With no modules, runs every test_*.py next to this script. --program sets
TAPPIX_PATH for harness.Session. Exits non-zero when a test failed or none ran.
When a test fails, the log and accessibility tree of each session still open
are printed with it.
"""

import argparse
import glob
import importlib
import os
import sys
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)

import harness  # noqa: E402


class CountingResult(unittest.TextTestResult):
    def __init__(self, *args, **kwargs):
        super().__init__(*args, **kwargs)
        self.passed = 0
        self.failed = 0

    def addSuccess(self, test):
        super().addSuccess(test)
        self.passed += 1

    def _failed(self):
        self.failed += 1
        # Tests sharing a session (setUpClass) fail while it is still up: show its state.
        harness.report_live_sessions()

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._failed()

    def addError(self, test, err):
        super().addError(test, err)
        self._failed()

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self._failed()

    def addUnexpectedSuccess(self, test):
        super().addUnexpectedSuccess(test)
        self.failed += 1

    def addExpectedFailure(self, test, err):
        super().addExpectedFailure(test, err)
        self.passed += 1


def load_module(name_or_path):
    """A test module by import name, or by file path (its folder joins sys.path)."""
    if name_or_path.endswith(".py") or os.sep in name_or_path:
        path = os.path.abspath(name_or_path)
        directory = os.path.dirname(path)
        if directory not in sys.path:
            sys.path.insert(0, directory)
        name_or_path = os.path.splitext(os.path.basename(path))[0]
    return importlib.import_module(name_or_path)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", help="the application to test (default: $TAPPIX_PATH)")
    parser.add_argument("-k", dest="patterns", action="append",
                        help="only tests whose name contains this (repeatable)")
    parser.add_argument("-q", "--quiet", action="store_true")
    parser.add_argument("modules", nargs="*")
    options = parser.parse_args()
    if options.program:
        os.environ["TAPPIX_PATH"] = os.path.abspath(options.program)

    loader = unittest.TestLoader()
    if options.patterns:
        loader.testNamePatterns = ["*%s*" % p for p in options.patterns]
    modules = options.modules or sorted(glob.glob(os.path.join(HERE, "test_*.py")))
    suite = unittest.TestSuite()
    for module in modules:
        suite.addTests(loader.loadTestsFromModule(load_module(module)))

    runner = unittest.TextTestRunner(stream=sys.stdout, verbosity=1 if options.quiet else 2,
                                     resultclass=CountingResult)
    started = time.monotonic()
    result = runner.run(suite)
    if result.skipped:
        print("%d skipped" % len(result.skipped))
    print("%d passed, %d failed" % (result.passed, result.failed))
    sys.stdout.flush()
    if result.testsRun == 0 and not result.failed:
        print("no tests ran (%.1fs)" % (time.monotonic() - started), file=sys.stderr)
        return 1
    return 1 if result.failed else 0


if __name__ == "__main__":
    sys.exit(main())
