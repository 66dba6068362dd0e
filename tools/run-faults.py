#!/usr/bin/python3
"""Measures the test suite by the faults it catches.

Each fault in the list is a one-line slip (a wrong comparison, a dropped call, a wrong
argument) written as an exact text that occurs once in a file and its replacement. One
at a time, the runner puts a fault into its file, rebuilds incrementally, runs the tests
of that area and puts the file back, then prints which faults the tests caught.

A fault counts as caught when a test fails with it and fails again when re-run, and does
not fail twice without it either (checked at the end, only for the tests that failed). Each
fault builds only what its tests need: everything but the benches and the test programs
that run none of its tests. The file is always put back, also on Ctrl+C or an error, and
touched so that the next build compiles it again; a run killed outright leaves a note in
the build directory that the next run uses to put the file back first. A run refuses to
start while another is busy in the same tree, or while a faulted file has changes not
committed (it would take them for the file as it should be).

List lines, fields separated by " | " (a bar with blanks either side):
    id | file | ctest regex | exact text | replacement
Blank lines and lines starting with # are skipped. In the two texts, \\n is a line break,
\\| a bar and \\\\ a backslash; any other backslash stands for itself.

Run from anywhere, e.g.
    nice -n 15 tools/run-faults.py -b build-test -j 2 -k 'dbus|mixer'
"""

import argparse
import datetime
import fcntl
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
        self.targets = None


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


STOPS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Uninterrupted:
    """Holds Ctrl+C and the other stops back for a with-block: a file and the note that says how
    to put it back change together or not at all."""

    def __enter__(self):
        self.mask = signal.pthread_sigmask(signal.SIG_BLOCK, STOPS)

    def __exit__(self, *exc):
        signal.pthread_sigmask(signal.SIG_SETMASK, self.mask)
        return False


class Mutation:
    """Puts a fault into its file for the length of a with-block, and the file back after."""

    def __init__(self, journal, path, original, mutated):
        self.journal, self.path, self.original, self.mutated = journal, path, original, mutated

    def __enter__(self):
        with Uninterrupted():
            self.journal.write_text(json.dumps({"path": str(self.path), "text": self.original}))
            self.path.write_bytes(self.mutated.encode())
        return self

    def __exit__(self, *exc):
        with Uninterrupted():
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


def build(args, targets=None):
    """Builds the targets named (paths in the build directory), or everything."""
    if targets is None or not (args.build / "build.ninja").is_file():
        return run(["cmake", "--build", str(args.build), "-j", str(args.jobs)])
    return run(["cmake", "--build", str(args.build), "-j", str(args.jobs), "--", *targets])


def list_tests(args, regex="."):
    """The tests ctest would run for `regex`, each as (name, command)."""
    code, output, _ = run(["ctest", "--test-dir", str(args.build), "-R", regex,
                           "--show-only=json-v1"])
    if code != 0:
        sys.exit(output + "\nctest could not list the tests")
    return [(t["name"], t.get("command", [])) for t in json.loads(output)["tests"]]


def ninja_all(args):
    """What the build directory builds by default, with the folders' own `all` spelled out."""
    rules = {}
    for line in (args.build / "build.ninja").read_text().splitlines():
        if line.startswith("build ") and ": phony " in line and line.split(":")[0].endswith("all"):
            name, _, inputs = line[len("build "):].partition(": phony ")
            rules[name.strip()] = inputs.split()
    targets, pending = [], list(rules.get("all", []))
    while pending:
        name = pending.pop(0)
        if name in rules:
            pending[:0] = rules[name]
        elif name not in targets:
            targets.append(name)
    return targets


def test_programs(args, regex="."):
    """The programs built under tests/ that the tests matching `regex` start (some through a
    wrapper such as a session bus of their own)."""
    folder = args.build / "tests"
    return {word for _, command in list_tests(args, regex) for word in command
            if Path(word).is_relative_to(folder)}


def targets_for(args, regex, everything, programs):
    """What the tests matching `regex` need: their test programs (each brings what it says it
    depends on), and for a test that no test program runs (a script, the kit tool) everything
    but the benches and the other test programs."""
    folder = args.build / "tests"
    tests = list_tests(args, regex)
    wanted = {word for _, command in tests for word in command if Path(word).is_relative_to(folder)}
    if all(any(word in programs for word in command) for _, command in tests):
        return [t for t in everything if str(args.build / t) in wanted]
    return [t for t in everything
            if not t.startswith("bench/") and (str(args.build / t) in wanted
                                               or str(args.build / t) not in programs)]


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


