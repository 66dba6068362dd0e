#!/usr/bin/python3
"""Measures the test suite by the faults it catches.

Each fault in the list is a one-line slip (a wrong comparison, a dropped call, a wrong
argument) written as an exact text that occurs once in a file and its replacement. One
at a time, the runner puts a fault into its file, rebuilds incrementally, runs the tests
of that area and puts the file back, then prints which faults the tests caught.

A fault counts as caught when a test fails with it, and fails again when re-run, and did
not already fail without it. The file is always put back, also on Ctrl+C or an error, and
touched so that the next build compiles it again; a run killed outright leaves a note in
the build directory that the next run uses to put the file back first.

List lines, fields separated by " | " (a bar with blanks either side):
    id | file | ctest regex | exact text | replacement
Blank lines and lines starting with # are skipped. In the two texts, \\n is a line break,
\\| a bar and \\\\ a backslash; any other backslash stands for itself.

Run from anywhere, e.g.
    nice -n 15 tools/run-faults.py -b build-test -j 2 -k 'dbus|mixer'
"""

import argparse
import json
import os
import re
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
FIELD = re.compile(r"\s+\|\s+")
# "  12 - Suite.Name (Failed)", or with "  # GetParam() = ..." after a parameterised name.
FAILED = re.compile(r"^\s*\d+ - (\S+)\s.*\([^()]+\)\s*$")


class Fault:
    def __init__(self, line_number, fields):
        self.line = line_number
        self.id, self.file, self.tests, find, replace = fields
        self.find, self.replace = unescape(find), unescape(replace)
        self.result, self.detail, self.failing, self.known = "", "", [], []
        self.build_seconds = self.test_seconds = 0.0


def unescape(text):
    out, i = [], 0
    while i < len(text):
        pair = text[i : i + 2]
        if pair in ("\\n", "\\|", "\\\\"):
            out.append({"\\n": "\n", "\\|": "|", "\\\\": "\\"}[pair])
            i += 2
        else:
            out.append(text[i])
            i += 1
    return "".join(out)


def read_list(path):
    faults = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if not line.strip() or line.lstrip().startswith("#"):
            continue
        fields = FIELD.split(line.strip(), maxsplit=4)
        if len(fields) != 5:
            sys.exit(f"{path}:{number}: want 5 fields separated by ' | ', found {len(fields)}")
        faults.append(Fault(number, fields))
    ids = [f.id for f in faults]
    if len(ids) != len(set(ids)):
        sys.exit(f"{path}: an id is used twice")
    return faults


class Mutation:
    """Puts a fault into its file for the length of a with-block, and the file back after."""

    def __init__(self, journal, path, original, mutated):
        self.journal, self.path, self.original, self.mutated = journal, path, original, mutated

    def __enter__(self):
        self.journal.write_text(json.dumps({"path": str(self.path), "text": self.original}))
        self.path.write_bytes(self.mutated.encode())
        return self

    def __exit__(self, *exc):
        restore(self.path, self.original)
        self.journal.unlink(missing_ok=True)
        return False


def restore(path, text):
    path.write_bytes(text.encode())
    os.utime(path)  # newer than anything built from the fault: the next build compiles it


def recover(journal):
    if journal.exists():
        note = json.loads(journal.read_text())
        restore(Path(note["path"]), note["text"])
        journal.unlink()
        print(f"put back {note['path']}, left changed by an earlier run", file=sys.stderr)


def run(command):
    """Runs `command` in a process group of its own, which goes with it on Ctrl+C."""
    started = time.monotonic()
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          errors="replace", start_new_session=True) as child:
        try:
            output, _ = child.communicate()
        except BaseException:
            os.killpg(child.pid, signal.SIGTERM)
            try:
                child.wait(10)
            except subprocess.TimeoutExpired:
                os.killpg(child.pid, signal.SIGKILL)
            raise
    return child.returncode, output, time.monotonic() - started


def failed_tests(output):
    return [m.group(1) for m in map(FAILED.match, output.splitlines()) if m]


def ctest(args, regex, *extra):
    return run(["ctest", "--test-dir", str(args.build), "-R", regex, "-j", str(args.jobs),
                "--timeout", str(args.timeout), "--no-tests=error", *extra])


def anchor_problem(fault):
    path = ROOT / fault.file
    if not path.is_file():
        return "no such file"
    matches = path.read_bytes().decode().count(fault.find)
    return "" if matches == 1 else f"the text is there {matches} times, not once"


def try_fault(fault, args, known_failures):
    fault.detail = anchor_problem(fault)
    if fault.detail:
        fault.result = "anchor"
        return
    path = ROOT / fault.file
    original = path.read_bytes().decode()
    with Mutation(args.journal, path, original, original.replace(fault.find, fault.replace, 1)):
        code, output, fault.build_seconds = run(["cmake", "--build", str(args.build),
                                                 "-j", str(args.jobs)])
        if code != 0:
            fault.result = "no-build"
            fault.detail = next((l for l in output.splitlines() if "error" in l), "")[:100]
            return
        code, output, fault.test_seconds = ctest(args, fault.tests)
        first = [t for t in failed_tests(output) if t not in known_failures]
        fault.known = [t for t in failed_tests(output) if t in known_failures]
        if code != 0 and not failed_tests(output):
            fault.result, fault.detail = "error", (output.strip().splitlines() or [""])[-1]
            return
        if not first:
            fault.result = "missed"
            return
        # A failure that does not come back is load, not the fault.
        _, output, seconds = ctest(args, fault.tests, "--rerun-failed")
        fault.test_seconds += seconds
        fault.failing = [t for t in first if t in failed_tests(output)]
        fault.result = "caught" if fault.failing else "flaky"
        if not fault.failing:
            fault.failing = first


