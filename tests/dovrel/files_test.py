#!/usr/bin/env python3
"""What the commands of dovrel do with files: those that they write, and those of this project.

    files_test.py --program build/dovrel
"""

import argparse
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests"))
import run_documents  # noqa: E402
PROGRAM = None


def dovrel(*arguments, folder=ROOT, stdin=""):
    return subprocess.run(
        [PROGRAM, *map(str, arguments)],
        cwd=folder,
        input=stdin,
        capture_output=True,
        text=True,
        timeout=120,
        check=False,
    )


class FilesTest(unittest.TestCase):
    def setUp(self):
        self.keeper = tempfile.TemporaryDirectory(prefix="dovrel-")
        self.addCleanup(self.keeper.cleanup)
        self.folder = Path(self.keeper.name)

    def write(self, name, text):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(text.encode())
        return path

    def expect(self, got, status=0, out="", err=""):
        self.assertEqual((got.returncode, got.stdout, got.stderr), (status, out, err))


class Format(FilesTest):
    def test_writes_what_differs(self):
        wrong = self.write("wrong.dv", "a=1\r\n@@ x\n")
        right = self.write("right.dv", "a = 1\n")
        wrong.chmod(0o640)
        before = right.stat()
        self.expect(dovrel("format", "wrong.dv", "right.dv", folder=self.folder))
        self.assertEqual(wrong.read_bytes(), b"a = 1\r\n@@ x\n")
        self.assertEqual(wrong.stat().st_mode & 0o777, 0o640)
        self.assertEqual(right.stat().st_mtime_ns, before.st_mtime_ns)
        self.assertEqual(sorted(os.listdir(self.folder)), ["right.dv", "wrong.dv"])

    def test_follows_a_link(self):
        target = self.write("sub/target.dv", "a=1\n")
        (self.folder / "link.dv").symlink_to(target)
        self.expect(dovrel("format", "link.dv", folder=self.folder))
        self.assertTrue((self.folder / "link.dv").is_symlink())
        self.assertEqual(target.read_text(), "a = 1\n")

    def test_leaves_alone_what_it_cannot_lay_out(self):
        path = self.write("open.dv", 'a="x\n')
        other = self.write("other.dv", "b=2\n")
        self.expect(
            dovrel("format", "open.dv", "other.dv", folder=self.folder),
            status=2,
            err="dovrel format: open.dv: the string that begins in line 1 is not closed\n",
        )
        self.assertEqual(path.read_text(), 'a="x\n')
        self.assertEqual(other.read_text(), "b = 2\n")

    def test_check_and_diff_write_nothing(self):
        path = self.write("wrong.dv", "a=1\n")
        self.assertEqual(dovrel("format", "--check", path).returncode, 1)
        self.assertEqual(dovrel("format", "--diff", path).returncode, 0)
        self.assertEqual(dovrel("format", "--check", "--diff", path).returncode, 1)
        self.assertEqual(path.read_text(), "a=1\n")

    def test_the_scripts_to_read_are_laid_out(self):
        self.expect(dovrel("format", "--check", "examples", "bench"))

    def test_takes_every_script_of_the_tests(self):
        """Each result is compared with its script, and laid out once more, by the command itself."""
        got = dovrel("format", "--check", "tests/scripts")
        for line in got.stderr.splitlines():
            self.assertRegex(line, "the string that begins in line [0-9]+ is not closed$")
        self.assertGreater(len(got.stdout.splitlines()), 100)


def findings(text):
    """What `check` finds in a text."""
    got = dovrel("check", "--format", "json", "-", stdin=text)
    return json.loads(got.stdout)["findings"]


