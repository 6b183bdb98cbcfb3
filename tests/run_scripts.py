#!/usr/bin/env python3
"""Runs the script tests and compares what each one prints with what it should print.

A case is a script, <area>/<name>.dv, with these files beside it (or below --expected):

    <name>.out      its standard output; absent: nothing
    <name>.err      its standard error; absent: nothing
    <name>.status   its exit status; absent: 0
    <name>.in       what it reads from standard input; absent: nothing
    <name>.args     the program's arguments, one a line, instead of the script alone; {script}
                    stands for the script. A case may have these and no script.
    <name>.files/   what is put into the working directory
    <name>.unsanitized  says why the case is left out of sanitizer builds

In .out and .err, {program} stands for the program as it was called. A mode other than "source"
prefers <name>.<mode>.out, .err and .status where they exist: they name a difference that is meant.
"""

import argparse
import difflib
import itertools
import os
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

TESTS = Path(__file__).resolve().parent
MODES = ("source", "bytecode", "parsed")
SANITIZED = bool(os.environ.get("DOVREL_SANITIZED"))
TIME_LIMIT = 120 if SANITIZED else 20
# A script that runs wild is stopped here, before it fills the disk, and a failure shows only the
# beginning of what it printed.
OUTPUT_LIMIT = 64 << 20
DIFF_BYTES = 1 << 20
DIFF_LINES = 200
DIFF_COLUMNS = 400


@dataclass(frozen=True)
class Case:
    name: str
    script: Path
    expected: str  # where the files beside the script lie, without their suffixes

    def beside(self, suffix):
        return Path(self.expected + suffix)

    def read(self, suffix, absent=b""):
        path = self.beside(suffix)
        return path.read_bytes() if path.is_file() else absent

    def wanted(self, suffix, mode, absent=b""):
        return self.read(f".{mode}{suffix}", self.read(suffix, absent))

    @property
    def has_arguments(self):
        return self.beside(".args").is_file()

    def arguments(self):
        if not self.has_arguments:
            return [os.fsencode(self.script.name)]
        text = self.read(".args")
        lines = text.removesuffix(b"\n").split(b"\n") if text else []
        return [line.replace(b"{script}", os.fsencode(self.script.name)) for line in lines]


@dataclass(frozen=True)
class Outcome:
    out: bytes
    err: bytes
    status: int


class Failure(Exception):
    """A case that could not be carried out, with the reason."""


def find_cases(scripts, expected):
    names = set()
    for folder, suffix in ((scripts, ".dv"), (expected, ".args")):
        for path in folder.rglob("*" + suffix):
            name = path.relative_to(folder)
            # Scripts that another script reads are no cases of their own.
            if not any(parent.suffix == ".files" for parent in name.parents):
                names.add(name.as_posix().removesuffix(suffix))
    return [Case(name, scripts / f"{name}.dv", str(expected / name)) for name in sorted(names)]


def select(cases, wanted):
    """The cases that any of the wanted areas or names takes in."""

    def matches(case, want):
        want = want.rstrip("/").removesuffix(".dv")
        return case.name == want or case.name.startswith(want + "/")

    for want in wanted:
        if not any(matches(case, want) for case in cases):
            sys.exit(f"no case is called {want}")
    return [case for case in cases if not wanted or any(matches(case, want) for want in wanted)]


def run(command, folder, stdin=b""):
    # Files rather than pipes, so that the limit on a file's size holds for the output as well.
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        with tempfile.TemporaryFile() as source:
            source.write(stdin)
            source.seek(0)
            try:
                done = subprocess.run(
                    command, cwd=folder, stdin=source, stdout=out, stderr=err, timeout=TIME_LIMIT
                )
            except subprocess.TimeoutExpired:
                raise Failure(f"still running after {TIME_LIMIT} s") from None
        out.seek(0)
        err.seek(0)
        return Outcome(out.read(), err.read(), done.returncode)


def carry_out(case, program, mode):
    with tempfile.TemporaryDirectory(prefix="dovrelscript-") as folder:
        if case.beside(".files").is_dir():
            shutil.copytree(case.beside(".files"), folder, dirs_exist_ok=True)
        # The script runs as a copy, so that its path is the same wherever the tests are.
        if case.script.is_file():
            shutil.copy(case.script, folder)
        stdin = case.read(".in")
        if mode != "bytecode":
            return run([program, *case.arguments()], folder, stdin)
        compiled = run([program, "--compile", case.script.name, "out.dvbc"], folder)
        if compiled.status != 0:
            return compiled
        return run([program, "--run-bytecode", "out.dvbc"], folder, stdin)


def describe(status):
    if status >= 0:
        return str(status)
    return f"killed by {signal.Signals(-status).name}"


def visible(line):
    return "".join(c if c.isprintable() else repr(c)[1:-1] for c in line[:DIFF_COLUMNS])


def lines(data):
    result = data[:DIFF_BYTES].decode("utf-8", "backslashreplace").split("\n")
    last = result.pop()
    if last:
        result.append(last + "  (no newline at the end)")
    return result


def diff(wanted, got, label):
    found = difflib.unified_diff(
        lines(wanted), lines(got), f"expected {label}", f"actual {label}", lineterm=""
    )
    return [visible(line) for line in itertools.islice(found, DIFF_LINES)]


def check(case, program, mode):
    """What is wrong with the case, in lines: none when it passes."""
    try:
        got = carry_out(case, program, mode)
        status = int(case.wanted(".status", mode, b"0"))
    except (Failure, OSError, ValueError) as error:
        return [str(error)]

    problems = []
    for label, suffix, actual in (
        ("standard output", ".out", got.out),
        ("standard error", ".err", got.err),
    ):
        wanted = case.wanted(suffix, mode).replace(b"{program}", os.fsencode(program))
        if wanted != actual:
            problems += diff(wanted, actual, label) or [f"{label} differs further down"]
    if status != got.status:
        problems.append(f"exit status: expected {status}, actual {describe(got.status)}")
    return problems


def parse_arguments():
    parser = argparse.ArgumentParser(description="Runs the script tests.")
    parser.add_argument("--program", required=True, help="the dovrelscript to test")
    parser.add_argument("--mode", choices=MODES, default="source")
    parser.add_argument("--scripts", type=Path, default=TESTS / "scripts", metavar="DIR")
    parser.add_argument(
        "--expected", type=Path, metavar="DIR", help="where the expectations are; default: beside"
    )
    parser.add_argument("cases", nargs="*", metavar="CASE", help="an area, or area/name")
    return parser.parse_args()


def main():
    options = parse_arguments()
    program = os.path.abspath(options.program)
    cases = find_cases(options.scripts, options.expected or options.scripts)
    if options.mode == "bytecode":
        # With arguments of its own, a case tests the command line, not a script.
        cases = [case for case in cases if not case.has_arguments]
    if SANITIZED:
        cases = [case for case in cases if not case.beside(".unsanitized").is_file()]
    cases = select(cases, options.cases)
    if not cases:
        print(f"no case below {options.scripts}")

    resource.setrlimit(resource.RLIMIT_FSIZE, (OUTPUT_LIMIT, OUTPUT_LIMIT))
    failed = 0
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        results = pool.map(lambda case: check(case, program, options.mode), cases)
        for case, problems in zip(cases, results):
            if problems:
                failed += 1
                print(f"FAILED {case.name}", *problems, "", sep="\n", flush=True)
    print(f"{len(cases) - failed} passed, {failed} failed")
    return 0 if cases and not failed else 1


if __name__ == "__main__":
    sys.exit(main())
