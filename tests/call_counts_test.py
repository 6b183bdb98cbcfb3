#!/usr/bin/env python3
"""Holds the table of docs/language.md that tells how often a call in an argument runs.

Each form of the table is run as a user would write it, with a function `f` of several lines and with
one of a single line, and the calls of `g` or `row` are counted: at the top of a script, in a
function, in a loop that is compiled, and from a bytecode file.
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "docs/language.md"
HEADING = "### How often a call runs"
TIME_LIMIT = 120 if os.environ.get("DOVREL_SANITIZED") else 20
ROUNDS = 50

SEVERAL_LINES = "function f(v)\n    runs_of_f += 1\n    return v\nend\n"
ONE_LINE = "function f(v)\n    return v\nend\n"
START = """\
runs_of_f = 0
runs_of_g = 0
function g()
    runs_of_g += 1
    return 1
end
ada = {name: "Ada", age: 36}
function row()
    runs_of_g += 1
    return ada
end
list = [1, 2, 3]
t = {n: 1}
x = 0
y = 1
"""


def rows(document):
    """Each form of the table as (form, runs with several lines, runs with one line)."""
    section = document.partition(HEADING)[2].partition("\n#")[0]
    for line in section.splitlines():
        cells = [cell.strip() for cell in line.split("|")[1:-1]]
        if len(cells) == 3 and cells[1].isdigit():
            for form in re.findall(r"`([^`]+)`", cells[0]):
                yield form, int(cells[1]), int(cells[2])


def whole(form):
    """The form as statements that can be run over and over."""
    word = form.split()[0]
    if word in ("if", "for"):
        return f"{form}\nend\n"
    if word == "elseif":
        return f"if false\n{form}\nend\n"
    if word == "while":
        return f"{form}\nbreak\nend\n"
    if word == "until":
        return f"repeat\n{form}\n"
    if word == "return":
        return f"function outer()\nnative unused = 1\n{form}\nend\nouter()\n"
    return f"{form}\n"


def places(statements):
    """(place, script, how often the statements run there)."""
    yield "at the top", statements, 1
    yield "in a function", f"function place()\nnative a = 1\n{statements}end\nplace()\n", 1
    yield "in a loop", f"for round = 1, {ROUNDS}\n{statements}end\n", ROUNDS


def counted(program, script, compiled):
    """How often f and g run in the script."""
    with tempfile.TemporaryDirectory(prefix="dovrelscript-") as folder:
        Path(folder, "count.dv").write_text(script + "print(runs_of_f, runs_of_g)\n")
        commands = [[program, "count.dv"]]
        if compiled:
            commands = [
                [program, "--compile", "count.dv", "count.dvbc"],
                [program, "--run-bytecode", "count.dvbc"],
            ]
        for command in commands:
            done = subprocess.run(
                command, cwd=folder, capture_output=True, text=True, timeout=TIME_LIMIT
            )
            if done.returncode:
                raise RuntimeError(done.stderr)
    # Some forms print.
    return tuple(map(int, done.stdout.splitlines()[-1].split()))


def check(program, form, wanted, function):
    """What is wrong about one form, as lines."""
    problems = []
    # An f that is an argument of another one is repeated like any argument.
    nested = re.search(r"\bf\([^)]*\bf\(", form)
    calls_of_f = len(re.findall(r"\bf\(", form))
    for place, statements, times in places(whole(form)):
        for compiled in (False, True):
            try:
                runs_of_f, runs_of_g = counted(program, START + function + statements, compiled)
            except (RuntimeError, subprocess.TimeoutExpired, ValueError) as error:
                problems.append(f"`{form}` {place}: {error}")
                continue
            how = f"`{form}` {place}{', from a bytecode file' if compiled else ''}"
            if runs_of_g != wanted * times:
                problems.append(f"{how}: it runs {runs_of_g / times:g} times, not {wanted}")
            if function == SEVERAL_LINES and not nested and runs_of_f != calls_of_f * times:
                problems.append(f"{how}: f runs {runs_of_f / times:g} times, not {calls_of_f}")
    return problems


def main():
    parser = argparse.ArgumentParser(description="Holds the table of repeated calls.")
    parser.add_argument("--program", required=True, help="the dovrelscript to count with")
    options = parser.parse_args()
    program = os.path.abspath(options.program)
    table = list(rows(DOCUMENT.read_text(encoding="utf-8")))
    if len(table) < 20:
        sys.exit(f"FAILED: only {len(table)} forms found in {DOCUMENT}")
    failed = 0
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        checks = []
        for form, several, one in table:
            checks.append(pool.submit(check, program, form, several, SEVERAL_LINES))
            checks.append(pool.submit(check, program, form, one, ONE_LINE))
        for task in checks:
            if problems := task.result():
                failed += 1
                print(*(f"FAILED {problem}" for problem in problems), sep="\n")
    print(f"{len(checks) - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
