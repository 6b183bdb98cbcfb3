#!/usr/bin/env python3
"""Runs the benchmark programs in dovrelscript, Lua 5.4 and CPython 3 and compares the CPU seconds.

A program is programs/<name>.dv with its twins .lua and .py: the same algorithm, each in the way that
its language is usually written, printing the same. What is reported is user plus system time, the
least of several runs. The runs of the three languages alternate, so that a busy machine disturbs
them alike.

Two benchmarks are special: "startup" starts an empty program many times, and "parse_50000_lines" has
its programs generated.
"""

import argparse
import math
import os
import platform
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

BENCH = Path(__file__).resolve().parent
PROGRAMS = BENCH / "programs"
LANGUAGES = {"dv": "dovrelscript", "lua": "Lua 5.4", "py": "CPython 3"}
PEERS = ("lua", "py")
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
    if name == GENERATED:
        return {language: generate(language, folder) for language in LANGUAGES}
    found = {language: PROGRAMS / f"{name}.{language}" for language in LANGUAGES}
    for path in found.values():
        if not path.is_file():
            fail(f"{path} is missing")
    return found


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
    """How many times the peer's time dovrelscript takes, for each benchmark."""
    return {name: best["dv"] / max(best[peer], 1e-6) for name, best in results.items()}


def table(results, peers):
    """The results as lines of a Markdown table."""
    head = ["benchmark", *(f"{LANGUAGES[language]}, s" for language in ("dv", *peers))]
    head += [f"/ {LANGUAGES[peer]}" for peer in peers]
    against = {peer: ratios(results, peer) for peer in peers}
    rows = []
    for name, best in results.items():
        row = [name, *(f"{best[language]:.3f}" for language in ("dv", *peers))]
        rows.append(row + [f"{against[peer][name]:.2f}" for peer in peers])
    if peers:
        means = [f"**{geometric_mean(against[peer].values()):.2f}**" for peer in peers]
        rows.append(["**geometric mean**", *[""] * (1 + len(peers)), *means])
    lines = [head, ["---", *["---:"] * (len(head) - 1)], *rows]
    return ["| " + " | ".join(line) + " |" for line in lines]


def plot(results):
    """The ratios as an SVG: a bar to the right is slower than the peer, one to the left faster."""
    colours = {"lua": "#2b6cb0", "py": "#c05621"}
    against = {peer: ratios(results, peer) for peer in PEERS}
    widest = max(abs(math.log2(r)) for peer in PEERS for r in against[peer].values())
    steps = max(1, math.ceil(widest))
    left, width, row = 170, 560, 34
    unit = width / (2 * steps)
    middle = left + width / 2
    bottom = 60 + row * len(results)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 70}" '
        f'height="{bottom + 40}" font-family="sans-serif" font-size="12">',
        '<rect width="100%" height="100%" fill="white"/>',
        f'<text x="{left}" y="20" font-size="14">CPU time of dovrelscript as a multiple of '
        "each peer's (logarithmic)</text>",
    ]
    for index, peer in enumerate(PEERS):
        x = left + index * 120
        parts.append(f'<rect x="{x}" y="30" width="12" height="12" fill="{colours[peer]}"/>')
        parts.append(f'<text x="{x + 18}" y="41">{LANGUAGES[peer]}</text>')
    for step in range(-steps, steps + 1):
        x = middle + step * unit
        line = "#444" if step == 0 else "#ddd"
        label = f"{2**step}x" if step >= 0 else f"1/{2**-step}x"
        parts.append(f'<line x1="{x:.1f}" y1="52" x2="{x:.1f}" y2="{bottom}" stroke="{line}"/>')
        parts.append(f'<text x="{x:.1f}" y="{bottom + 18}" text-anchor="middle">{label}</text>')
    for number, name in enumerate(results):
        y = 58 + number * row
        parts.append(f'<text x="{left - 10}" y="{y + 18}" text-anchor="end">{name}</text>')
        for index, peer in enumerate(PEERS):
            ratio = against[peer][name]
            length = math.log2(ratio) * unit
            x = middle + min(length, 0)
            top = y + 1 + index * 13
            parts.append(
                f'<rect x="{x:.1f}" y="{top}" width="{abs(length):.1f}" height="12" '
                f'fill="{colours[peer]}"/>'
            )
            anchor, at = ("start", 4) if length >= 0 else ("end", -4)
            parts.append(
                f'<text x="{middle + length + at:.1f}" y="{top + 10}" font-size="10" '
                f'text-anchor="{anchor}">{ratio:.2f}</text>'
            )
    return "\n".join([*parts, "</svg>", ""])


def parse_arguments():
    parser = argparse.ArgumentParser(prog="tools/bench", description="Compares CPU times.")
    parser.add_argument("--program", required=True, help="the dovrelscript to measure")
    parser.add_argument("--runs", type=int, default=5, help="runs of each program (default: 5)")
    parser.add_argument("--alone", action="store_true", help="leave the other languages out")
    parser.add_argument("names", nargs="*", metavar="NAME", help="only these; default: all")
    options = parser.parse_args()
    for name in options.names:
        if name not in names_of_programs():
            parser.error(f"no benchmark is called {name}")
    return options


def main():
    options = parse_arguments()
    peers = () if options.alone else PEERS
    commands = {"dv": os.path.abspath(options.program)}
    if peers:
        commands |= {"lua": shutil.which("lua5.4") or fail("lua5.4 is missing"), "py": sys.executable}
    results = {}
    with tempfile.TemporaryDirectory(prefix="dovrelscript-bench-") as folder:
        for name in options.names or names_of_programs():
            if sys.stderr.isatty():
                print(f"\r\x1b[K{name}", end="", file=sys.stderr, flush=True)
            found = sources(name, Path(folder))
            calls = {language: [commands[language], found[language]] for language in commands}
            results[name] = measure(name, calls, options.runs)
    if sys.stderr.isatty():
        print("\r\x1b[K", end="", file=sys.stderr)

    lines = table(results, peers)
    print("\n".join(lines))
    # Only a whole run is worth keeping.
    if peers and not options.names:
        title = (
            f"CPU seconds (user and system), the least of {options.runs} runs, on {os.cpu_count()} "
            f"cores of {platform.machine()}, with CPython {platform.python_version()}. "
            "A ratio below 1 means that dovrelscript is the faster one."
        )
        text = ["# Benchmark results", "", title, "", *lines, "", "![](results.svg)", ""]
        (BENCH / "results.md").write_text("\n".join(text))
        (BENCH / "results.svg").write_text(plot(results))


if __name__ == "__main__":
    main()
