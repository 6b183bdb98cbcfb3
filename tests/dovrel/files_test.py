#!/usr/bin/env python3
"""What the commands of dovrel do with files: those that they write, and those of this project.

    files_test.py --program build/dovrel
"""

import argparse
import os
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
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