# For each row of the table of surprises in docs/language.md: a script that falls into it, and the
# code that tells of it. The first words of the row are its key.
SURPRISES = {
    "`if n` is false for 0": (
        "W405",
        "function f()\n    native n = 0\n    return n + 0\nend\nif f()\n    print(1)\nend\n",
    ),
    "`2 ^ 3` is": ("W406", "x = 2 ^ 3\nprint(x)\n"),
    "an argument is evaluated four times": (
        "W302",
        "function g()\n    print(1)\n    return 1\nend\n"
        "function f(a)\n    native r = a\n    return r\nend\nx = 1 + f(g())\n",
    ),
    "`n += 0.5` fails": ("W402", "n = 1\nn += 0.5\n"),
    "a `native` of a loop's body": (
        "W202",
        "function k()\n    for i = 1, 2\n        native last = i\n    end\n"
        "    return last\nend\nprint(k())\n",
    ),
    '`toNumber("0") or': (
        "W401",
        'labels = {a: "x"}\nx = toNumber("0") or labels["0"]\nprint(x)\n',
    ),
    "a line `+ 2` does not": ("W304", "x = 1\n+ 2\nprint(x)\n"),
    '`string["sub"](s, 1, j)`': (
        "W403",
        'at = 1\nprint(string["sub"]("=x", 1, at - 1))\n',
    ),
    "a line that was read ends": (
        "W419",
        'file = io["open"]("a.txt")\nline = file["read"]()\nif line == "yes"\n'
        "    print(1)\nend\n",
    ),
    "`größe = 1` is": ("E103", "größe = 1\n"),
    "`print(file)` shows": ("W418", 'file = io["open"]("a.txt")\nprint(file)\n'),
    '`io["open"](path, "rw")`': (
        "W417",
        'file = io["open"]("a.txt", "rw")\nfile["write"]("x")\n',
    ),
    "a function in the body of a `decay function`": (
        "W303",
        "decay function f()\n    function g()\n        return 1\n    end\n    print(g())\nend\n"
        "f()\n",
    ),
    "a caller's variable changes": (
        "W207",
        "function f()\n    x = 1\nend\nfunction g()\n    native x = 2\n    f()\n"
        "    print(x)\nend\ng()\n",
    ),
    "a parameter has the value": (
        "W208",
        'function f(x)\n    print(x)\nend\nif true\n    local x = 1\n    f(2)\nend\n',
    ),
    "a function reads `x` of its caller": (
        "W210",
        "function f()\n    print(x)\nend\nfunction g()\n    native x = 1\n    f()\nend\n"
        "function h()\n    native y = 2\n    f()\n    print(y)\nend\ng()\nh()\n",
    ),
    "`print(f())` prints": ("W407", "function f()\n    return 1, 2\nend\nprint(f())\n"),
    "`a.b` is an unknown token": ("E103", "a = {b: 1}\nprint(a.b)\n"),
    "`x == not and y`": ("W412", "y = 1\nif not and y\n    print(1)\nend\n"),
    "`nil` works like": ("W305", "nil = 1\nprint(nil)\n"),
    "`t[1.0]` is not": ("W408", "t = {}\nprint(t[1.0])\n"),
    "`t[k] = not`": ("W409", 't = {a: 1}\nk = "a"\nt[k] = not\n'),
    "10 comes before 9": ("W410", "for k in pairs({9: 1, 10: 2})\n    print(k)\nend\n"),
    '`a["x"] = 1` parts': ("W411", 'a = [1]\nb = a\na["x"] = 1\nprint(b)\n'),
    '`t["x"] = f()` stores': (
        "W407",
        'function f()\n    return 1, 2\nend\nt = {}\nt["x"] = f()\nprint(t)\n',
    ),
    "`else if x`": ("W305", "x = 1\nif x == 2\n    print(2)\nelse if x\n    print(1)\nend\n"),
    "`if a b() end`": ("E102", "a = 1\nif a print(a) end\n"),
    "`continue` and `exit`": ("W305", "for i = 1, 3\n    print(i)\n    continue\nend\n"),
    "`None`, `null` and": ("W305", "x = 1\nprint(x == None)\n"),
    "a misspelt name is no error": ("W204", "list = [1]\nprint(len(lst))\n"),
    "a typing mistake in a line": ("E103", "function f()\n    return 1 +\nend\nprint(f)\n"),
    "`for i, name in list`": ("W414", 'list = ["a"]\nfor i, name in list\n    print(i, name)\nend\n'),
    "`list[0]` and": ("W413", "list = [1]\nprint(list[0])\n"),
    "`for i = 1, 2147483647`": ("W308", "for i = 1, 2147483647\n    print(i)\nend\n"),
    "`x = 1,` is fine": ("W416", "x = 1,\nprint(x)\n"),
    "an array as the first thing": ("E103", "list = {[1, 2], 3}\nprint(list)\n"),
    "a `for` with a replaced `pairs`": (
        "W415",
        "function pairs(t)\n    return [t]\nend\nfor x in pairs([1])\n    print(x)\nend\n",
    ),
}

# Statements with calls of g, whose runs are counted and compared with what W302 says.
REPEATED = """
    x = 1 + f(g(1)); x = f(g(1)); x = f(1 + f(g(1))); x = -f(g(1)); x = "a" + f(g(1))
    x = 1 + one(g(1)); x = one(g(1)) + f(2); x = f(g(1)) + one(g(1)); x = one(g(1)) + f(g(2))
    x = g(1) + g(1); x = g(1) + f(g(1)); x = 1 + toNumber(g(1)); x = 1 + math["floor"](g(1))
    x = 1 + push([], g(1)); x = 1 + push(l, g(1)); x = 1 + len(toString(g(1)))
    x = "a" + toString(g(1)); x = "a" + toString(g(1)) + 1; x = t[f(g(1))]; t["x"] = 1 + f(g(1))
    t[1 + f(g(1))] = 1; x = f(g(1)) or 3; x = g(1) or 3; x = g(1) == 1 and g(1) == 1
    x = 1 + t["n"] * f(g(1)) + f(g(2)); x += f(g(1)) + 1; print(1 + f(g(1)))
    x = f(g(1)) == f(g(1)); x = [1 + f(g(1))]; x = 1 + f(g(1)) * len([1]); x, y = 1 + f(g(1)), 2
    for i = 1, f(g(1)); end; for i = 1, f(g(1)) + 1; end; for v in one([g(1)]); end
    if g(1); end; if f(g(1)); end; if f(g(1)) == 1; end; if 1 == f(g(1)); end; if not f(g(1)); end
    if f(g(1)) > 0 and f(g(1)) < 9; end; if f(g(1)) + 1 > 0; end; if f(1 + f(g(1))) > 0; end
    if one(g(1)) == 1; end; if one(g(1)) > f(1); end; if contains(t, g(1)); end
    if contains(t, g(1)) and 1 == 1; end; if g(1) > 0 and g(1) < 2; end; while f(g(1)) > 5; end
    if g(1) == 2 or f(g(1)) == 1; end; repeat; until f(g(1)) == 1; if f(g(1)) and t; end
"""
REPEATED_FUNCTIONS = """
function g(n)
    count = count + 1
    native r = n
    return r
end
function f(n)
    native r = n
    return r
end
function one(n)
    return n
end
t = {n: 2}
l = []
x = 1
count = 0
"""


def repeated_statements():
    """The statements of REPEATED, each with the lines of its block."""
    words = re.split(r";\s|\n", REPEATED)
    statement = []
    for word in filter(None, (word.strip() for word in words)):
        statement.append(word)
        first = statement[0].split()[0]
        closed = first not in ("if", "for", "while", "repeat") or (
            len(statement) > 1 and word.split()[0] in ("end", "until")
        )
        if closed:
            yield "\n".join(statement) + "\n"
            statement = []


