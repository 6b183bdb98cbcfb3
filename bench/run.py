#!/usr/bin/env python3
"""Runs the benchmark programs in dovrelscript, Lua 5.4, LuaJIT's interpreter and CPython 3, and compares
the CPU seconds.

A program is programs/<name>.dv with its twins .lua and .py: the same algorithm, each in the way that
its language is usually written, printing the same. LuaJIT runs without its compiler, and runs the same
twin as Lua. What is reported is user plus system time, the least of several runs. The runs of the
peers alternate, so that a busy machine disturbs them alike.

Two benchmarks are special: "startup" starts an empty program many times, and "parse_50000_lines" has
its programs generated.
"""

import argparse
import datetime
import math
import os
import platform
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from plot import plot

BENCH = Path(__file__).resolve().parent
PROGRAMS = BENCH / "programs"
LANGUAGES = {"dv": "dovrelscript", "lua": "Lua 5.4", "lj": "LuaJIT -joff", "py": "CPython 3"}
PEERS = ("lua", "lj", "py")
TWINS = {"lj": "lua"}  # whose program a peer runs, where it has none of its own
# What a peer cannot run as it is usually written: LuaJIT is Lua 5.1, which has no integer division, and
# no kind of its own for ints.
LEFT_OUT = {"lj": {"int_loops", "json_text", "locals", "shortest_paths"}}
ABSENT = "–"  # stands in the table for what is left out
GENERATED = "parse_50000_lines"
STARTS = {"startup": 100}  # how often one run starts the program; any other is started once

# Ten lines, or as many as the language needs for the same.
BLOCKS = {
    "dv": """\
v{i} = total % 97 + {a}
if v{i} > 50
    total = total + v{i} * 2
else
    total = total + {b}
end
function f{i}(a, b)
    return (a + b) * {c}
end
total = (total + f{i}(v{i}, 3)) % 10007
""",
    "lua": """\
v{i} = total % 97 + {a}
if v{i} > 50 then
    total = total + v{i} * 2
else
    total = total + {b}
end
function f{i}(a, b)
    return (a + b) * {c}
end
total = (total + f{i}(v{i}, 3)) % 10007
""",
    "py": """\
v{i} = total % 97 + {a}
if v{i} > 50:
    total = total + v{i} * 2
else:
    total = total + {b}
# end
def f{i}(a, b):
    return (a + b) * {c}
# end
total = (total + f{i}(v{i}, 3)) % 10007
""",
}


def fail(message):
    sys.exit(f"bench: {message}")


def found(program):
    """Where the program is."""
    return shutil.which(program) or fail(f"{program} is missing")


def generate(language, folder):
    """Writes the program of 50,000 lines and a few, each of which runs once."""
    path = folder / f"{GENERATED}.{language}"
    block = BLOCKS[language]
    with path.open("w") as out:
        out.write("total = 1\n")
        for i in range(5000):
            out.write(block.format(i=i, a=i % 13, b=i % 7, c=i % 5 + 1))
        out.write("print(total)\n")
    return path


def names_of_programs():
    return sorted([path.stem for path in PROGRAMS.glob("*.dv")] + [GENERATED])


def sources(name, folder):
    """The program of each language that has part in this benchmark."""
    languages = [each for each in LANGUAGES if name not in LEFT_OUT.get(each, ())]
    twins = {language: TWINS.get(language, language) for language in languages}
    if name == GENERATED:
        return {language: generate(twin, folder) for language, twin in twins.items()}
    programs = {language: PROGRAMS / f"{name}.{twin}" for language, twin in twins.items()}
    for path in programs.values():
        if not path.is_file():
            fail(f"{path} is missing")
    return programs


def start(command):
    """What the command prints, and the CPU seconds that it took."""
    with tempfile.TemporaryFile() as out:
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            fail(f"{' '.join(map(str, command))} ended with status {process.returncode}")
        out.seek(0)
        return out.read(), usage.ru_utime + usage.ru_stime


def measure(name, commands, runs):
    """The CPU seconds of each language, the least of the runs."""
    best = dict.fromkeys(commands, math.inf)
    printed = {}
    for _ in range(runs):
        for language, command in commands.items():
            seconds = 0.0
            for _ in range(STARTS.get(name, 1)):
                output, more = start(command)
                seconds += more
                if printed.setdefault(language, output) != output:
                    fail(f"{name}.{language} prints something else each time")
            best[language] = min(best[language], seconds)
    for language, output in printed.items():
        if output != printed["dv"]:
            fail(f"{name}: {language} prints {output[:200]!r}, dv {printed['dv'][:200]!r}")
    return best


def geometric_mean(values):
    return math.exp(sum(map(math.log, values)) / len(values))


def ratios(results, peer):
    """How many times the peer's time dovrelscript takes, for each benchmark that the peer runs."""
    return {
        name: best["dv"] / max(best[peer], 1e-6) for name, best in results.items() if peer in best
    }


def shown(value, digits):
    return ABSENT if value is None else f"{value:.{digits}f}"


