#!/usr/bin/env python3
"""Tests run_scripts.py with a stand-in for the program, whose scripts are Python."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

RUNNER = Path(__file__).resolve().parent / "run_scripts.py"

PROGRAM = f"""#!{sys.executable}
import shutil, sys
match sys.argv[1:]:
    case ["--compile", script, target]:
        if open(script).read().startswith("refused"):
            sys.exit("not compiled")
        shutil.copy(script, target)
    case ["--run-bytecode", script]:
        exec(open(script).read(), {{"mode": "bytecode"}})
    case [script]:
        exec(open(script).read(), {{"mode": "source"}})
    case arguments:
        print(sys.argv[0], arguments)
"""


class RunnerTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.program = self.root / "program"
        self.program.write_text(PROGRAM)
        self.program.chmod(0o755)
        (self.root / "scripts").mkdir()

    def write(self, **files):
        """Makes files in the area "area"; an _ in a keyword stands for a dot."""
        for key, text in files.items():
            self.write_at("scripts/area/" + key.replace("_", "."), text)

    def write_at(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(text.encode())

    def run_cases(self, *arguments):
        command = [sys.executable, RUNNER, "--program", self.program]
        if "--scripts" not in arguments:
            command += ["--scripts", self.root / "scripts"]
        return subprocess.run([*command, *arguments], capture_output=True, text=True)

    def assert_passed(self, count, *arguments):
        result = self.run_cases(*arguments)
        self.assertEqual(result.stdout + result.stderr, f"{count} passed, 0 failed\n")
        self.assertEqual(result.returncode, 0)

    def assert_failed(self, *expected, arguments=()):
        result = self.run_cases(*arguments)
        for text in expected:
            self.assertIn(text, result.stdout + result.stderr)
        self.assertEqual(result.returncode, 1)

    def test_compares_output_error_and_status(self):
        self.write(
            all_dv="import sys; print('out'); print('err', file=sys.stderr); sys.exit(3)",
            all_out="out\n",
            all_err="err\n",
            all_status="3\n",
        )
        self.assert_passed(1)

    def test_without_expectations_a_script_is_silent_and_succeeds(self):
        self.write(quiet_dv="pass")
        self.assert_passed(1)

    def test_shows_unexpected_output(self):
        self.write(a_dv="print('one'); print('two')", a_out="one\n2\n")
        self.assert_failed("FAILED area/a", "\n one\n-2\n+two\n", "0 passed, 1 failed\n")

    def test_shows_unexpected_error(self):
        self.write(a_dv="import sys; sys.stderr.write('oh')")
        self.assert_failed("actual standard error", "+oh  (no newline at the end)")

    def test_shows_missing_last_newline(self):
        self.write(a_dv="print('one', end='')", a_out="one\n")
        self.assert_failed("+one  (no newline at the end)")

    def test_shows_unexpected_status(self):
        self.write(a_dv="exit(4)")
        self.assert_failed("exit status: expected 0, actual 4")

    def test_names_the_signal_that_killed_the_program(self):
        self.write(a_dv="import os; os.abort()")
        self.assert_failed("exit status: expected 0, actual killed by SIGABRT")

    def test_stops_endless_output(self):
        self.write(a_dv="import os\nwhile True: os.write(1, b'x' * (1 << 20))")
        self.assert_failed("File too large", "0 passed, 1 failed\n")

    def test_shows_control_characters(self):
        self.write(a_dv="print('a\\tb\\r')", a_out="a\n")
        self.assert_failed("\n+a\\tb\\r\n")

    def test_counts_failures_among_passes(self):
        self.write(a_dv="pass", b_dv="exit(1)", c_dv="pass")
        self.assert_failed("FAILED area/b", "2 passed, 1 failed\n")

    def test_no_case_is_a_failure(self):
        self.assert_failed("no case", "0 passed, 0 failed\n")

    def test_missing_program_is_a_failure(self):
        self.write(a_dv="pass")
        self.program.unlink()
        self.assert_failed("No such file", "0 passed, 1 failed\n")

    def test_gives_standard_input(self):
        self.write(a_dv="print(input() * 2)", a_in="ab", a_out="abab\n")
        self.assert_passed(1)

    def test_standard_input_is_empty_by_default(self):
        self.write(a_dv="import sys; print(repr(sys.stdin.read()))", a_out="''\n")
        self.assert_passed(1)

    def test_starts_in_a_directory_with_the_files_of_the_case(self):
        self.write(a_dv="print(open('in/data.txt').read())", a_out="kept\n")
        self.write_at("scripts/area/a.files/in/data.txt", "kept")
        self.write_at("scripts/area/a.files/part.dv", "exit(1)")
        self.assert_passed(1)

    def test_arguments_replace_the_script(self):
        self.write(
            a_dv="",
            a_args="--flag\n\n{script}\n",
            a_out="{program} ['--flag', '', 'a.dv']\n",
        )
        self.assert_passed(1)

    def test_arguments_need_no_script(self):
        self.write(a_args="", a_out="{program} []\n")
        self.assert_passed(1)

    def test_bytecode_mode_compiles_and_runs(self):
        self.write(a_dv="print(mode, input())", a_in="in", a_out="bytecode in\n")
        self.assert_passed(1, "--mode", "bytecode")
        self.assert_failed("+source in")

    def test_bytecode_mode_takes_a_failed_compilation_for_the_result(self):
        self.write(a_dv="refused", a_err="not compiled\n", a_status="1")
        self.assert_passed(1, "--mode", "bytecode")

    def test_bytecode_mode_skips_cases_with_arguments(self):
        self.write(a_dv="pass", b_args="--flag")
        self.assert_passed(1, "--mode", "bytecode")

    def test_a_mode_has_expectations_of_its_own(self):
        self.write(
            a_dv="print(mode); exit(0 if mode == 'source' else 2)",
            a_out="source\n",
            a_bytecode_out="bytecode\n",
            a_bytecode_status="2",
        )
        self.assert_passed(1)
        self.assert_passed(1, "--mode", "bytecode")

    def test_parsed_mode_runs_the_script(self):
        self.write(a_dv="print(mode)", a_out="something else\n")
        self.write_at("scripts/area/a.parsed.out", "source\n")
        self.assert_passed(1, "--mode", "parsed")

    def test_selects_areas_and_cases(self):
        self.write(a_dv="pass", b_dv="exit(1)")
        self.write_at("scripts/areas/c.dv", "exit(1)")
        self.write_at("scripts/other/d.dv", "pass")
        self.assert_passed(2, "area/a", "other")
        self.assert_failed("no case is called area/x", arguments=["area/x"])

    def test_expectations_may_lie_elsewhere(self):
        self.write_at("examples/a.dv", "print('out')")
        self.write_at("expected/a.out", "out\n")
        self.assert_passed(
            1, "--scripts", self.root / "examples", "--expected", self.root / "expected"
        )


if __name__ == "__main__":
    unittest.main()