class Check(FilesTest):
    def test_takes_time_in_proportion_to_a_line(self):
        # Each operand once more for each operator would take minutes.
        count = 6_000 if os.environ.get("DOVREL_SANITIZED") else 150_000
        path = self.write(
            "long.dv",
            "@@ dovrel: allow-file W302, W401, W405\n"
            "function f()\n    native x = 1\n    seen = x\n    return x\nend\n"
            "function g(x)\n    return x\nend\n"
            "a = 1\nb = 2\nx = 1" + " + 1" * count + "\nx = a" + " or b" * count + "\n"
            "if a and g(1)" + " and f()" * count + "\nend\nprint(x, seen)\n",
        )
        self.expect(dovrel("check", path))

    def test_finds_each_surprise_of_the_language(self):
        text = (ROOT / "docs/language.md").read_text()
        table = text[text.index("\n## Surprises") :]
        rows = [line[2:] for line in table.splitlines() if line.startswith("| ")][2:]
        self.assertEqual(len(rows), len(SURPRISES))
        for row in rows:
            found = [key for key in SURPRISES if row.startswith(key)]
            with self.subTest(row=row):
                self.assertEqual(len(found), 1)
                code, script = SURPRISES[found[0]]
                self.assertEqual([one["code"] for one in findings(script) if one["code"] == code], [code])

    def test_says_how_often_a_call_runs(self):
        for statement in repeated_statements():
            with self.subTest(statement=statement):
                script = REPEATED_FUNCTIONS + statement + "print(count)\n"
                ran = dovrel("run", "-", stdin=script)
                self.assertEqual(ran.stderr, "")
                expected = len(re.findall(r"\bg\(", statement))
                for one in findings(script):
                    line = script.splitlines()[one["line"] - 1][one["column"] - 1 :]
                    times = re.search("may run ([0-9]+) times", one["message"])
                    if times and line.startswith("g("):
                        expected += int(times[1]) - 1
                self.assertEqual(int(ran.stdout.split()[-1]), expected)

    def test_json(self):
        path = self.write("a b.dv", "x = lst\n")
        got = dovrel("check", "--format", "json", "a b.dv", folder=self.folder)
        self.assertEqual(got.returncode, 0)
        self.assertEqual(
            json.loads(got.stdout),
            {
                "findings": [
                    {
                        "file": "a b.dv",
                        "line": 1,
                        "column": 5,
                        "endLine": 1,
                        "endColumn": 8,
                        "severity": "warning",
                        "code": "W204",
                        "message": "`lst` is read and never assigned: it is the absent value",
                    }
                ],
                "errors": 0,
                "warnings": 1,
            },
        )
        self.assertEqual(dovrel("check", "--strict", path).returncode, 1)

    def test_sarif(self):
        self.write("a b.dv", "if x then\nend\n")
        got = dovrel("check", "--format", "sarif", "a b.dv", folder=self.folder)
        self.assertEqual(got.returncode, 1)
        log = json.loads(got.stdout)
        self.assertEqual(log["version"], "2.1.0")
        (run,) = log["runs"]
        (result,) = run["results"]
        rules = run["tool"]["driver"]["rules"]
        self.assertEqual(result["ruleId"], "E103")
        self.assertEqual(rules[result["ruleIndex"]]["id"], "E103")
        self.assertEqual(result["level"], "error")
        place = result["locations"][0]["physicalLocation"]
        self.assertEqual(place["artifactLocation"]["uri"], "a%20b.dv")
        self.assertEqual(
            place["region"], {"startLine": 1, "startColumn": 6, "endLine": 1, "endColumn": 10}
        )

    def test_every_code_is_explained_and_tested(self):
        codes = [line.split()[0] for line in dovrel("check", "--codes").stdout.splitlines()]
        self.assertGreater(len(codes), 35)
        printed = "".join(
            path.read_text() for path in (ROOT / "tests/dovrel/cases/check").glob("*.out")
        )
        document = (ROOT / "docs/dovrel.md").read_text()
        for code in codes:
            with self.subTest(code=code):
                self.assertIn(f"| {code} |", document)
                got = dovrel("check", "--explain", code.lower())
                self.assertTrue(got.stdout.startswith(f"{code}: "))
                self.assertGreater(len(got.stdout.splitlines()), 2)
                self.assertIn(f" {code}: ", printed)

    def codes_in(self, *paths):
        """The codes found, as {file: sorted codes}."""
        found = {}
        got = dovrel("check", "--format", "json", *paths)
        for one in json.loads(got.stdout)["findings"]:
            found.setdefault(one["file"], set()).add(one["code"])
        return {path: " ".join(sorted(codes)) for path, codes in found.items()}

    def test_raises_no_false_alarm_on_the_scripts_to_read(self):
        self.assertEqual(
            self.codes_in("examples", "bench"),
            # What is cut out ends in front of what follows it, which is never the first character.
            {"bench/programs/json_text.dv": "W403", "bench/programs/word_count.dv": "W403"},
        )

    def test_raises_no_false_alarm_on_the_documents(self):
        blocks = {}
        for path in [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]:
            for line, script, _, error in run_documents.examples(run_documents.split(path)[0]):
                name = f"{path.stem}_{line}.dv"
                self.write(name, script)
                blocks[name] = (script, error)
        found = {}
        got = dovrel("check", "--format", "json", ".", folder=self.folder)
        for one in json.loads(got.stdout)["findings"]:
            name = one["file"]
            found.setdefault((name.split("_")[0], one["code"]), []).append(blocks[name])
        # An error is found only where the document shows the report of one.
        for (document, code), places in found.items():
            for script, error in places:
                self.assertTrue(code[0] == "W" or error, (document, code, script))
        self.assertEqual(
            {document: " ".join(sorted(c for d, c in found if d == document)) for document, _ in found},
            {
                # Each shows on purpose what the code tells of.
                "README": "W204",
                "errors": "E102 E103 W204",
                "language": "E103 W201 W202 W204 W206 W207 W210 W302 W304 W305 W401 W402 W403 W406 "
                "W407 W408 W410 W411 W412 W416 W417",
                "library": "W403 W410 W417",
                "recipes": "W409",
                "tour": "W201 W204 W206 W208 W210 W302 W406 W410 W411 W412",
                # Its functions are short and keep what they need in globals.
                "coroutines": "W203 W210 W303",
            },
        )

    def test_raises_no_false_error_on_the_tests_of_the_language(self):
        """What runs without a report has no error, apart from lines that fail under `pcall`."""
        got = dovrel("check", "--format", "json", "tests/scripts")
        failing = set()
        for one in json.loads(got.stdout)["findings"]:
            path = ROOT / one["file"]
            if one["severity"] != "error" or path.with_suffix(".status").exists():
                continue
            if "pcall" not in path.read_text():
                failing.add(path.relative_to(ROOT / "tests/scripts").as_posix())
        self.assertEqual(failing, ACCEPTED.keys())


