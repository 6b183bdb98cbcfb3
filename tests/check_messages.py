#!/usr/bin/env python3
"""Demands that every message of the system is produced by a test.

A message is a string literal of src/ with a letter and a blank in it, or the whole text of an
exception. Where a message is put together at run time its literals count one by one. Each must stand
in the expected output of a script test. Where no script can produce it, UNIT gives the reason, and
it must stand in a unit test; what no test can produce either is in GUARDS, with the reason as well.
"""

import ast
import re
import sys
from pathlib import Path

TESTS = Path(__file__).resolve().parent
SOURCES = TESTS.parent / "src"
LIBRARY = SOURCES / "embedding"  # its messages are for hosts: tests/unit/embedding has them
COMPANION = SOURCES / "dovrel"  # its texts are no messages of the language; tests/dovrel has them

BLOCKS = ("if-group", "while-loop", "repeat-loop", "numeric-for")
UNIT = {
    "a compiled bytecode file has indices in range, and only a damaged one has others": (
        *(f"Inline bytecode {block} index out of range" for block in BLOCKS),
        *(f"Bytecode {table} index out of range" for table in (*BLOCKS, "generic-for")),
        "Invalid bytecode chunk index",
        "Compiled generic-for variable index out of range",
        "Bytecode function-declaration index out of range",
        "Unexpected non-inline opcode",
    ),
    "the front end builds no such record, and no program has an open block": (
        "Invalid if-chain while compiling bytecode",
        "Invalid fast expression node",
        "Invalid fast call argument range",
        "Missing 'end' for block",
    ),
    "the evaluators build no such value and pass no such operator": (
        "Attempted to call an invalid function value",
        "[unconvertible type]",
        "gsub internal error: replacement table missing",
        "Unsupported operation: ",
    ),
    "a global keeps its slot, and a loop of a coroutine its scope": (
        *(f"Internal slot error while {what} variable: " for what in ("setting", "assigning")),
        "numeric for loop scope is missing",
        "generic for loop scope is missing",
    ),
    "the executable closes nothing to its scripts, and sets them no limits": (
        *(
            f"{function}: scripts may not {what} here"
            for function, what in (
                ("io['open']", "use files"),
                ("io['popen']", "run commands"),
                ("loadFile(path)", "use files"),
            )
        ),
        "gsub: pattern '",
        "' takes a matcher that has no limits",
    ),
    "a call is dispatched by the function's id, which has a body of its own": (
        "string['len'](s) requires exactly 1 argument",
        "string['len'](s) expects a string",
    ),
}
GUARDS = {
    "generic for loop requires at least one loop variable": "reading the names has failed before",
    "Invalid bytecode file (truncated data): ": "takes a file that shrinks while it is read",
    "Failed to load script file": "loading always says why it failed",
    "statement budget exhausted": "stands in a build for fuzzing only",
    "Failed to format integer": "the buffer is as long as the longest int",
}

STRING = r'"(?:[^"\\\n]|\\.)*"'
# Comments and character literals are matched too, so that a quote in one of them opens no string.
PIECE = re.compile(rf"//[^\n]*|/\*.*?\*/|'(?:[^'\\\n]|\\.)'|({STRING}(?:\s*{STRING})*)", re.DOTALL)
ERROR = re.compile(rf"runtime_error\(({STRING})\)")


def literals(text):
    """The string literals of a C++ text, as (position, content); adjacent ones are one."""
    for match in PIECE.finditer(text):
        if match[1]:
            parts = re.findall(STRING, match[1])
            yield match.start(), "".join(ast.literal_eval(part) for part in parts)


def messages():
    """Each message with the place where it stands."""
    found = {}
    for path in sorted([*SOURCES.rglob("*.cpp"), *SOURCES.rglob("*.h")]):
        if COMPANION in path.parents:
            continue
        text = path.read_text(encoding="utf-8")
        whole = {ast.literal_eval(match[1]) for match in ERROR.finditer(text)}
        for place, literal in literals(text):
            if literal in whole or (" " in literal and re.search("[A-Za-z]", literal)):
                line = text.count("\n", 0, place) + 1
                found.setdefault(literal, f"{path.relative_to(SOURCES.parent)}:{line}")
    return found


def occurs(message, among, text):
    """`message` stands in `text`, and not only as the beginning of a longer message or word."""
    longer = [other for other in among if other != message and other.startswith(message)]
    ending = r"(?!\w)" if message[-1].isalnum() else ""
    return len(re.findall(re.escape(message) + ending, text)) > sum(map(text.count, longer))


def main():
    found = messages()
    outputs = [path for kind in ("out", "err") for path in TESTS.glob(f"scripts/**/*.{kind}")]
    printed = "\n".join(path.read_text(encoding="utf-8", errors="replace") for path in outputs)
    units = "\n".join(
        literal
        for path in TESTS.glob("unit/**/*.cpp")
        for _, literal in literals(path.read_text(encoding="utf-8"))
    )
    in_units = {message for group in UNIT.values() for message in group}
    problems = []
    for message, place in found.items():
        in_scripts = occurs(message, found, printed)
        if place.startswith(f"{LIBRARY.relative_to(SOURCES.parent)}/"):
            if not in_scripts and not occurs(message, found, units):
                problems.append(f"{place}: no unit test has it: {message!r}")
        elif message in in_units or message in GUARDS:
            if in_scripts:
                problems.append(f"{place}: a script test has it, so it needs no entry: {message!r}")
            elif message in in_units and not occurs(message, found, units):
                problems.append(f"{place}: no unit test has it: {message!r}")
        elif not in_scripts:
            problems.append(f"{place}: no script test has it: {message!r}")
    gone = sorted((in_units | GUARDS.keys()) - found.keys())
    problems += (f"the sources have it no more: {message!r}" for message in gone)
    print(*problems, f"{len(found)} messages, {len(problems)} problems", sep="\n")
    return 0 if found and not problems else 1


if __name__ == "__main__":
    sys.exit(main())
