#!/usr/bin/env python3
"""The prompt of dovrel at a pseudo-terminal: keys are sent, and a small screen shows what comes.

    prompt_test.py --program build/dovrel
"""

import argparse
import codecs
import faulthandler
import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import tempfile
import termios
import time
import unittest
from pathlib import Path

PROGRAM = None
TIME_LIMIT = 60 if os.environ.get("DOVREL_SANITIZED") else 15

UP, DOWN, RIGHT, LEFT = "\x1b[A", "\x1b[B", "\x1b[C", "\x1b[D"
START, END, CANCEL, LEAVE, TAB, SEARCH = "\x01", "\x05", "\x03", "\x04", "\t", "\x12"
PASTE, PASTED = "\x1b[200~", "\x1b[201~"


class Screen:
    """What a terminal of the kind xterm shows, as far as a line editor uses it."""

    CONTROL = re.compile(r"\x1b\[([?0-9;]*)([A-Za-z@])")

    def __init__(self, columns):
        self.columns = columns
        self.rows = [[]]
        self.row = self.column = 0
        self.begun = self.ended = 0  # lines that the editor has read, by its marks for pasting

    def feed(self, text):
        """Takes what it can; gives back the beginning of a sequence that is not whole."""
        at = 0
        while at < len(text):
            c = text[at]
            if c == "\x1b":
                match = self.CONTROL.match(text, at)
                if match is None:
                    return text[at:]
                self.control(match[1], match[2])
                at = match.end()
                continue
            self.take(c)
            at += 1
        return ""

    def take(self, c):
        if c == "\r":
            self.column = 0
        elif c == "\n":
            self.move_row(self.row + 1)
        elif c == "\b":
            self.column = max(0, min(self.column, self.columns - 1) - 1)
        elif c != "\a":
            # A full row is left only when something follows.
            if self.column == self.columns:
                self.column = 0
                self.move_row(self.row + 1)
            self.put(c)
            self.column += 1

    def move_row(self, row):
        self.row = max(0, row)
        while len(self.rows) <= self.row:
            self.rows.append([])

    def put(self, c):
        row = self.rows[self.row]
        row += " " * (self.column + 1 - len(row))
        row[self.column] = c

    def control(self, numbers, letter):
        count = int(numbers) if numbers.isdigit() else 1
        row = self.rows[self.row]
        if numbers == "?2004":
            self.begun += letter == "h"
            self.ended += letter == "l"
        if letter == "A":
            self.move_row(self.row - count)
        elif letter == "B":
            self.move_row(self.row + count)
        elif letter == "C":
            self.column = min(self.columns - 1, self.column + count)
        elif letter == "D":
            self.column = max(0, self.column - count)
        elif letter == "G":
            self.column = count - 1
        elif letter == "K":
            del row[self.column :]
        elif letter == "J":
            del row[self.column :]
            del self.rows[self.row + 1 :]
        elif letter == "@":
            row[self.column : self.column] = " " * count
            del row[self.columns :]
        elif letter == "P":
            del row[self.column : self.column + count]
        elif letter not in "mhl":
            raise AssertionError(f"the screen does not know {numbers}{letter}")

    def text(self):
        return "\n".join("".join(row).rstrip() for row in self.rows).rstrip()