SUM = """function sum(list)
    native total = 0
    for _, number in ipairs(list)
        total += number
    end
    return total
end
"""


class Test(FilesTest):
    """What `dovrel test` makes of files of tests."""

    def run_tests(self, text, *options, name="sum_test.dv"):
        self.write("sum.dv", SUM)
        self.write(name, text)
        got = dovrel("test", *options, folder=self.folder)
        got.stdout = re.sub("[0-9.]+ ms", "N ms", got.stdout)
        return got

    def test_passing_tests(self):
        got = self.run_tests(
            'runFile("sum.dv")\n'
            "function test_sum()\n    expect_equal(sum([1, 2]), 3)\nend\n"
            "function test_nothing()\nend\n"
            "function helper()\n    error(1)\nend\n"
            'test_value = "no function"\n'
        )
        self.expect(
            got,
            out="sum_test.dv\n"
            "  ok      test_sum      N ms\n"
            "  ok      test_nothing  N ms\n"
            "2 passed, 0 failed\n",
        )

    def test_each_has_an_interpreter_of_its_own(self):
        test = "    assert(state == not)\n    state = 1\nend\n"
        got = self.run_tests(f"function test_a()\n{test}function test_b()\n{test}")
        self.assertEqual(got.returncode, 0)

    def test_a_failure_shows_its_place_and_its_output(self):
        got = self.run_tests(
            'runFile("sum.dv")\n'
            "function test_sum()\n"
            '    print("before")\n'
            '    expect_equal(sum([1, 2]), 4, "the sum")\n'
            "end\n"
            "function test_mistake()\n"
            '    native x = "a" * 2\n'
            "end\n"
            "function test_one_line()\n"
            '    return "a" * 2\n'
            "end\n"
            "function test_in_a_callee()\n"
            "    native x = sum(5)\n"
            "end\n"
        )
        self.expect(
            got,
            status=1,
            out="sum_test.dv\n"
            "  FAILED  test_sum          N ms\n"
            '      sum_test.dv:4: expect_equal(sum([1, 2]), 4, "the sum")\n'
            "        the sum\n"
            "        expected: 4\n"
            "        actual:   3\n"
            "      output:\n"
            "        before\n"
            "  FAILED  test_mistake      N ms\n"
            '      sum_test.dv:7: native x = "a" * 2\n'
            "        Unsupported operation '*' between types\n"
            "  FAILED  test_one_line     N ms\n"
            "      sum_test.dv:9: function test_one_line()\n"
            "        Unsupported operation '*' between types\n"
            "  FAILED  test_in_a_callee  N ms\n"
            "      sum.dv:3: for _, number in ipairs(list)\n"
            "        ipairs(container) expects an array or table\n"
            "0 passed, 4 failed\n",
        )

    def test_expectations_show_what_differs(self):
        got = self.run_tests(
            "function test_containers()\n"
            "    expect_equal({a: [1, {b: 2}]}, {a: [1, {b: 3}]})\n"
            "end\n"
            "function test_lengths()\n"
            "    expect_equal([1], [1, not])\n"
            "end\n"
            "function test_texts()\n"
            '    expect_equal("one\\ntwo\\nthree\\n", "one\\n2\\nthree\\n")\n'
            "end\n"
            "function test_near()\n"
            "    expect_near(0.1 + 0.2, 0.3)\n"
            "    expect_near(1.0, 1.1, 0.05)\n"
            "end\n"
        )
        self.expect(
            got,
            status=1,
            out="sum_test.dv\n"
            "  FAILED  test_containers  N ms\n"
            "      sum_test.dv:2: expect_equal({a: [1, {b: 2}]}, {a: [1, {b: 3}]})\n"
            "        expected: {a: [1, {b: 3}]}\n"
            "        actual:   {a: [1, {b: 2}]}\n"
            '        at ["a"][2]["b"]: expected 3, actual 2\n'
            "  FAILED  test_lengths     N ms\n"
            "      sum_test.dv:5: expect_equal([1], [1, not])\n"
            "        expected: [1, not]\n"
            "        actual:   [1]\n"
            "        at [2]: expected not, actual nothing\n"
            "  FAILED  test_texts       N ms\n"
            '      sum_test.dv:8: expect_equal("one\\ntwo\\nthree\\n", "one\\n2\\nthree\\n")\n'
            "        the texts differ\n"
            "        --- expected\n"
            "        +++ actual\n"
            "        @@ -1,3 +1,3 @@\n"
            "         one\n"
            "        -2\n"
            "        +two\n"
            "         three\n"
            "  FAILED  test_near        N ms\n"
            "      sum_test.dv:12: expect_near(1.0, 1.1, 0.05)\n"
            "        expected: 1.100000, give or take 0.050000\n"
            "        actual:   1.000000\n"
            "0 passed, 4 failed\n",
        )

    def test_errors_are_expected(self):
        got = self.run_tests(
            'runFile("sum.dv")\n'
            "function test_right()\n"
            '    native message = expect_error(sum, "expects an array", 5)\n'
            '    assert(string["find"](message, "ipairs") != not)\n'
            '    expect_equal(expect_error(error, not, "bare"), "bare")\n'
            "    expect_error(sum)\n"
            "end\n"
            "function test_none()\n"
            '    expect_error(sum, "x", [1, 2])\n'
            "end\n"
            "function test_another()\n"
            '    expect_error(error, "this", "that")\n'
            "end\n"
        )
        self.expect(
            got,
            status=1,
            out="sum_test.dv\n"
            "  ok      test_right    N ms\n"
            "  FAILED  test_none     N ms\n"
            '      sum_test.dv:9: expect_error(sum, "x", [1, 2])\n'
            "        expected an error, and the call gave 3\n"
            "  FAILED  test_another  N ms\n"
            '      sum_test.dv:12: expect_error(error, "this", "that")\n'
            "        expected an error with: this\n"
            "        actual:                 that\n"
            "1 passed, 2 failed\n",
        )

    def test_tests_that_end_otherwise(self):
        got = self.run_tests(
            "function test_endless()\n    while true; end\nend\n"
            'function test_skipped()\n    pcall(skip, "not today")\nend\n'
            "function test_caught()\n"
            "    ok, message = pcall(expect_equal, 1, 2)\n"
            "    assert(ok == false)\n"
            "end\n"
            "decay function test_coroutine()\n    print(1)\nend\n",
            "--timeout",
            "0.5",
        )
        self.expect(
            got,
            status=1,
            out="sum_test.dv\n"
            "  FAILED  test_endless    N ms\n"
            "        still running after 0 s\n"
            "  skipped test_skipped    not today\n"
            "  ok      test_caught     N ms\n"
            "  ok      test_coroutine  N ms\n"
            "2 passed, 1 failed, 1 skipped\n".replace("after 0 s", "after 0.5 s"),
        )

    def test_a_file_that_cannot_be_loaded(self):
        got = self.run_tests("x = 1\nif x\n")
        self.expect(
            got,
            status=1,
            out="sum_test.dv\n"
            "  FAILED  (loading)  N ms\n"
            "      sum_test.dv:1: if x\n"
            "        Missing 'end' for if block\n"
            "0 passed, 1 failed\n",
        )

    def test_files_and_tests_are_chosen(self):
        for name in ("a_test.dv", "sub/b_test.dv", "sub/other.dv", ".hidden/c_test.dv"):
            self.write(name, "function test_one()\nend\nfunction test_two()\nend\n")
        listed = dovrel("test", "--list", folder=self.folder)
        self.expect(
            listed,
            out="a_test.dv:test_one\na_test.dv:test_two\n"
            "sub/b_test.dv:test_one\nsub/b_test.dv:test_two\n",
        )
        for options, count in (
            (("--filter", "two"), 2),
            (("--filter", "sub/*:test_o*"), 1),
            (("sub",), 2),
            (("sub/other.dv", "a_test.dv"), 4),
        ):
            with self.subTest(options=options):
                got = dovrel("test", *options, folder=self.folder)
                self.assertIn(f"\n{count} passed, 0 failed\n", got.stdout)
        none = dovrel("test", "--filter", "three", folder=self.folder)
        self.expect(none, status=1, err="dovrel test: no tests were found\n")

    def test_output_is_shown_on_demand(self):
        got = self.run_tests('function test_prints()\n    print("hello")\nend\n', "--output")
        self.expect(
            got,
            out="sum_test.dv\nhello\n  ok      test_prints  N ms\n1 passed, 0 failed\n",
        )

    def test_junit(self):
        self.run_tests(
            "function test_fine()\nend\n"
            'function test_wrong()\n    print("<&>")\n    error("a \\"b\\" & c")\nend\n'
            'function test_left_out()\n    skip("later")\nend\n'
            'function test_bytes()\n    error(string["char"](1, 255) + "x")\nend\n',
            "--junit",
            "out.xml",
        )
        suites = ElementTree.parse(self.folder / "out.xml").getroot()
        self.assertEqual(
            [suites.get(name) for name in ("tests", "failures", "errors", "skipped")],
            ["4", "2", "0", "1"],
        )
        (suite,) = suites
        self.assertEqual(suite.get("name"), "sum_test.dv")
        fine, wrong, left_out, odd = suite
        self.assertEqual((fine.get("classname"), fine.get("name")), ("sum_test.dv", "test_fine"))
        self.assertEqual(len(fine), 0)
        self.assertEqual(wrong.find("failure").get("message"), 'a "b" & c')
        self.assertEqual(
            wrong.find("failure").text, 'sum_test.dv:5: error("a \\"b\\" & c")\na "b" & c'
        )
        self.assertEqual(wrong.find("system-out").text, "<&>\n")
        self.assertEqual(left_out.find("skipped").get("message"), "later")
        self.assertTrue(odd.find("failure").get("message").endswith("x"))
        total = sum(float(case.get("time")) for case in suite)
        self.assertAlmostEqual(float(suite.get("time")), total, places=5)


    COVERED = (
        "function sum(list)\n    local total = 0\n    for _, v in ipairs(list)\n"
        "        total += v\n    end\n    if total > 1000\n        return 1000\n    end\n"
        "    return total\nend\nfunction unused(a, b)\n    return a < b\nend\n"
    )

    def test_coverage(self):
        self.write("lib/sum.dv", self.COVERED)
        self.write("lib/other.dv", "x = 1\n")
        got = self.run_tests(
            'runFile("lib/sum.dv")\n'
            'function test_a()\n    runFile("./lib/other.dv")\n'
            '    load("t = 1; t = 2")()\n    expect_equal(sum([1, 2, 3]), 6)\nend\n'
            "function test_b()\n    expect_equal(sum([]), 1)\nend\n",
            "--coverage-html",
            "page.html",
            "--coverage-lcov",
            "tracefile.info",
        )
        self.assertEqual(got.returncode, 1)
        self.assertEqual(
            got.stdout.split("failed\n\n")[1],
            "coverage      lines    run      %\n"
            "lib/other.dv      1      1  100.0\n"
            "lib/sum.dv        9      7   77.8  not run: 7, 12\n"
            "total            10      8   80.0\n",
        )
        self.assertEqual(
            (self.folder / "tracefile.info").read_text(),
            "TN:\nSF:lib/other.dv\nFNF:0\nFNH:0\nDA:1,1\nLF:1\nLH:1\nend_of_record\n"
            "TN:\nSF:lib/sum.dv\nFN:1,sum\nFN:11,unused\nFNDA:2,sum\nFNDA:0,unused\n"
            "FNF:2\nFNH:1\nDA:1,2\nDA:2,2\nDA:3,2\nDA:4,3\nDA:6,2\nDA:7,0\nDA:9,2\n"
            "DA:11,2\nDA:12,0\nLF:9\nLH:7\nend_of_record\n",
        )
        page = (self.folder / "page.html").read_text()
        row = '<tr class="%s"><td>%d</td><td>%s</td><td>%s</td></tr>'
        self.assertIn(row % ("run", 4, "3", "        total += v"), page)
        self.assertIn(row % ("missed", 12, "0", "    return a &lt; b"), page)
        self.assertIn("<tr><td>10</td><td></td><td>end</td></tr>", page)

    def test_too_little_coverage_fails(self):
        self.write("lib/sum.dv", self.COVERED)
        text = 'runFile("lib/sum.dv")\nfunction test_a()\n    sum([1001])\nend\n'
        for least, status in (("60", 0), ("95", 1)):
            with self.subTest(least=least):
                got = self.run_tests(text, "--coverage-least", least)
                self.assertEqual(got.returncode, status)
        self.assertTrue(
            got.stdout.endswith("77.8 % of the lines have run, less than 95 %\n"), got.stdout
        )

    def test_counting_changes_nothing_else(self):
        text = (
            'runFile("lib/sum.dv")\nfunction test_a()\n    expect_equal(sum([2]), 3)\nend\n'
            'function test_b()\n    skip("no")\nend\nfunction test_c()\n    error("x")\nend\n'
        )
        self.write("lib/sum.dv", self.COVERED)
        plain = self.run_tests(text)
        counted = self.run_tests(text, "--coverage")
        self.assertEqual(counted.stdout.split("\n\ncoverage")[0] + "\n", plain.stdout)
        self.assertEqual(counted.returncode, plain.returncode)