def try_fault(fault, args):
    fault.detail = anchor_problem(fault)
    if fault.detail:
        fault.result = "anchor"
        return
    path = ROOT / fault.file
    original = path.read_bytes().decode()
    with Mutation(args.journal, path, original, original.replace(fault.find, fault.replace, 1)):
        code, output, fault.build_seconds = build(args, fault.targets)
        if code != 0:
            fault.result = "no-build"
            fault.detail = next((l for l in output.splitlines() if "error" in l), "")[:100]
            return
        code, output, fault.test_seconds = ctest(args, fault.tests)
        first = failed_tests(output)
        if code != 0 and not first:
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


def exactly(names):
    """A ctest pattern for exactly these test names, without groups (CMake allows few)."""
    return "|".join("^" + re.sub(r"([.\[\]()*+?^$|\\])", r"\\\1", n) + "$" for n in names)


def check_without_faults(args, faults):
    """Runs the tests that failed with a fault once more on the tree as committed: a test that
    fails there twice catches nothing, and its faults keep only the other tests."""
    suspects = sorted({t for f in faults if f.result in ("caught", "flaky") for t in f.failing})
    if not suspects:
        return "without faults: no test failed with a fault"
    code, output, seconds = ctest(args, exactly(suspects))
    first = failed_tests(output)
    if code != 0 and not first:
        return f"without faults: ctest did not run ({(output.strip().splitlines() or [''])[-1]})"
    again = set(failed_tests(ctest(args, exactly(suspects), "--rerun-failed")[1])) if first \
        else set()
    known = set(first) & again
    for f in faults:
        f.known = [t for t in f.failing if t in known]
        f.failing = [t for t in f.failing if t not in known]
        if f.result in ("caught", "flaky") and not f.failing:
            f.result = "missed"
    once = sorted(set(first) - known)
    return (f"without faults, the {len(suspects)} tests that failed with a fault ({seconds:.0f}s): "
            f"failing twice, so not counted: {', '.join(sorted(known)) or 'none'}; "
            f"failing once, then passing: {', '.join(once) or 'none'}")


def report(faults, seconds, header, state=""):
    """The table of faults tried so far, with the totals, as text."""
    lines = [header]
    width = max([len(f.id) for f in faults] + [5])
    lines.append(f"{'fault':<{width}}  {'result':<8} {'build':>6} {'tests':>6}  failing tests")
    for f in faults:
        if not f.result:
            continue
        names = ", ".join(f.failing[:4]) + (f" (+{len(f.failing) - 4} more)" if len(f.failing) > 4
                                            else "")
        known = f" [also failing without it: {', '.join(f.known)}]" if f.known else ""
        lines.append(f"{f.id:<{width}}  {f.result:<8} {f.build_seconds:>5.0f}s "
                     f"{f.test_seconds:>5.0f}s  {names or f.detail}{known}")
    count = {r: sum(f.result == r for f in faults)
             for r in ("caught", "missed", "flaky", "no-build", "anchor", "error")}
    judged = count["caught"] + count["missed"] + count["flaky"]
    share = f"{100 * count['caught'] / judged:.0f} %" if judged else "-"
    lines.append(f"\ncaught {count['caught']} of {judged} faults that built ({share}); missed "
                 f"{count['missed']}; flaky {count['flaky']}; did not build {count['no-build']}; "
                 f"anchor not found {count['anchor']}; errors {count['error']}; "
                 f"{seconds / 60:.0f} min" + (f"; {state}" if state else ""))
    return "\n".join(lines) + "\n"


def check_lists(args, faults):
    """Each fault's text occurs once in its file and, in a configured build directory, each
    alternative of its pattern (split at its bars) names a test."""
    problems = [(f, anchor_problem(f)) for f in faults]
    if (args.build / "CMakeCache.txt").is_file():
        names = {}
        for fault, problem in list(problems):
            empty = [a for a in fault.tests.split("|")
                     if not names.setdefault(a, [n for n, _ in list_tests(args, a)])]
            if empty:
                problems.append((fault, "no test matches " + ", ".join(empty)))
    for fault, problem in problems:
        if problem:
            print(f"{args.list}:{fault.line}: {fault.id}: {fault.file}: {problem}")
    whole = [f.id for f in faults if f.tests == "."]
    print(f"{len(faults)} faults; the whole suite runs for {len(whole)}: {' '.join(whole)}")
    return not any(problem for _, problem in problems)