class Terminal:
    """A prompt at a terminal of its own."""

    def __init__(self, folder, columns=80, **environment):
        self.screen = Screen(columns)
        self.decoder = codecs.getincrementaldecoder("utf-8")()
        self.rest = ""
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
            os.chdir(folder)
            variables = {
                **os.environ,
                "TERM": "xterm",
                "NO_COLOR": "1",
                "HOME": str(folder),
                "DOVREL_HISTORY": str(Path(folder) / "history"),
                # The library of the editing line does not free the names of its functions.
                "ASAN_OPTIONS": "detect_leaks=0",
                **environment,
            }
            os.execve(PROGRAM, [PROGRAM, "repl"], variables)

    def send(self, keys):
        os.write(self.terminal, keys.encode())

    def read(self, seconds):
        """What comes within a time; false at the end of the program."""
        ready, _, _ = select.select([self.terminal], [], [], seconds)
        if not ready:
            return True
        try:
            data = os.read(self.terminal, 65536)
        except OSError:
            return False
        self.rest = self.screen.feed(self.rest + self.decoder.decode(data))
        return bool(data)

    def wait(self, wanted):
        """Waits until the screen ends with `wanted`, and gives all of it."""
        deadline = time.monotonic() + TIME_LIMIT
        while not self.screen.text().endswith(wanted):
            if time.monotonic() > deadline or not self.read(0.1):
                raise AssertionError(f"{wanted!r} is not the end of\n{self.screen.text()}")
        # Nothing else follows.
        self.read(0.05)
        if not self.screen.text().endswith(wanted):
            return self.wait(wanted)
        return self.screen.text()

    def wait_until(self, condition):
        deadline = time.monotonic() + TIME_LIMIT
        while not condition():
            if time.monotonic() > deadline or not self.read(0.1):
                raise AssertionError(f"nothing more comes behind\n{self.screen.text()}")

    def enter(self, keys):
        """Sends keys and a line end, and waits for the prompt behind; gives the screen."""
        wanted = self.screen.begun + keys.count("\r") + 1
        self.send(keys + "\r")
        self.wait_until(lambda: self.screen.begun >= wanted)
        self.wait_until(lambda: self.screen.text().endswith(("\ndv>", "\n..>")))
        return self.screen.text()

    def resize(self, columns):
        self.screen.columns = columns
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))

    def leave(self):
        """The exit status, once the program has ended."""
        deadline = time.monotonic() + TIME_LIMIT
        ended, status = os.waitpid(self.process, os.WNOHANG)
        while not ended:
            # What is not read could keep it from ending.
            if not self.read(0.1):
                time.sleep(0.01)
            ended, status = os.waitpid(self.process, os.WNOHANG)
            if not ended and time.monotonic() > deadline:
                self.kill()
                raise AssertionError(f"it does not end behind\n{self.screen.text()}")
        os.close(self.terminal)
        return os.waitstatus_to_exitcode(status)

    def kill(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        os.close(self.terminal)


class PromptTest(unittest.TestCase):
    def setUp(self):
        self.keeper = tempfile.TemporaryDirectory(prefix="dovrel-")
        self.addCleanup(self.keeper.cleanup)
        self.folder = Path(self.keeper.name)

    def start(self, **options):
        terminal = Terminal(self.folder, **options)
        terminal.wait("dv>")
        return terminal

    def expect(self, terminal, *steps):
        """Each step is what is sent, and the lines that must then stand above the next prompt."""
        for keys, shown in steps:
            text = terminal.enter(keys)
            self.assertTrue(text.endswith(shown + "\ndv>"), f"{shown!r} is not the end of\n{text}")

    def end(self, terminal):
        terminal.send(LEAVE)
        self.assertEqual(terminal.leave(), 0)


class Values(PromptTest):
    def test_values_of_expressions_are_shown(self):
        terminal = self.start()
        self.expect(
            terminal,
            ("x = 20", "dv> x = 20"),
            ("x * 2", "dv> x * 2\n40"),
            ('"te" + "xt"', '\n"text"'),
            ('[1, 2.5, "a", {b: not}]', '\n[1, 2.500000, "a", {b: not}]'),
            ("nobody", "\nnot"),
            ("print(1)", "dv> print(1)\n1"),
            ("push([], 1); x", "\n20"),
            ("x; y = 1", "dv> x; y = 1"),
            ("x == 20", "\ntrue"),
        )
        self.end(terminal)

    def test_blocks_go_on_until_they_are_closed(self):
        terminal = self.start()
        for line in ("function double(n)", "if n", "return n * 2", "end"):
            terminal.enter(line)
        self.expect(terminal, ("end", "..> end"), ("double(21)", "\n42"))
        terminal.enter("total = (1 +")
        self.expect(terminal, ("2)", "..> 2)"), ("total", "\n3"))
        terminal.enter('"two')
        self.expect(terminal, ('lines"', '\n"two lines"'))
        self.end(terminal)

    def test_an_error_does_not_end_it(self):
        terminal = self.start()
        self.expect(
            terminal,
            ("x = 5", "dv> x = 5"),
            (
                'error("no luck")',
                "\nerror: no luck\n  at line 1, near token 'error'\n  error(\"no luck\")\n  ^~~~~",
            ),
            (
                "1 +",
                "\nerror: Unexpected end of expression\n  at line 1, near token 'EOF'\n  1 +\n     ^",
            ),
            ("x", "\n5"),
        )
        self.end(terminal)

    def test_commands(self):
        (self.folder / "script.dv").write_text('loaded = "yes"\nprint("running")\n')
        (self.folder / "broken.dv").write_text('x = 1\nerror("in the file")\n')
        terminal = self.start(columns=60)
        self.expect(
            terminal,
            (":load script.dv", "\nrunning"),
            ("loaded", '\n"yes"'),
            (
                ":load broken.dv",
                "\nerror: in the file\n  at broken.dv:2, near token 'error'\n"
                '  error("in the file")\n  ^~~~~',
            ),
            (":load missing.dv", "\nerror: failed to open file: missing.dv"),
            (":type 1.5", "\na float"),
            (":type [1, 2]", "\nan array of 2 elements"),
            (":type loaded", "\na string of 3 bytes"),
            (":names", '\nloaded = "yes"\nx = 1'),
            (":reset", "dv> :reset"),
            ("loaded", "\nnot"),
            (":help strig.len", '\nnothing is called strig.len; did you mean string["len"]?'),
            (":fly", "\nerror: :fly is no command, or needs more; :help lists them"),
        )
        self.assertIn("gives the milliseconds since", terminal.enter(":help getTimeMs"))
        self.assertRegex(terminal.enter(":time 1 + 1"), r"dv> :time 1 \+ 1\n2\n[0-9.]+ ms\ndv>$")
        terminal.send(":quit\r")
        self.assertEqual(terminal.leave(), 0)


class Editing(PromptTest):
    def test_keys_edit_the_line(self):
        terminal = self.start()
        self.expect(
            terminal,
            ("bc" + START + '"a' + END + 'd"', '\n"abcd"'),
            ('"ac"' + LEFT + LEFT + "b", '\n"abc"'),
            ('"abxx\x7f\x7fc"', '\n"abc"'),
            ('"äö"' + LEFT + LEFT + "ü", '\n"äüö"'),
            ('"gone" + "kept"' + START + "\x1b[3~" * 9, '\n"kept"'),
        )
        self.end(terminal)

    def test_history_is_kept_between_runs(self):
        terminal = self.start()
        terminal.enter("function f()")
        terminal.enter("return 7  @@ seven")
        self.expect(terminal, ("end", "..> end"), ("a = 1", "dv> a = 1"), ("a + 1", "\n2"))
        self.expect(terminal, (UP + UP + DOWN, "dv> a + 1\n2"))
        self.end(terminal)
        self.assertEqual(
            (self.folder / "history").read_text(), "function f(); return 7; end\na = 1\na + 1\n"
        )

        terminal = self.start()
        self.expect(
            terminal,
            (UP + UP + UP, "dv> function f(); return 7; end"),
            (SEARCH + "a = " + "\r" + "a", "\n1"),
            ("f()", "\n7"),
        )
        self.end(terminal)

    def test_tab_completes(self):
        terminal = self.start()
        self.expect(terminal, ("prices = {apple: 3, pear: 4}", "dv> prices = {apple: 3, pear: 4}"))
        self.expect(terminal, ("pric" + TAB + '["app' + TAB, "\n3"))
        self.expect(terminal, ('string["upp' + TAB + '("a")', '\n"A"'))
        self.expect(terminal, ('word = "x"', 'dv> word = "x"'), ('word["rep' + TAB + "(3)", '\n"xxx"'))
        terminal.send("to" + TAB)
        shown = terminal.wait("dv> to")
        self.assertIn("toNumber  toString  tonumber  tostring\ndv> to", shown)
        self.expect(terminal, ("N" + TAB + '("5")', "\n5"))
        self.expect(terminal, (":ty" + TAB + " 1", "\nan int"))
        self.expect(terminal, (":help utf8[" + TAB + "le" + TAB, "4 5"))
        terminal.enter("if true")
        terminal.enter(TAB + "print(1)")
        self.assertTrue(terminal.enter("end").endswith("..>     print(1)\n..> end\n1\ndv>"))
        self.end(terminal)

    def test_a_narrow_window(self):
        terminal = self.start(columns=20)
        line = 'word = "abcdefghijklmnopqrstuvwxyz"'
        terminal.send(line)
        self.assertIn('dv> word = "abcdefgh\nijklmnopqrstuvwxyz"', terminal.wait('wxyz"'))
        # Into the middle of the first row, and back to the end.
        terminal.send(START + RIGHT * 8 + "AB" + END + " + word")
        shown = terminal.wait('" + word')
        self.assertIn('dv> word = "ABabcdef\nghijklmnopqrstuvwxyz\n" + word', shown)
        terminal.send(START + "word = \"\"; ")
        terminal.wait('" + word')
        terminal.enter("")
        self.assertIn('"ABabcdefghijklmnopq\nrstuvwxyz"\ndv>', terminal.enter("word"))
        self.end(terminal)

    def test_the_window_changes(self):
        terminal = self.start(columns=40)
        terminal.send('"abcdefghijklmnopqrstuvwxyz')
        terminal.wait("wxyz")
        terminal.resize(60)
        terminal.read(0.3)
        shown = terminal.enter("0123456789" + LEFT * 10 + "-" + END + '"')
        self.assertIn('\n"abcdefghijklmnopqrstuvwxyz-0123456789"\ndv>', shown)
        self.end(terminal)


class Pasting(PromptTest):
    def test_a_function_of_several_lines(self):
        terminal = self.start()
        text = "function f(a)\n\tif a\n\t\treturn a * 2\n\tend\n\n\treturn 0\nend\nf(21)\nf("
        terminal.send(PASTE + text + PASTED)
        shown = terminal.wait("\ndv> f(")
        self.assertIn("..>     if a\n..>         return a * 2\n", shown)
        self.assertIn("\ndv> f(21)\n42\n", shown)
        self.expect(terminal, ("4)", "dv> f(4)\n8"))
        self.expect(terminal, (UP + UP, "dv> f(21)\n42"))
        self.end(terminal)

    def test_one_line_can_be_edited_before_it_runs(self):
        terminal = self.start()
        terminal.send(PASTE + "1 +\t1" + PASTED)
        terminal.wait("dv> 1 +    1")
        self.expect(terminal, ("1", "\n12"))
        self.end(terminal)

    def test_without_marks(self):
        """A terminal that does not mark what is pasted."""
        terminal = self.start()
        terminal.send("function f(a)\rreturn a + 1\rend\rf(1)\r")
        terminal.wait("\n2\ndv>")
        self.end(terminal)


class Interrupting(PromptTest):
    def interrupt(self, terminal, keys):
        """A line that runs until Ctrl-C comes."""
        wanted = terminal.screen.ended + 1
        terminal.send(keys + "\r")
        terminal.wait_until(lambda: terminal.screen.ended >= wanted)
        started = time.monotonic()
        while time.monotonic() < started + 0.3:
            terminal.read(0.1)
        self.assertTrue(terminal.screen.text().endswith(keys), "it still runs")
        terminal.send(CANCEL)
        terminal.wait("interrupted\ndv>")

    def test_an_endless_loop(self):
        terminal = self.start()
        self.expect(terminal, ("n = 0", "dv> n = 0"))
        self.interrupt(terminal, "while true; end")
        self.interrupt(terminal, "while true; n += 1; end")
        self.interrupt(terminal, "repeat; until false")
        self.interrupt(terminal, "for i = 1, 2147483647; end")
        self.interrupt(terminal, "for i = 1, 2147483647; x = i * 2.5; end")
        self.expect(terminal, ("n > 0", "\ntrue"), ("1 + 1", "\n2"))
        self.end(terminal)

    def test_functions_and_what_protects_them(self):
        terminal = self.start()
        for line in ("function spin(n)", "while true", "n += 1", "end"):
            terminal.enter(line)
        self.expect(terminal, ("end", "..> end"))
        self.interrupt(terminal, "spin(1)")
        self.interrupt(terminal, "pcall(spin, 1)")
        self.interrupt(terminal, "while true; ok, e = pcall(spin, 1); end")
        self.interrupt(terminal, "x = 1 + spin(2)")
        self.interrupt(terminal, 'table["sort"]([3, 2, 1], spin)')
        self.expect(
            terminal,
            ('error("as ever")', "\nerror: as ever\n  at line 1, near token 'error'\n"
             '  error("as ever")\n  ^~~~~'),
            ('ok, e = pcall(error, "kept")', 'dv> ok, e = pcall(error, "kept")'),
            ("e", '\n"kept"'),
        )
        self.end(terminal)

    def test_a_line_that_is_written(self):
        terminal = self.start()
        # Apart, since the terminal drops what has not been read.
        terminal.send("half a line")
        terminal.wait("dv> half a line")
        terminal.send(CANCEL)
        terminal.wait("dv> half a line\ndv>")
        terminal.enter("if true")
        terminal.send("more")
        terminal.wait("..> more")
        terminal.send(CANCEL)
        terminal.wait("..> more\ndv>")
        self.expect(terminal, ("2", "\n2"))
        self.end(terminal)

    def test_a_coroutine_that_never_ends(self):
        terminal = self.start()
        terminal.enter("function spin(); while true; end; end")
        terminal.enter("decay function beside(); spin(); end")
        self.interrupt(terminal, "beside()")
        self.expect(terminal, ("1", "\n1"))
        self.end(terminal)

    def test_what_waits_for_input(self):
        terminal = self.start()
        self.interrupt(terminal, 'line = io["popen"]("sleep 30")["read"]()')
        self.expect(terminal, ("1", "\n1"))
        self.end(terminal)


class WithoutATerminal(PromptTest):
    def run_prompt(self, text, **environment):
        return subprocess.run(
            [PROGRAM, "repl"],
            input=text,
            capture_output=True,
            text=True,
            cwd=self.folder,
            timeout=TIME_LIMIT,
            env={**os.environ, "HOME": str(self.folder), **environment},
            check=False,
        )

    def test_lines_come_from_a_pipe(self):
        got = self.run_prompt("x = 1\nfunction f()\n  return x\nend\nf() + 1\nprint(3)")
        self.assertEqual((got.stdout, got.stderr, got.returncode), ("2\n3\n", "", 0))
        self.assertEqual(os.listdir(self.folder), [])

    def test_an_error_gives_the_status(self):
        got = self.run_prompt("error('one')\n2\n")
        self.assertEqual((got.stdout, got.returncode), ("2\n", 1))
        self.assertTrue(got.stderr.startswith("error: one\n  at line 1"))

    def test_what_is_open_at_the_end_is_told(self):
        got = self.run_prompt("while true\n")
        self.assertEqual(got.returncode, 1)
        self.assertTrue(got.stderr.startswith("error: Missing 'end' for while block\n"))

    def test_a_dumb_terminal_gets_plain_lines(self):
        terminal = Terminal(self.folder, TERM="dumb")
        terminal.send("1 + 1\n")
        terminal.wait("\n2")
        terminal.send(LEAVE)
        self.assertEqual(terminal.leave(), 0)

    def test_colours_only_where_they_are_wanted(self):
        plain = self.start()
        self.expect(plain, ("1", "\n1"))
        self.end(plain)
        coloured = Terminal(self.folder, NO_COLOR="")
        raw = b""
        coloured.send("1\r")
        # Up to the prompt behind the value.
        while not re.search(rb"\x1b\[32m1\x1b\[0m.*\x1b\[1;34mdv>\x1b\[0m $", raw, re.DOTALL):
            ready, _, _ = select.select([coloured.terminal], [], [], TIME_LIMIT)
            self.assertTrue(ready, raw)
            raw += os.read(coloured.terminal, 65536)
        coloured.send(LEAVE)
        self.assertEqual(coloured.leave(), 0)


def main():
    global PROGRAM
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    options, rest = parser.parse_known_args()
    PROGRAM = os.path.abspath(options.program)
    os.environ.pop("LC_ALL", None)
    os.environ["LANG"] = "C.UTF-8"
    faulthandler.dump_traceback_later(20 * TIME_LIMIT, exit=True)
    unittest.main(argv=[__file__, *rest])


if __name__ == "__main__":
    main()