def report(faults, interrupted, seconds):
    width = max([len(f.id) for f in faults] + [5])
    print(f"{'fault':<{width}}  {'result':<8} {'build':>6} {'tests':>6}  failing tests")
    for f in faults:
        if not f.result:
            continue
        names = ", ".join(f.failing[:4]) + (f" (+{len(f.failing) - 4} more)" if len(f.failing) > 4
                                            else "")
        known = f" [also failing without it: {', '.join(f.known)}]" if f.known else ""
        print(f"{f.id:<{width}}  {f.result:<8} {f.build_seconds:>5.0f}s {f.test_seconds:>5.0f}s"
              f"  {names or f.detail}{known}")
    count = {r: sum(f.result == r for f in faults)
             for r in ("caught", "missed", "flaky", "no-build", "anchor", "error")}
    judged = count["caught"] + count["missed"] + count["flaky"]
    share = f"{100 * count['caught'] / judged:.0f} %" if judged else "-"
    print(f"\ncaught {count['caught']} of {judged} faults that built ({share}); missed "
          f"{count['missed']}; flaky {count['flaky']}; did not build {count['no-build']}; "
          f"anchor not found {count['anchor']}; errors {count['error']}; "
          f"{seconds / 60:.0f} min" + ("; interrupted" if interrupted else ""))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("-b", "--build", type=Path, default=ROOT / "build-test",
                        help="the configured build directory (default: build-test)")
    parser.add_argument("-l", "--list", type=Path, default=ROOT / "tools" / "faults.txt",
                        help="the list of faults (default: tools/faults.txt)")
    parser.add_argument("-k", "--filter", default="",
                        help="only the faults whose id or file matches this regex")
    parser.add_argument("-j", "--jobs", type=int, default=os.cpu_count() or 2)
    parser.add_argument("--timeout", type=int, default=300, help="seconds a test may take")
    parser.add_argument("--check", action="store_true",
                        help="only check that each fault's text occurs once in its file")
    parser.add_argument("--no-baseline", action="store_true",
                        help="skip the run without faults that finds tests failing already")
    args = parser.parse_args()
    args.build = args.build if args.build.is_absolute() else Path.cwd() / args.build
    args.journal = args.build / "fault-in-progress.json"
    # Share compiled objects with the other trees, as the Makefile does.
    os.environ.setdefault("CCACHE_BASEDIR", str(ROOT))
    os.environ.setdefault("CCACHE_NOHASHDIR", "true")
    for stop in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(stop, signal.default_int_handler)

    faults = [f for f in read_list(args.list)
              if re.search(args.filter, f.id) or re.search(args.filter, f.file)]
    if args.check:
        problems = [(f, anchor_problem(f)) for f in faults]
        for fault, problem in problems:
            if problem:
                print(f"{args.list}:{fault.line}: {fault.id}: {fault.file}: {problem}")
        sys.exit(1 if any(problem for _, problem in problems) else 0)
    if not (args.build / "CMakeCache.txt").is_file():
        sys.exit(f"{args.build} is not a configured build directory (make build-test makes one)")
    recover(args.journal)
    started = time.monotonic()
    interrupted = False
    try:
        code, output, _ = run(["cmake", "--build", str(args.build), "-j", str(args.jobs)])
        if code != 0:
            sys.exit(output + "\nthe tree does not build without faults")
        known_failures = set()
        if not args.no_baseline:
            # Plain alternation: CMake's regular expressions allow only a few groups.
            union = "|".join(dict.fromkeys(f.tests for f in faults))
            code, output, seconds = ctest(args, union)
            known_failures = set(failed_tests(output))
            if code != 0 and not known_failures:
                sys.exit(output + "\nctest did not run the tests")
            print(f"without faults: {len(known_failures)} failing in {seconds:.0f}s "
                  f"{' '.join(sorted(known_failures))}", file=sys.stderr)
        for number, fault in enumerate(faults, 1):
            print(f"[{number}/{len(faults)}] {fault.id} ...", end=" ", flush=True,
                  file=sys.stderr)
            try_fault(fault, args, known_failures)
            print(fault.result, file=sys.stderr)
        # Leave binaries built from the tree as it is, not from the last fault.
        run(["cmake", "--build", str(args.build), "-j", str(args.jobs)])
    except KeyboardInterrupt:
        interrupted = True
        print("\ninterrupted; every file is as it was", file=sys.stderr)
    report(faults, interrupted, time.monotonic() - started)


if __name__ == "__main__":
    main()
