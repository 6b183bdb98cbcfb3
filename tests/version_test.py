#!/usr/bin/env python3
"""Holds that everything names the one version, which stands in CMakeLists.txt."""

import argparse
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
VERSION = r"(\d+\.\d+\.\d+)"
# Each place: its file, and a pattern whose group is the version, wherever it matches.
PLACES = (
    ("docs/man/dovrelscript.1", rf'^\.TH DOVRELSCRIPT 1 \S+ "dovrelscript {VERSION}"'),
    ("packaging/debian/changelog", rf"\Adovrelscript \({VERSION}\)"),
    ("editors/vscode/package.json", rf'^\s*"version": "{VERSION}"'),
    ("editors/vscode/README.md", rf"dovrelscript-{VERSION}"),
    ("editors/emacs/dovrelscript-mode.el", rf"^;; Version: {VERSION}$"),
)
NEWEST_CHANGES = re.compile(rf"^## {VERSION}, (\d{{4}}-\d\d-\d\d)$", re.MULTILINE)


def read(path):
    return (ROOT / path).read_text(encoding="utf-8")


def seen_by_scripts(program):
    """The first two parts of the version, as a script sees them."""
    with tempfile.TemporaryDirectory(prefix="dovrelscript-") as folder:
        script = Path(folder, "version.dv")
        script.write_text('print(string["format"]("%.1f", DOVREL_VERSION))\n')
        return subprocess.run(
            [program, script], capture_output=True, text=True, check=True
        ).stdout.strip()


def main():
    parser = argparse.ArgumentParser(description="Compares the versions that files name.")
    parser.add_argument("--program", required=True, help="the dovrelscript to ask")
    program = os.path.abspath(parser.parse_args().program)

    version = re.search(rf"^\s+VERSION {VERSION}$", read("CMakeLists.txt"), re.MULTILINE)[1]
    problems = []

    def expect(place, wanted, found):
        if found != wanted:
            problems.append(f"FAILED {place}: expected {wanted}, found {found or 'none'}")

    for path, pattern in PLACES:
        found = re.findall(pattern, read(path), re.MULTILINE)
        expect(path, version, ", ".join(sorted(set(found))))
    newest = NEWEST_CHANGES.search(read("CHANGELOG.md"))
    expect("CHANGELOG.md", version, newest and newest[1])
    expect("DOVREL_VERSION", version.rpartition(".")[0], seen_by_scripts(program))
    # The manual page carries the date of its version.
    if newest:
        dated = re.search(r"^\.TH \S+ 1 (\S+)", read("docs/man/dovrelscript.1"), re.MULTILINE)
        expect("the date of the manual page", newest[2], dated and dated[1])

    print(*problems, sep="\n", end="\n" if problems else "")
    print(f"version {version}: {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
