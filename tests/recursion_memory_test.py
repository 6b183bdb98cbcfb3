#!/usr/bin/env python3
"""Runs deep recursions, and scripts that run out of memory, and watches what they leave behind.

A script that comes back from a million levels must not keep their memory, and one that catches an
error which says that no memory is left must be able to go on. Both are looked at from outside: the
memory of the process while the script waits for a line, and what it prints under a limit that the
system holds it to.
"""

import argparse
import os
import resource
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path

SKIPPED = 77
MEBIBYTE = 1 << 20


@dataclass(frozen=True)
class Recursion:
    name: str
    script: str
    wanted: str
    reached: int  # in bytes: at least as much is held at the deepest place
    left: int  # and at most as much behind it


# Behind each recursion stands the wait for a line.
WAIT = """
input = io["open"]("/dev/stdin", "r")
input["read"]("*l")
"""

RECURSIONS = [
    Recursion(
        "compiled functions",
        """
function rec(n)
    native r = 0
    if n > 0
        r = rec(n - 1)
    end
    return r + 1
end
print(rec(1000000))
""",
        "1000001\n",
        120 * MEBIBYTE,
        40 * MEBIBYTE,
    ),
    Recursion(
        "an error from the deepest level",
        """
function rec(n)
    native r = n
    if n == 0
        error("deep")
    end
    r = [r, rec(n - 1)]
    return r
end
ok, message = pcall(rec, 500000)
print(ok, message)
""",
        "false deep\n",
        80 * MEBIBYTE,
        40 * MEBIBYTE,
    ),
    Recursion(
        "protected calls in each other, in a loop",
        """
function rec(n)
    native ok = true
    native r = 0
    if n > 0
        ok, r = pcall(rec, n - 1)
    end
    return r + 1
end
for i = 1, 2
    print(rec(1000000))
end
""",
        "1000001\n1000001\n",
        200 * MEBIBYTE,
        120 * MEBIBYTE,
    ),
    Recursion(
        "functions of one line",
        """
function rec(n)
    return n == 0 and 1 or 1 + rec(n - 1)
end
print(rec(300000))
""",
        "300001\n",
        150 * MEBIBYTE,
        120 * MEBIBYTE,
    ),
    Recursion(
        "functions of one line, in a loop",
        """
function rec(n)
    return n == 0 and 1 or 1 + rec(n - 1)
end
for i = 1, 2
    x = rec(300000)
    print(x)
end
""",
        "300001\n300001\n",
        150 * MEBIBYTE,
        120 * MEBIBYTE,
    ),
    Recursion(
        "searches by name from each level",
        """
function rec(n)
    native r = 0
    v = v + 1
    if n > 0
        r = rec(n - 1)
    end
    v = v + 1
    return r
end
function outer(n, v)
    native r = rec(n)
    return v
end
print(outer(300000, 0))
""",
        "600002\n",
        50 * MEBIBYTE,
        40 * MEBIBYTE,
    ),
]


@dataclass(frozen=True)
class Exhaustion:
    name: str
    script: str
    wanted: str


GOES_ON = """
function add(a, b)
    native c = a + b
    return c
end
function goOn()
    native u = {}
    for i = 1, 1000
        u["k" + i] = "value " + i
    end
    print(len(u), u["k1000"], add(1, 2), len(string["rep"]("x", 50000)))
end
"""
WENT_ON = "0 value 1000 3 50000\n"

EXHAUSTIONS = [
    Exhaustion(
        "what has taken the memory stays, goes, and comes again",
        GOES_ON
        + """
function grow()
    t = {}
    native i = 0
    while true
        i = i + 1
        t["key" + i] = string["rep"]("z", 100)
    end
end
ok, message = pcall(grow)
print(ok, string["match"](message, "std::bad_alloc"))
goOn()
for i = 1, 2
    t = {}
    ok, message = pcall(grow)
    print(ok, string["match"](message, "std::bad_alloc"))
    goOn()
end
""",
        ("false std::bad_alloc\n" + WENT_ON) * 3,
    ),
    Exhaustion(
        "an array that grows by small steps",
        GOES_ON
        + """
kept = array()
function grow()
    while true
        push(kept, "text number " + len(kept) + " of a long row of texts")
    end
end
ok, message = pcall(grow)
print(ok, string["match"](message, "std::bad_alloc"))
goOn()
""",
        "false std::bad_alloc\n" + WENT_ON,
    ),
    Exhaustion(
        "levels of a recursion that hold texts",
        GOES_ON
        + """
function rec(n)
    native text = string["rep"]("y", 100000)
    native r = 0
    r = rec(n + 1)
    return r
end
for i = 1, 3
    ok, message = pcall(rec, 1)
    print(ok, string["match"](message, "std::bad_alloc"))
    goOn()
end
function count(n)
    native r = 0
    if n > 0
        r = count(n - 1)
    end
    return r + 1
end
print(count(50000))
""",
        ("false std::bad_alloc\n" + WENT_ON) * 3 + "50001\n",
    ),
]
LIMIT = 300 * MEBIBYTE


def memory_of(pid, field):
    """What the system says of a process, in bytes."""
    for line in Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith(field + ":"):
            return int(line.split()[1]) * 1024
    raise ValueError(f"no {field}")


def check_recursion(program, path, recursion):
    path.write_text(recursion.script + 'print("waits")\n' + WAIT)
    with subprocess.Popen(
        [program, path.name],
        cwd=path.parent,
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    ) as child:
        written = ""
        for line in child.stdout:
            if line == "waits\n":
                break
            written += line
        if written != recursion.wanted:
            yield f"expected\n{recursion.wanted}got\n{written}"
            child.kill()
            return
        reached, left = memory_of(child.pid, "VmHWM"), memory_of(child.pid, "VmRSS")
        child.communicate("\n")
    sizes = f"{reached // MEBIBYTE} MiB, {left // MEBIBYTE} of them left"
    print(f"{recursion.name}: {sizes}", flush=True)
    if child.returncode != 0:
        yield f"status {child.returncode}"
    if reached < recursion.reached:
        yield f"no more than {reached} bytes at the deepest place: the test proves nothing"
    if left > recursion.left:
        yield f"{left} bytes are left"


def check_exhaustion(program, path, exhaustion):
    path.write_text(exhaustion.script)
    done = subprocess.run(
        [program, path.name],
        cwd=path.parent,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (LIMIT, LIMIT)),
    )
    print(f"{exhaustion.name}: status {done.returncode}", flush=True)
    if (done.returncode, done.stdout) != (0, exhaustion.wanted):
        yield f"expected\n{exhaustion.wanted}and status 0, got\n{done.stdout}and {done.returncode}"


def main():
    parser = argparse.ArgumentParser(description="Runs recursions and exhaustions.")
    parser.add_argument("--program", required=True, help="the dovrelscript to test")
    parser.add_argument(
        "--unoptimised",
        action="store_true",
        help="leave the recursions out: their levels take several times as much",
    )
    options = parser.parse_args()
    program = os.path.abspath(options.program)
    if not Path("/proc/self/status").exists() or os.environ.get("DOVREL_SANITIZED"):
        print("left out: the system does not tell, or a sanitizer takes memory of its own")
        return SKIPPED
    failed = False
    with tempfile.TemporaryDirectory(prefix="dovrelscript-") as folder:
        path = Path(folder, "deep.dv")
        recursions = [] if options.unoptimised else RECURSIONS
        for check, cases in (check_recursion, recursions), (check_exhaustion, EXHAUSTIONS):
            for case in cases:
                for complaint in check(program, path, case):
                    print(f"FAILED: {case.name}: {complaint}")
                    failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