def changed_files(files):
    """The files of `files` that differ from the last commit."""
    code, output, _ = run(["git", "-C", str(ROOT), "status", "--porcelain", "--", *files])
    return [line[3:] for line in output.splitlines()] if code == 0 else []


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("-b", "--build", type=Path, default=ROOT / "build-test",
                        help="the configured build directory (default: build-test)")
    parser.add_argument("-l", "--list", type=Path, default=ROOT / "tools" / "faults.txt",
                        help="the list of faults (default: tools/faults.txt)")
    parser.add_argument("-k", "--filter", default="",
                        help="only the faults whose id or file matches this regex")
    parser.add_argument("-j", "--jobs", type=int, default=os.cpu_count() or 2)
    parser.add_argument("--timeout", type=int, default=300,
                        help="seconds a test may take when it sets no time of its own")
    parser.add_argument("--check", action="store_true",
                        help="only check that each fault's text occurs once in its file and, "
                             "with a configured build directory, that its pattern names tests")
    parser.add_argument("--no-baseline", action="store_true",
                        help="skip the run without faults of the tests that failed with one")
    parser.add_argument("--build-all", action="store_true",
                        help="build everything for each fault, the benches too, not only the "
                             "programs of the tests that run")
    parser.add_argument("-o", "--output", type=Path,
                        help="also write the table to this file, again after each fault")
    parser.add_argument("--allow-changed", action="store_true",
                        help="run even when a faulted file has changes not committed")
    args = parser.parse_args()
    args.build = args.build if args.build.is_absolute() else Path.cwd() / args.build
    args.journal = args.build / "fault-in-progress.json"
    # Share compiled objects with the other trees, as the Makefile does.
    os.environ.setdefault("CCACHE_BASEDIR", str(ROOT))
    os.environ.setdefault("CCACHE_NOHASHDIR", "true")
    for stop in STOPS:
        signal.signal(stop, signal.default_int_handler)

    faults = [f for f in read_list(args.list)
              if re.search(args.filter, f.id) or re.search(args.filter, f.file)]
    if args.check:
        sys.exit(0 if check_lists(args, faults) else 1)
    if not (args.build / "CMakeCache.txt").is_file():
        sys.exit(f"{args.build} is not a configured build directory (make build-test makes one)")
    # Two runs in one tree would each take the other's fault for the file as committed.
    lock = open(__file__)
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit("another run of the faults is busy in this tree")
    recover(args.journal)
    changed = changed_files(sorted({f.file for f in faults}))
    if changed and not args.allow_changed:
        sys.exit("these files have changes not committed (a fault left by a run that was killed?): "
                 + " ".join(changed) + "\ncommit or restore them, or pass --allow-changed")
    _, commit, _ = run(["git", "-C", str(ROOT), "describe", "--always", "--dirty"])
    header = (f"{datetime.datetime.now(datetime.timezone.utc):%Y-%m-%d %H:%M} UTC, commit "
              f"{commit.strip()}, {args.list.name}, {len(faults)} faults, -j {args.jobs}")
    started = time.monotonic()
    interrupted = False
    try:
        code, output, _ = build(args)
        if code != 0:
            sys.exit(output + "\nthe tree does not build without faults")
        everything = None if args.build_all or not (args.build / "build.ninja").is_file() \
            else ninja_all(args)
        if everything:
            programs = test_programs(args)
            for fault in faults:
                fault.targets = targets_for(args, fault.tests, everything, programs)
        for number, fault in enumerate(faults, 1):
            print(f"[{number}/{len(faults)}] {fault.id} ...", end=" ", flush=True,
                  file=sys.stderr)
            try_fault(fault, args)
            print(f"{fault.result} ({fault.build_seconds:.0f}s + {fault.test_seconds:.0f}s) "
                  f"{' '.join(fault.failing) or fault.detail}", file=sys.stderr)
            if args.output:
                args.output.write_text(report(
                    faults, time.monotonic() - started, header,
                    f"running, {number} of {len(faults)} tried; not yet checked without faults"))
        # Leave what a fault built built again from the tree as it is.
        built = [t for f in faults if f.targets for t in f.targets]
        build(args, list(dict.fromkeys(built)) if everything else None)
        if not args.no_baseline:
            header += "\n" + check_without_faults(args, faults)
            print(header.splitlines()[-1], file=sys.stderr)
    except KeyboardInterrupt:
        interrupted = True
    finally:
        recover(args.journal)
    if interrupted:
        print("\ninterrupted; every file is as it was", file=sys.stderr)
    table = report(faults, time.monotonic() - started, header, "interrupted" if interrupted else "")
    print(table, end="")
    if args.output:
        args.output.write_text(table)


if __name__ == "__main__":
    main()