class CheckedTest(FilesTest):
    """Tests are checked runs."""

    run_tests = Test.run_tests
    COVERED = Test.COVERED

    SCRIPT = (
        "function third(list)\n    return list[3]\nend\n"
        "function test_a()\n    expect_equal(third([1]), not)\nend\n"
        "function test_b()\n    expect_equal(third([1]), not)\nend\n"
    )

    def test_a_place_is_told_once(self):
        got = self.run_tests(self.SCRIPT)
        self.expect(
            got,
            out="sum_test.dv\n"
            "  ok      test_a  N ms\n"
            "      checked: sum_test.dv:2: there is no element 3 in an array of 1: this is the absent "
            "value\n"
            "          return list[3]\n"
            "  ok      test_b  N ms\n"
            "2 passed, 0 failed\n",
        )

    def test_it_can_be_an_error(self):
        got = self.run_tests(self.SCRIPT, "--checked=error", "--filter", "test_b")
        self.assertEqual(got.returncode, 1)
        self.assertIn("FAILED  test_b  N ms\n", got.stdout)
        self.assertIn("        checked: there is no element 3 in an array of 1", got.stdout)

    def test_it_can_be_left_out(self):
        got = self.run_tests(self.SCRIPT, "--checked=off")
        self.assertNotIn("checked", got.stdout)
        self.assertEqual(got.returncode, 0)

    def test_alone_it_takes_no_path(self):
        self.write("sub/one_test.dv", self.SCRIPT)
        got = dovrel("test", "--checked", "sub", folder=self.folder)
        self.assertIn("sub/one_test.dv:2: there is no element 3", got.stdout)

    def test_it_counts_as_well(self):
        self.write("lib/sum.dv", self.COVERED)
        text = 'runFile("lib/sum.dv")\nfunction test_a()\n    expect_equal(sum([1]), 1)\nend\n'
        reports = [
            self.run_tests(text, "--coverage", f"--checked={mode}").stdout
            for mode in ("off", "warn", "error")
        ]
        self.assertIn("77.8  not run: 7, 12", reports[0])
        self.assertEqual(len(set(reports)), 1)


