#!/usr/bin/env python3
"""Tests the highlighting and folding of the editor packages in editors/.

A sample is a script, <name>.dv, with <name>.tokens beside it: a line for each token, in the order
of the script, of four columns with tabs between them.

    line    the number of the line
    text    the token as it is written
    scope   its innermost scope for VS Code, without ".dovrelscript"; "-": none
    group   its syntax group for Vim, without "dovrel"; "-": none

All that is not listed must be blank. An optional <name>.folds lists the blocks as "first last".
An editor whose programs are missing is skipped, with a message. The packages that tokenise as
VS Code does must be in the folder that DOVREL_NODE_MODULES names.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

SAMPLES = Path(__file__).resolve().parent
EDITORS = SAMPLES.parent.parent / "editors"
TIME_LIMIT = 300


class Skipped(Exception):
    """An editor that cannot be tested here, with the reason."""


def read_tokens(path):
    rows = [line.split("\t") for line in path.read_text(encoding="utf-8").splitlines()]
    for number, row in enumerate(rows, 1):
        if len(row) != 4:
            raise ValueError(f"{path}:{number}: four columns are needed")
    return [(int(line), text, scope, group) for line, text, scope, group in rows]


def check_tokens(script, names, column):
    """What differs between the names found, one for each character of each line, and the tokens."""
    lines = script.read_text(encoding="utf-8").splitlines()
    tokens = read_tokens(script.with_suffix(".tokens"))
    problems = []
    for number, line in enumerate(lines, 1):
        place = 0
        for _, text, *wanted in (token for token in tokens if token[0] == number):
            start = line.find(text, place)
            if start < 0 or line[place:start].strip():
                problems.append(f"{script.name}:{number}: '{text}' is not the next token")
                break
            place = start + len(text)
            got = sorted(set(names[number - 1][start:place]))
            if got != [wanted[column]]:
                message = f"expected {wanted[column]}, actual {', '.join(got)}"
                problems.append(f"{script.name}:{number}: '{text}': {message}")
        if line[place:].strip():
            problems.append(f"{script.name}:{number}: '{line[place:]}' is not listed")
    return problems


def check_folds(script, got):
    path = script.with_suffix(".folds")
    if not path.is_file():
        return []
    wanted = sorted(tuple(map(int, line.split())) for line in path.read_text().splitlines())
    return [] if wanted == sorted(got) else [f"{script.name}: folds {sorted(got)}, not {wanted}"]


def marker_folds(script):
    """The blocks that the markers of the VS Code package find."""
    configuration = json.loads((EDITORS / "vscode/language-configuration.json").read_text())
    markers = configuration["folding"]["markers"]
    folds, opened = [], []
    for number, line in enumerate(script.read_text(encoding="utf-8").splitlines(), 1):
        if re.search(markers["start"], line):
            opened.append(number)
        elif re.search(markers["end"], line) and opened:
            folds.append((opened.pop(), number))
    return folds


def test_vscode(scripts):
    modules = os.environ.get("DOVREL_NODE_MODULES")
    if not modules or not shutil.which("node"):
        raise Skipped("node or its modules are missing")
    grammar = EDITORS / "vscode/syntaxes/dovrelscript.tmLanguage.json"
    output = subprocess.run(
        ["node", SAMPLES / "textmate_scopes.js", grammar, *scripts],
        env={**os.environ, "NODE_PATH": modules}, stdout=subprocess.PIPE, check=True,
        timeout=TIME_LIMIT,
    ).stdout  # fmt: skip
    problems = []
    for script, found in zip(scripts, json.loads(output).values()):
        names = []
        for tokens in found:
            names.append([])
            for start, end, scope in tokens:
                scope = "-" if scope == "source.dovrelscript" else scope
                names[-1] += [scope.removesuffix(".dovrelscript")] * (end - start)
        problems += check_tokens(script, names, 0)
        problems += check_folds(script, marker_folds(script))
    return problems


def vim_view(script, folder):
    result = Path(folder, "result.json")
    command = ["vim", "-N", "-u", "NONE", "-i", "NONE", "-n", "-es"]
    command += ["--cmd", f"set runtimepath^={EDITORS / 'vim'}", "-S", SAMPLES / "vim_groups.vim"]
    subprocess.run(
        [*command, script], env={**os.environ, "RESULT": str(result), "LC_ALL": "C.UTF-8"},
        stdin=subprocess.DEVNULL, timeout=TIME_LIMIT,
    )  # fmt: skip
    return json.loads(result.read_text(encoding="utf-8"))


def test_vim(scripts):
    if not shutil.which("vim"):
        raise Skipped("vim is missing")
    features = subprocess.run(["vim", "--version"], capture_output=True, text=True).stdout
    if "+syntax" not in features or "+eval" not in features:
        raise Skipped("this vim knows no syntax highlighting")
    problems = []
    for script in scripts:
        with tempfile.TemporaryDirectory(prefix="dovrelscript-") as folder:
            view = vim_view(script, folder)
        if view["filetype"] != "dovrelscript":
            problems.append(f"{script.name}: the file type is '{view['filetype']}'")
        names = []
        lines = script.read_text(encoding="utf-8").splitlines()
        for line, groups in zip(lines, view["groups"]):
            starts = [len(line[:index].encode()) for index in range(len(line))]
            names.append([groups[start].removeprefix("dovrel") or "-" for start in starts])
        problems += check_tokens(script, names, 1)
        problems += check_folds(script, [tuple(fold) for fold in view["folds"]])
    return problems


def main():
    scripts = sorted(SAMPLES.glob("*.dv"))
    status = 0 if scripts else 1
    for name, test in (("VS Code", test_vscode), ("Vim", test_vim)):
        try:
            problems = test(scripts)
        except Skipped as reason:
            print(f"{name}: skipped: {reason}")
            continue
        print(*problems, f"{name}: {len(scripts)} samples, {len(problems)} problems", sep="\n")
        status = status or int(bool(problems))
    return status


if __name__ == "__main__":
    sys.exit(main())
