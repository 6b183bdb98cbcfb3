#!/usr/bin/env python3
"""Runs the examples of the documents and compares what they print with what the document says.

An example is a block marked ```dovrelscript whose next block is marked ```text: its standard
output. A block marked ```text error, there or behind the first, is its standard error; without one
the script must succeed and write none. Other blocks are no examples. Each example runs in a
directory of its own. Links to other files, and to headings, must lead somewhere.
"""

import argparse
import difflib
import os
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
TIME_LIMIT = 120 if os.environ.get("DOVREL_SANITIZED") else 20
DOCUMENTS = ("*.md", "docs/*.md", "bench/*.md", "editors/*/README.md")
FENCE = re.compile(r"`{3,}")
CODE = re.compile(r"(?<!`)(`+)(?!`).+?(?<!`)\1(?!`)", re.DOTALL)
LINK = re.compile(r"\[[^\[\]]*\]\(([^)\s]+)\)")


def split(path):
    """The blocks of a document as (line, mark, text), and its text with the blocks left blank."""
    blocks, prose, fence = [], "", None
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(keepends=True), 1):
        if fence is None:
            if opening := FENCE.match(line):
                start, fence, mark, text = number, opening[0], line[opening.end() :].strip(), ""
                line = "\n"
        else:
            if line.strip() == fence:
                blocks.append((start, mark, text))
                fence = None
            else:
                text += line
            line = "\n"
        prose += line
    if fence is not None:
        raise ValueError(f"{path}:{start}: the block is not closed")
    return blocks, prose


def examples(blocks):
    """Each example as (line, script, output, error)."""
    for index, (line, mark, script) in enumerate(blocks):
        expected = {}
        for _, kind, text in blocks[index + 1 :]:
            if kind not in ("text", "text error") or kind in expected:
                break
            expected[kind] = text
        if mark == "dovrelscript" and expected:
            yield line, script, expected.get("text", ""), expected.get("text error", "")


def check_example(program, script, out, err):
    with tempfile.TemporaryDirectory(prefix="dovrelscript-") as folder:
        Path(folder, "example.dv").write_text(script, encoding="utf-8")
        command = [program, "example.dv"]
        quiet = {"stdin": subprocess.DEVNULL, "capture_output": True, "timeout": TIME_LIMIT}
        try:
            done = subprocess.run(command, cwd=folder, **quiet)
        except subprocess.TimeoutExpired:
            return [f"still running after {TIME_LIMIT} s"]
    problems = []
    for label, wanted, got in (("output", out, done.stdout), ("error", err, done.stderr)):
        if wanted.encode() != got:
            texts = wanted.split("\n"), got.decode("utf-8", "backslashreplace").split("\n")
            problems += difflib.unified_diff(*texts, f"expected {label}", f"actual {label}", n=1)
    if done.returncode != (1 if err else 0):
        problems.append(f"exit status {done.returncode}")
    return [problem.rstrip("\n") for problem in problems]


def links(prose):
    """Each link to a file or a heading, as (line, link). Their texts may go over a line's end."""
    text = CODE.sub(lambda code: re.sub(r"[^\n]", " ", code[0]), prose)
    for match in LINK.finditer(text):
        if ":" not in match[1]:
            yield text.count("\n", 0, match.start()) + 1, match[1]


def anchors(path):
    """The names of a document's headings, as links give them."""
    lines = split(path)[1].splitlines()
    titles = [line.lstrip("#").strip().lower() for line in lines if line.startswith("#")]
    return {re.sub(r"[^\w\- ]", "", title).replace(" ", "-") for title in titles}


def check_link(document, link):
    target, _, anchor = link.partition("#")
    path = document.parent / target if target else document
    if not path.exists():
        return [f"no such file: {link}"]
    return [f"no such heading: {link}"] if anchor and anchor not in anchors(path) else []


def main():
    parser = argparse.ArgumentParser(description="Runs the examples of the documents.")
    parser.add_argument("--program", required=True, help="the dovrelscript to run them with")
    parser.add_argument("documents", nargs="*", type=Path, help="default: all of the source tree")
    options = parser.parse_args()
    program = os.path.abspath(options.program)
    documents = options.documents or [
        path for glob in DOCUMENTS for path in sorted(ROOT.glob(glob))
    ]

    checks = []
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for document in documents:
            blocks, prose = split(document)
            tasks = [(line, check_example, program, *rest) for line, *rest in examples(blocks)]
            tasks += [(line, check_link, document, link) for line, link in links(prose)]
            checks += [(f"{document}:{line}", pool.submit(*task)) for line, *task in tasks]
    failed = 0
    for place, check in checks:
        if problems := check.result():
            failed += 1
            print(f"FAILED {place}", *problems, "", sep="\n")
    print(f"{len(checks) - failed} passed, {failed} failed")
    return 0 if checks and not failed else 1


if __name__ == "__main__":
    sys.exit(main())