class Profile(FilesTest):
    SCRIPT = (
        "function add(a, b)\n    return a + b\nend\n"
        "function sum(list)\n    local total = 0\n    for _, v in ipairs(list)\n"
        "        total = add(total, v)\n    end\n    return total\nend\n"
        "decay function beat(n)\n    x = n\n    y = sum([1, 2])\nend\n"
        'beat(args[1])\nfor i = 1, 4\n    z = sum([1, 2, 3])\nend\nprint("done", z)\n'
    )

    def run_profile(self, *options):
        self.write("work.dv", self.SCRIPT)
        return dovrel("profile", *options, "work.dv", "7", folder=self.folder)

    def test_tables(self):
        got = self.run_profile()
        self.assertEqual((got.returncode, got.stdout), (0, "done 6\n"))
        functions, lines = got.stderr.split("\n\n")
        rows = {row.split()[-2]: row.split() for row in functions.splitlines()[1:]}
        self.assertEqual(rows["add"][0], "14")
        self.assertEqual(rows["sum"][0], "5")
        self.assertEqual(rows["(turns)"][0], "3")
        self.assertEqual(rows["(script)"][-1], "work.dv")
        parts = [float(row[-5 if "(turns)" in row else -4]) for row in rows.values()]
        self.assertAlmostEqual(sum(parts), 100, delta=0.3)
        found = re.findall(r"^ *([0-9]+) .* work\.dv:([0-9]+) ", lines, re.MULTILINE)
        counts = {int(line): int(count) for count, line in found}
        self.assertEqual(
            counts,
            {1: 1, 2: 14, 4: 1, 5: 5, 6: 5, 7: 14, 9: 5}
            | {11: 1, 12: 1, 13: 1, 15: 1, 16: 1, 17: 4, 19: 1},
        )

    def test_the_source_with_its_times(self):
        got = self.run_profile("--lines", "0", "--annotate", "--output", "report.txt")
        self.assertEqual((got.returncode, got.stderr), (0, ""))
        report = (self.folder / "report.txt").read_text()
        source = report.split("work.dv\n")[-1].splitlines()
        self.assertEqual(len(source), len(self.SCRIPT.splitlines()))
        self.assertRegex(source[6], r"^ *14 +[0-9.]+ +[0-9.]+ +7          total = add\(total, v\)$")
        self.assertRegex(source[7], r"^ +8      end$")

    def test_a_flame_graph(self):
        # Long enough that no box is too narrow to be drawn, however the processors are shared.
        script = self.SCRIPT.replace("[1, 2, 3]", "list").replace("[1, 2]", "list")
        fill = "list = []\nfor i = 1, 3000\n    list[i] = i\nend\n"
        self.write("long.dv", fill + script)
        dovrel("profile", "--svg", "graph.svg", "long.dv", folder=self.folder)
        root = ElementTree.parse(self.folder / "graph.svg").getroot()
        space = "{http://www.w3.org/2000/svg}"
        boxes = {}
        for group in root.iter(space + "g"):
            title = group.find(space + "title").text
            box = group.find(space + "rect")
            where = tuple(float(box.get(key)) for key in ("x", "width", "y"))
            boxes.setdefault(title.split(",")[0], []).append((where, title))
        # Callers stand below what they call, and are as wide at least.
        (script, _), (add, title) = boxes["(script)"][0], max(boxes["add"])
        self.assertEqual(len(boxes["add"]), 2)
        self.assertGreater(script[2], add[2])
        self.assertEqual(
            sorted(re.search("[0-9]+ calls", title)[0] for _, title in boxes["add"]),
            ["12000 calls", "3000 calls"],
        )
        self.assertEqual(len(boxes["beat (turns)"]), 1)

    def test_an_error_is_reported_with_what_there_is(self):
        got = dovrel("profile", "-e", "x = 1\nfor i = 1, 3\n x = x / 0\nend", folder=self.folder)
        self.assertEqual(got.returncode, 1)
        self.assertTrue(got.stderr.startswith("dovrel: DovrelScript error: Division by zero\n"))
        self.assertRegex(got.stderr, r"\n +1 .* \(text\):3 +x = x / 0\n")

    def test_a_script_that_cannot_be_compiled(self):
        got = dovrel("profile", "-e", "if x", folder=self.folder)
        self.assertEqual(got.returncode, 1)
        self.assertIn("Missing 'end' for if block", got.stderr)
        self.assertNotIn("calls", got.stderr)

    def test_ctrl_c_shows_what_there_is(self):
        self.write(
            "endless.dv",
            'io["open"]("started", "w")["close"]()\nfunction f(n)\n    return n\nend\n'
            "while true\n    x = f(1)\nend\n",
        )
        process = subprocess.Popen(
            [PROGRAM, "profile", "endless.dv"],
            cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
        )
        for _ in range(600):
            if (self.folder / "started").exists():
                break
            time.sleep(0.1)
        time.sleep(0.2)
        process.send_signal(signal.SIGINT)
        _, report = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)
        self.assertRegex(report, r"\n *[0-9]+ +[0-9.]+ +[0-9.]+ +[0-9.]+ +f ")

    def test_a_trace_into_a_file(self):
        got = dovrel("trace", "--output", "trace.txt", "-e", "x = 1", folder=self.folder)
        self.expect(got)
        self.assertEqual((self.folder / "trace.txt").read_text(), "(text):1          x = 1  @@ x = 1\n")


