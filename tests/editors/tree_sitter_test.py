#!/usr/bin/env python3
"""Tests the grammar in editors/tree-sitter with a parser that has been generated from it.

    tree_sitter_test.py --view PROGRAM --dovrel PROGRAM

PROGRAM of --view is tests/editors/tree_sitter_view.c, linked with the parser. Tested are
- the trees of test/corpus, in the format of `tree-sitter test`: a tree without names of fields says
  nothing of them;
- the colours of test/highlight, by markers in comments, and that queries/*.scm name what there is;
- that every example and every well-formed script of the tests is read without a mistake.
"""

import argparse
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
GRAMMAR = ROOT / "editors/tree-sitter"

# What `dovrel check` finds in a script that is not well formed: the language says no, or it does not read
# the text at all.
MALFORMED = {
    "E101", "E102", "E103", "E105",  # strings, blocks, lines, brackets
    "E104",  # a break outside of a loop stands in scripts that have other such lines
    "W306", "W307", "W416",  # text that is not read, an end of nothing, a comma with nothing behind
}  # fmt: skip
EXCEPTIONS = {
    "expressions/a_skipped_side_is_not_evaluated.dv": "what is skipped there could not be evaluated",
    "loading/files_with_odd_bytes.files/zero.dv": "a zero byte ends a text for tree-sitter",
}


def normal(tree):
    return re.sub(r"\s+", " ", tree).replace(" )", ")").strip()


def without_fields(tree):
    return re.sub(r"\w+: ", "", tree)


class Test:
    def __init__(self, view, dovrel):
        self.view, self.dovrel, self.problems, self.count = view, dovrel, [], 0

    def run(self, *arguments, **options):
        return subprocess.run(
            [self.view, *arguments], check=True, stdout=subprocess.PIPE, timeout=120, **options
        ).stdout.decode("utf-8", "replace")

    def corpus(self):
        for path in sorted((GRAMMAR / "test/corpus").glob("*.txt")):
            cases = re.split(r"^=+\n(.+)\n=+\n", path.read_text(), flags=re.MULTILINE)[1:]
            for name, case in zip(cases[::2], cases[1::2]):
                text, wanted = re.split(r"^-+\n", case, maxsplit=1, flags=re.MULTILINE)
                wanted = normal(wanted)
                got = normal(self.run("tree", input=text.encode()))
                if ": " not in wanted:
                    got = without_fields(got)
                self.count += 1
                if got != wanted:
                    self.problems.append(f"{path.name}: {name}:\n  {wanted}\nis\n  {got}")

    def highlight(self):
        for path in sorted((GRAMMAR / "test/highlight").glob("*.dv")):
            captures = {}  # the last one counts
            query = GRAMMAR / "queries/highlights.scm"
            found = [row.split("\t") for row in self.run("captures", query, path).splitlines()]
            for _, pattern, name, line, column, text in found:
                for place in range(int(column), int(column) + len(text)):
                    key = int(line), place
                    captures[key] = max(captures.get(key, (-1, "")), (int(pattern), name))
            code = 0
            for number, line in enumerate(path.read_text().splitlines(), 1):
                marker = re.fullmatch(r"@@ *(<-|\^) ([a-z.]+)", line)
                if not marker:
                    code = number
                    continue
                column = 1 if marker[1] == "<-" else line.index("^") + 1
                _, got = captures.get((code, column), (0, "nothing"))
                self.count += 1
                if got != marker[2]:
                    self.problems.append(f"{path.name}:{number}: {got}, not {marker[2]}")

    def queries(self):
        with tempfile.NamedTemporaryFile("w", suffix=".dv") as script:
            script.write("if x\n    f([\n    ])\nend\n")
            script.flush()
            folds = self.run("captures", GRAMMAR / "queries/folds.scm", script.name)
        places = [tuple(row.split("\t")[2:5]) for row in folds.splitlines()]
        self.count += 1
        if places != [("fold", "1", "1"), ("fold", "2", "6"), ("fold", "2", "7")]:
            self.problems.append(f"folds: {places}")

    def scripts(self):
        examples = sorted((ROOT / "examples").rglob("*.dv"))
        tests = sorted((ROOT / "tests/scripts").rglob("*.dv"))
        checked = subprocess.run(
            [self.dovrel, "check", "--format", "json", *tests], stdout=subprocess.PIPE
        ).stdout
        malformed = {
            Path(finding["file"])
            for finding in json.loads(checked)["findings"]
            if finding["code"] in MALFORMED
        }
        excepted = {ROOT / "tests/scripts" / name for name in EXCEPTIONS}
        read = examples + [path for path in tests if path not in malformed | excepted]
        if not examples or len(read) < 0.9 * len(tests):
            self.problems.append(f"{len(read)} scripts are too few to tell")
        self.count += len(read)
        self.problems += self.run("mistakes", *read).splitlines()
        # An exception that is none any more is taken out.
        for path in sorted(excepted):
            if not self.run("mistakes", path):
                self.problems.append(f"{path.name} is no exception")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--view", required=True)
    parser.add_argument("--dovrel", required=True)
    options = parser.parse_args()
    test = Test(options.view, options.dovrel)
    test.corpus()
    test.highlight()
    test.queries()
    test.scripts()
    print(*test.problems, sep="\n")
    print(f"{test.count - len(test.problems)} passed, {len(test.problems)} failed")
    return 1 if test.problems or not test.count else 0


if __name__ == "__main__":
    sys.exit(main())