def table(results, peers):
    """The results as lines of a Markdown table."""
    head = ["benchmark", *(f"{LANGUAGES[language]}, s" for language in ("dv", *peers))]
    head += [f"/ {LANGUAGES[peer]}" for peer in peers]
    against = {peer: ratios(results, peer) for peer in peers}
    rows = []
    for name, best in results.items():
        row = [name, *(shown(best.get(language), 3) for language in ("dv", *peers))]
        rows.append(row + [shown(against[peer].get(name), 2) for peer in peers])
    if peers:
        measured = [against[peer].values() for peer in peers]
        means = [f"**{geometric_mean(each):.2f}**" if each else ABSENT for each in measured]
        rows.append(["**geometric mean**", *[""] * (1 + len(peers)), *means])
    lines = [head, ["---", *["---:"] * (len(head) - 1)], *rows]
    return ["| " + " | ".join(line) + " |" for line in lines]


def conditions(runs, peers):
    """Where and when this is measured, for the reader of the numbers."""
    versions = {
        "lua": lambda: version("lua5.4"),
        "lj": lambda: version("luajit"),
        "py": lambda: f"CPython {platform.python_version()}",
    }
    *first, last = (versions[peer]() for peer in peers)
    return (
        f"The least of {runs} runs, on {datetime.date.today()}, on {os.cpu_count()} cores of "
        f"{processor()}, with {', '.join(first)} and {last}."
    )


def processor():
    """The processor's own name, where the system tells it."""
    try:
        for line in Path("/proc/cpuinfo").read_text().splitlines():
            name, _, value = line.partition(":")
            if name.strip() == "model name":
                return f"{value.strip()} ({platform.machine()})"
    except OSError:
        pass
    return platform.machine()


def version(program):
    told = subprocess.run([program, "-v"], capture_output=True, text=True, check=True).stdout
    return " ".join(told.split()[:2])


def write_results(lines, under):
    """The page with the table; its second paragraph is what `redraw` takes the conditions from."""
    meaning = (
        "CPU seconds, user and system. A ratio below 1 means that dovrelscript is the faster one. "
        f"`-joff` is without the compiler to machine code; {ABSENT} is what this peer cannot run."
    )
    page = ["# Benchmark results", "", meaning, "", under, "", *lines, "", "![](results.svg)", ""]
    (BENCH / "results.md").write_text("\n".join(page))


def draw(rows, mean, names, under):
    (BENCH / "results.svg").write_text(plot(rows, mean, names, under), encoding="utf-8")


def redraw():
    """Draws the table of results.md anew."""
    lines = (BENCH / "results.md").read_text().splitlines()
    peers = []
    rows = {}
    for line in lines:
        cells = [cell.strip(" *") for cell in line.split("|")[1:-1]]
        if not peers:
            peers = [cell.removeprefix("/ ") for cell in cells if cell.startswith("/ ")]
        elif cells and cells[-1][:1].isdigit():
            of_peers = cells[-len(peers) :]
            rows[cells[0]] = [None if cell == ABSENT else float(cell) for cell in of_peers]
    if not rows:
        fail("bench/results.md has no table to draw")
    draw(rows, rows.pop("geometric mean"), peers, lines[4])


def parse_arguments():
    parser = argparse.ArgumentParser(prog="tools/bench", description="Compares CPU times.")
    parser.add_argument("--program", help="the dovrelscript to measure")
    parser.add_argument("--runs", type=int, default=5, help="runs of each program (default: 5)")
    parser.add_argument("--alone", action="store_true", help="leave the peers out")
    parser.add_argument(
        "--generate", metavar="FOLDER", help="measure nothing, write the generated program there"
    )
    parser.add_argument(
        "--redraw", action="store_true", help="measure nothing, draw bench/results.md anew"
    )
    parser.add_argument("names", nargs="*", metavar="NAME", help="only these; default: all")
    options = parser.parse_args()
    if not options.redraw and not options.generate and not options.program:
        parser.error("--program is missing")
    for name in options.names:
        if name not in names_of_programs():
            parser.error(f"no benchmark is called {name}")
    return options


def main():
    options = parse_arguments()
    if options.redraw:
        redraw()
        return
    if options.generate:
        generate("dv", Path(options.generate))
        return
    peers = () if options.alone else PEERS
    commands = {"dv": [os.path.abspath(options.program)]}
    if peers:
        commands |= {"lua": [found("lua5.4")], "lj": [found("luajit"), "-joff"], "py": [sys.executable]}
    results = {}
    with tempfile.TemporaryDirectory(prefix="dovrelscript-bench-") as folder:
        for name in options.names or names_of_programs():
            if sys.stderr.isatty():
                print(f"\r\x1b[K{name}", end="", file=sys.stderr, flush=True)
            programs = sources(name, Path(folder))
            calls = {
                language: [*command, programs[language]]
                for language, command in commands.items()
                if language in programs
            }
            results[name] = measure(name, calls, options.runs)
    if sys.stderr.isatty():
        print("\r\x1b[K", end="", file=sys.stderr)

    lines = table(results, peers)
    print("\n".join(lines))
    # Only a whole run is worth keeping.
    if peers and not options.names:
        under = conditions(options.runs, peers)
        write_results(lines, under)
        against = [ratios(results, peer) for peer in peers]
        rows = {name: [each.get(name) for each in against] for name in results}
        names = [LANGUAGES[peer] for peer in peers]
        draw(rows, [geometric_mean(each.values()) for each in against], names, under)


if __name__ == "__main__":
    main()