class Completion(FilesTest):
    COMPLETION = ROOT / "src/dovrel/completion"

    @staticmethod
    def options():
        """Each command with its long options, as its help lists them."""
        top = dovrel("--help").stdout
        commands = re.findall(r"^  ([a-z]+) ", top[top.index("Subcommands:") :], re.MULTILINE)
        for command in commands:
            text = dovrel(command, "--help").stdout
            yield command, re.findall(r"^  (?:-[a-z],)?(--?[a-z-]+)", text, re.MULTILINE)

    def test_each_command_and_option_is_known_everywhere(self):
        texts = {
            "bash": (self.COMPLETION / "dovrel.bash").read_text(),
            "zsh": (self.COMPLETION / "_dovrel").read_text(),
            "fish": (self.COMPLETION / "dovrel.fish").read_text(),
            "manual": (ROOT / "docs/man/dovrel.1").read_text().replace("\\-", "-"),
            "document": (ROOT / "docs/dovrel.md").read_text(),
        }
        commands = dict(self.options())
        self.assertEqual(len(commands), 10)
        for where, text in texts.items():
            for command, options in commands.items():
                with self.subTest(where=where, command=command):
                    self.assertRegex(text, rf"\b{command}\b")
                    for option in options:
                        written = re.escape(option)
                        if where == "fish":
                            written = rf"-[lo] {option.lstrip('-')}\b"
                        if where == "document" and option in ("--version", "--codes"):
                            continue
                        self.assertRegex(text, written)

    def complete_in_bash(self, *words):
        """What bash offers for the last word."""
        script = (
            'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); '
            'compopt() { :; }; _dovrel; printf "%s\\n" "${COMPREPLY[@]}"'
        )
        got = subprocess.run(
            ["bash", "-c", script, "bash", str(self.COMPLETION / "dovrel.bash"), *words],
            cwd=self.folder,
            env={**os.environ, "PATH": f"{Path(PROGRAM).parent}:{os.environ['PATH']}"},
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual(got.stderr, "")
        return got.stdout.split()

    def test_bash(self):
        for name in ("one.dv", "other.txt", "folder/two.dv"):
            self.write(name, "")
        for words, offered in (
            (("dovrel", "ch"), ["check"]),
            (("dovrel", "check", "--fo"), ["--format"]),
            (("dovrel", "check", "--format", "s"), ["sarif"]),
            (("dovrel", "check", "--explain", "W30"), [f"W30{i}" for i in range(1, 9)]),
            (("dovrel", "format", "o"), ["one.dv"]),
            (("dovrel", "format", "f"), ["folder"]),
            (("dovrel", "run", "o"), ["one.dv"]),
            (("dovrel", "run", "one.dv", "o"), ["one.dv", "other.txt"]),
            (("dovrel", "doc", "string.re"), ["string.rep"]),
            (("dovrel", "test", "--l"), ["--list"]),
            (("dovrel", "test", "--coverage-l"), ["--coverage-lcov", "--coverage-least"]),
            (("dovrel", "profile", "--s"), ["--svg"]),
            (("dovrel", "trace", "--li"), ["--line"]),
            (("dovrel", "trace", "o"), ["one.dv"]),
        ):
            with self.subTest(words=words):
                self.assertEqual(sorted(self.complete_in_bash(*words)), offered)

    @unittest.skipUnless(shutil.which("fish"), "fish is missing")
    def test_fish(self):
        path = f"{Path(PROGRAM).parent}:{os.environ['PATH']}"
        for line, offered in (
            ("dovrel che", "check"),
            ("dovrel check --stri", "--strict"),
            ("dovrel doc string.su", "string.sub"),
            ("dovrel check --explain W20", "W201"),
        ):
            with self.subTest(line=line):
                got = subprocess.run(
                    ["fish", "-N", "-c", f"source '{self.COMPLETION}/dovrel.fish'; complete -C '{line}'"],
                    cwd=self.folder,
                    env={**os.environ, "PATH": path, "HOME": str(self.folder)},
                    capture_output=True,
                    text=True,
                    check=False,
                )
                self.assertEqual(got.stderr, "")
                self.assertEqual(got.stdout.split()[0], offered)

    @unittest.skipUnless(shutil.which("zsh"), "zsh is missing")
    def test_zsh(self):
        """The file can be read, and completion takes it up for the command."""
        script = (
            f"fpath=({self.COMPLETION} $fpath); autoload -U compinit; compinit -u -D; "
            "print -r -- $_comps[dovrel]; autoload +X _dovrel && print read"
        )
        got = subprocess.run(
            ["zsh", "-f", "-c", script], capture_output=True, text=True, cwd=self.folder, check=False
        )
        self.assertEqual((got.stdout, got.stderr), ("_dovrel\nread\n", ""))


# Scripts that succeed although something in them is an error, with the reason.
ACCEPTED = {
    "control_flow/a_block_closed_by_another_word_runs.dv": "its repeats are left by break",
    "coroutines/return_ends_a_coroutine_and_evaluates_nothing.dv": "nothing evaluates the line",
    "functions/a_bad_header_that_never_runs_is_never_checked.dv": "the line never runs",
    "host/compile_finds_no_error_of_a_running_script.dv": "it is compiled and not run",
    "lines/a_malformed_line_that_never_runs_is_no_error.dv": "the line never runs",
    "lines/return_takes_values_up_to_an_empty_one.dv": "what stands behind two commas is not read",
    "lines/surplus_closers_do_not_count_below_zero.dv": "the line never runs",
    "loading/a_file_that_does_not_compile.files/lib/open_string.dv": "loading it is what fails",
    "loading/a_file_that_does_not_compile.files/open_block.dv": "loading it is what fails",
}


def main():
    global PROGRAM
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    options, rest = parser.parse_known_args()
    PROGRAM = os.path.abspath(options.program)
    os.environ["NO_COLOR"] = "1"
    unittest.main(argv=[__file__, *rest])


if __name__ == "__main__":
    main()
