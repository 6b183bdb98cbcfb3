#!/usr/bin/env python3
"""Runs scripts that are large or make large values, and watches the memory that they take.

Each must print what it should, and its peak may exceed that of an empty script by so many bytes for
each line, key, element or byte. A bound lies about a third above what the program takes: when it
fails, a structure has grown.

Scaled down, for builds that are not optimised, the bounds are left out: the fixed costs count for
more in a small script, and sanitizers take memory of their own.
"""

import argparse
import os
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

SCALE = 50


@dataclass(frozen=True)
class Load:
    name: str
    unit: str
    count: int
    bound: float  # in bytes, for each unit
    script: Iterator[str]
    wanted: str
    seconds: float = float("inf")  # of the processor, at most


def sum_to(count):
    """What the scripts print of the numbers 1 to count: their sum, small enough for an int."""
    return count * (count + 1) // 2 % 1000003


def assignments(count):
    yield "total = 0\n"
    for _ in range(count - 2):
        yield "total += 1\n"
    yield "print(total)\n"


def functions(count):
    """Four lines each, a hundred names."""
    for i in range(count // 4 - 1):
        yield f"function f{i % 100}(a, b)\n    native c = a * b + {i}\n    return c\nend\n"
    yield "x = f99(0, 0)\nprint(x % 100)\n"


def keys(count):
    yield f"""
t = {{}}
t["k0"] = 0
for i = 1, {count - 1}
    t["k" + i] = i
end
count = 0
rest = 0
for key, value in pairs(t)
    count += 1
    rest = (rest + value) % 1000003
end
print(count, rest, t["k{count - 1}"], t["k{count}"])
clear(t)
print(contains(t, "k0"), contains(t, "k{count - 1}"))
t["k1"] = "again"
for key, value in pairs(t)
    print(key, value)
end
"""


def elements(count):
    yield f"""
a = array()
for i = 1, {count}
    a[i] = i
end
rest = 0
for i, value in pairs(a)
    rest = (rest + value) % 1000003
end
print(len(a), rest, a[{count}])
clear(a)
print(len(a))
"""


def text(count):
    yield f"""
text = string["rep"]("0123456789abcdef", {count // 16})
print(len(text), string["sub"](text, -3))
"""


def levels(count):
    """Each asks for a variable of the first one's caller, which must not cost the depth: at a
    nanosecond for each level between, this would take minutes."""
    yield f"""
function rec(n)
    native r = 0
    found = found + 1
    if n > 0
        r = rec(n - 1)
    end
    found = found + 1
    return r
end
function start(n, found)
    native r = rec(n)
    return found
end
print(start({count - 1}, 0))
"""


def loads(scale):
    deep = 400000 // scale
    lines, many, large = 1000000 // scale, 5000000 // scale, (256 << 20) // scale // 16 * 16
    return [
        Load("assignments", "line", lines, 1100, assignments(lines), f"{lines - 2}\n"),
        Load("functions", "line", lines, 1100, functions(lines), "99\n"),
        Load(
            "keys",
            "key",
            many,
            240,
            keys(many),
            f"{many} {sum_to(many - 1)} {many - 1} not\nfalse false\nk1 again\n",
        ),
        Load("elements", "element", many, 90, elements(many), f"{many} {sum_to(many)} {many}\n0\n"),
        Load("levels", "level", deep, 250, levels(deep), f"{2 * deep}\n", 20),
        Load("text", "byte", large, 1.5, text(large), f"{large} def\n"),
    ]


def run(program, folder, script):
    """Runs a script to its end: status, what it wrote, its peak in bytes, and its seconds."""
    path = Path(folder, "load.dv")
    with path.open("w") as file:
        file.writelines(script)
    with tempfile.TemporaryFile() as out:
        child = subprocess.Popen([program, path.name], cwd=folder, stdout=out, stderr=out)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        out.seek(0)
        seconds = usage.ru_utime + usage.ru_stime
        return child.returncode, out.read(4096).decode(), usage.ru_maxrss * 1024, seconds


def main():
    parser = argparse.ArgumentParser(description="Runs large scripts.")
    parser.add_argument("--program", required=True, help="the dovrelscript to test")
    parser.add_argument("--scaled-down", action="store_true", help=f"to one part in {SCALE}")
    parser.add_argument("names", nargs="*", metavar="LOAD", help="only these loads")
    options = parser.parse_args()
    program = os.path.abspath(options.program)
    chosen = loads(SCALE if options.scaled_down else 1)
    if unknown := set(options.names) - {load.name for load in chosen}:
        sys.exit(f"no load is called {', '.join(sorted(unknown))}")

    failed = False
    with tempfile.TemporaryDirectory(prefix="dovrelscript-") as folder:
        empty = run(program, folder, "\n")[2]
        for load in chosen:
            if options.names and load.name not in options.names:
                continue
            start = time.monotonic()
            status, written, peak, worked = run(program, folder, load.script)
            seconds = time.monotonic() - start
            each = max(0, peak - empty) / load.count
            print(
                f"{load.name}: {load.count} of them in {seconds:.1f} s,"
                f" {each:.1f} bytes for each {load.unit}",
                flush=True,
            )
            if (status, written) != (0, load.wanted):
                print(f"FAILED: expected\n{load.wanted}and status 0, got\n{written}and {status}")
                failed = True
            if not options.scaled_down and each > load.bound:
                print(f"FAILED: more than {load.bound} bytes")
                failed = True
            if not options.scaled_down and worked > load.seconds:
                print(f"FAILED: more than {load.seconds} seconds of the processor")
                failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
