#!/usr/bin/env python3
"""Tests the page in a browser, and runs the script tests there:

    browser_test.py SITE                       all tests
    browser_test.py --pictures FOLDER SITE     makes the pictures of the document instead
"""

import argparse
import base64
import re
import sys
import threading
import unittest
import urllib.parse
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
sys.path[:0] = [str(HERE), str(ROOT / "playground"), str(ROOT / "tests")]
from browser import CONTROL, ENTER, ESCAPE, TAB, Browser  # noqa: E402
from run_scripts import find_cases  # noqa: E402
from serve import Handler, make_server  # noqa: E402

SITE = None  # set by main()


class PlainHandler(Handler):
    """Without the two headers, as from a simple host of files."""

    def send_header(self, keyword, value):
        if not keyword.startswith("Cross-Origin-"):
            super().send_header(keyword, value)


class TestHandler(Handler):
    def translate_path(self, path):
        if path == "/run_in_worker.js":
            return str(HERE / "run_in_worker.js")
        return super().translate_path(path)


def serve(handler):
    server = make_server(SITE, 0, handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server, f"http://127.0.0.1:{server.server_port}/"


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server, cls.address = serve(TestHandler)
        cls.browser = Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.server.shutdown()
        cls.server.server_close()

    def setUp(self):
        self.open()

    # ------------------------------------------------------------ what a user does

    def open(self, path="", address=None):
        self.browser.set_size(1280, 900)
        self.browser.set_dark(False)
        self.browser.open((address or self.address) + path)
        self.wait_for_status("Ready.")

    def wait_for_status(self, start):
        return self.browser.wait(f"(document.getElementById('status')?.textContent ?? '').startsWith({start!r})")

    def write(self, script):
        self.browser.js(
            "const area = document.getElementById('script');"
            "area.focus(); area.select(); document.execCommand('insertText', false, args[0]);",
            script,
        )

    def text(self, name):
        return self.browser.js("return document.getElementById(args[0]).textContent", name)

    def script(self):
        return self.browser.js("return document.getElementById('script').value")

    def run_script(self, script, status="Finished"):
        self.write(script)
        self.browser.click("#run")
        self.wait_for_status(status)
        return self.text("output")

    # ------------------------------------------------------------ running

    def test_the_first_script_runs(self):
        self.browser.click("#run")
        self.wait_for_status("Finished")
        self.assertEqual(self.text("output"), "1 one\n2 two\n3 three\n")

    def test_the_examples_run(self):
        self.browser.wait("document.getElementById('examples').options.length > 10")
        names = self.browser.js(
            "return [...document.getElementById('examples').options].map((o) => o.value).slice(1)"
        )
        self.assertIn("sieve", names)
        self.assertNotIn("command_report", names)
        for name in names:
            with self.subTest(name):
                self.browser.js(
                    "const list = document.getElementById('examples'); list.value = args[0];"
                    "list.dispatchEvent(new Event('change'))",
                    name,
                )
                self.assertEqual(self.script(), (ROOT / "examples" / f"{name}.dv").read_text())
                self.browser.click("#run")
                self.wait_for_status("Finished")
                wanted = (ROOT / "tests" / "examples" / f"{name}.out").read_text()
                self.assertEqual(self.text("output"), wanted)

    def test_an_endless_loop_is_stopped(self):
        self.write("n = 0\nwhile true\n    n += 1\nend\n")
        self.browser.click("#run")
        self.wait_for_status("Running.")
        self.browser.click("#stop")
        self.wait_for_status("Stopped.")
        self.assertEqual(self.run_script("print('again')\n"), "again\n")

    def test_what_prints_without_end_is_stopped_by_itself(self):
        self.write("while true\n    print('more and more of it, in each turn')\nend\n")
        self.browser.click("#run")
        self.wait_for_status("Stopped: it prints too much")

    def test_output_comes_while_the_script_runs(self):
        self.write("print('first')\nn = 0\nwhile true\n    n += 1\n    if n == 5000000\n        print('later')\n    end\nend\n")
        self.browser.click("#run")
        self.browser.wait("document.getElementById('output').textContent.startsWith('first')")
        self.browser.click("#stop")

    def test_a_recursion_without_end_is_a_stack_overflow(self):
        # As natively, the line is that of the call that is compiled.
        report = self.run_script("function f(a)\n    return [f(a)]\nend\nf(1)\n", "Error in line 4")
        self.assertEqual(report, "dovrelscript: stack overflow\n  at line 4\n  f(1)\n")
        self.assertEqual(self.run_script("print('again')\n"), "again\n")

    def test_the_line_that_has_failed_is_marked(self):
        report = self.run_script("x = 1\nprint('before')\ny = x + {}\nprint('behind')\n", "Error in line 3")
        self.assertEqual(
            report,
            "before\ndovrelscript: DovrelScript error: Unsupported operation '+' between types\n"
            "  at line 3, near token '}'\n  y = x + {}\n           ^\n"
            "  hint: check spelling, operators, parentheses, and quote matching\n\n",
        )
        failed = self.browser.js(
            "return [...document.querySelectorAll('#colours .failed')].map((e) => e.textContent).join('')"
        )
        self.assertEqual(failed, "y = x + {}")
        mark = self.browser.js("return document.querySelector('#gutter .error').textContent")
        self.assertEqual(mark.split(), ["✖", "3"])
        self.write("x = 1\n")
        self.assertEqual(self.browser.js("return document.querySelectorAll('.failed').length"), 0)

    # ------------------------------------------------------------ input

    READER = (
        "input = io['open']('/dev/stdin')\nline = input['read']()\n"
        "while line != not\n    print('got ' + line)\n    line = input['read']()\nend\nprint('end')\n"
    )

    def test_input_is_given(self):
        self.browser.type("#input", "one\ntwo")
        self.assertEqual(self.run_script(self.READER), "got one\ngot two\nend\n")

    def test_input_is_typed(self):
        self.write("print('which')\n" + self.READER)
        self.browser.click("#run")
        self.wait_for_status("The script waits for a line.")
        self.assertEqual(self.text("output"), "which\n")
        # The focus is where it is wanted.
        self.browser.keys("thrée" + ENTER)
        self.wait_for_status("The script waits for a line.")
        self.browser.wait("document.getElementById('output').textContent.includes('got thr')")
        self.browser.click("#end-of-input")
        self.wait_for_status("Finished")
        self.assertEqual(self.text("output"), "which\nthrée\ngot thrée\nend\n")

    def test_a_script_that_waits_is_stopped(self):
        self.write(self.READER)
        self.browser.click("#run")
        self.wait_for_status("The script waits for a line.")
        self.browser.click("#stop")
        self.wait_for_status("Stopped.")
        self.assertFalse(self.browser.js("return document.getElementById('asking').checkVisibility()"))

    def test_without_headers_there_is_only_the_input_that_was_given(self):
        server, address = serve(PlainHandler)
        try:
            self.open(address=address)
            self.assertFalse(self.browser.js("return crossOriginIsolated"))
            self.browser.type("#input", "one")
            self.assertEqual(self.run_script(self.READER), "got one\nend\n")
        finally:
            server.shutdown()
            server.server_close()

    # ------------------------------------------------------------ checks, layout, links

    def test_checks_come_while_typing(self):
        self.write("")
        self.browser.wait("document.getElementById('findings-status').textContent === 'Nothing found.'")
        self.browser.type("#script", "tötal = 1\nif tötal then\nprint(tötal)\nend")
        finding = self.browser.wait("document.querySelector('#findings button')?.textContent")
        self.assertRegex(finding, r"^Line 1, error E\d+: ")
        self.assertTrue(self.browser.js("return document.querySelector('#gutter .error') !== null"))
        self.write("name = 'x'\nif name then\n    print('ö', nmae)\nend\n")
        self.browser.wait("document.getElementById('findings').textContent.includes('nmae')")
        marked = self.browser.js(
            "return [...document.querySelectorAll('#colours .wave')].map((e) => e.textContent)"
        )
        self.assertIn("nmae", marked)
        self.browser.js("[...document.querySelectorAll('#findings button')].at(-1).click()")
        self.assertEqual(
            self.browser.js(
                "const area = document.activeElement;"
                "return area.id + ' ' + area.value.slice(area.selectionStart).slice(0, 4)"
            ),
            "script nmae",
        )

    def test_a_script_is_laid_out_and_that_can_be_undone(self):
        untidy = "if  true\nprint( 1 )\nend\n"
        self.write(untidy)
        self.browser.click("#format")
        self.wait_for_status("Laid out.")
        self.assertEqual(self.script(), "if true\n    print(1)\nend\n")
        self.browser.keys(CONTROL + "z")
        self.browser.wait("document.getElementById('script').value.startsWith('if  ')")
        self.write("print('open\n")
        self.browser.click("#format")
        self.wait_for_status("It cannot be laid out: ")

    def test_a_link_holds_the_script(self):
        script = "print('Grüße, ' + \"wörld & #more\")\n" * 20
        self.write(script)
        self.browser.click("#link")
        self.browser.wait("location.hash.startsWith('#script=')")
        fragment = self.browser.js("return location.hash")
        self.assertEqual(fragment, urllib.parse.quote(fragment, safe="#=-_"))
        self.assertLess(len(fragment), 200)
        self.open()
        self.assertNotEqual(self.script(), script)
        self.open(fragment)
        self.assertEqual(self.script(), script)
        # A link that is followed within the page.
        self.write("")
        self.browser.js("location.hash = ''; location.hash = args[0]", fragment)
        self.browser.wait("document.getElementById('script').value !== ''")
        self.assertEqual(self.script(), script)

    def test_another_script_can_be_undone(self):
        self.write("mine = 1\n")
        self.browser.wait("document.getElementById('examples').options.length > 10")
        self.browser.js(
            "const list = document.getElementById('examples'); list.focus(); list.value = 'sieve';"
            "list.dispatchEvent(new Event('change'))"
        )
        self.assertIn("crossed", self.script())
        self.assertEqual(self.browser.js("return document.activeElement.id"), "examples")
        self.browser.js("document.getElementById('script').focus()")
        self.browser.keys(CONTROL + "z")
        self.browser.wait("document.getElementById('script').value === 'mine = 1\\n'")

    def test_a_broken_link_is_told(self):
        self.browser.js("location.hash = '#script=AAAA!'")
        self.wait_for_status("The link holds no script.")

    # ------------------------------------------------------------ the tour

    def test_the_tour_goes_step_by_step(self):
        self.browser.click("#show-tour")
        headings = re.findall(r"^## (.*)$", (ROOT / "docs" / "tour.md").read_text(), re.MULTILINE)
        for number, heading in enumerate(headings):
            self.assertEqual(self.text("tour-title"), heading)
            self.assertNotIn("```", self.text("tour-text"))
            if number + 1 < len(headings):
                self.browser.click("#tour-next")
        self.assertFalse(self.browser.js("return !document.getElementById('tour-next').disabled"))
        self.browser.js(
            "const list = document.getElementById('tour-step'); list.value = '0';"
            "list.dispatchEvent(new Event('change'))"
        )
        self.browser.click("#tour-text button")
        self.wait_for_status("Finished")
        self.assertIn("line 3: no price: milk\nbread      2.20\n", self.text("output"))

    # ------------------------------------------------------------ keys and screen readers

    def test_keys(self):
        self.write("")
        self.browser.keys("if true" + ENTER + TAB + "print(1)" + ENTER)
        self.assertEqual(self.script(), "if true\n    print(1)\n    ")
        self.write("print('by keys')\n")
        self.browser.keys(CONTROL + ENTER)
        self.wait_for_status("Finished")
        self.assertEqual(self.text("output"), "by keys\n")
        self.browser.js("document.getElementById('script').focus()")
        self.browser.keys(ESCAPE + TAB)
        self.assertNotEqual(self.browser.js("return document.activeElement.id"), "script")
        self.assertEqual(self.script(), "print('by keys')\n")

    def test_everything_can_be_reached_by_the_tab_key_and_shows_it(self):
        self.browser.js("document.activeElement.blur()")
        seen = []
        for _ in range(30):
            self.browser.keys(TAB)
            name, outline = self.browser.js(
                "const at = document.activeElement; const box = at.closest('.editor') ?? at;"
                "return [at.id || at.className || at.tagName, getComputedStyle(box).outlineStyle]"
            )
            if name in seen or name == "BODY":
                break
            seen.append(name)
            self.assertNotEqual(outline, "none", name)
            if name == "script":
                self.browser.keys(ESCAPE)
        for wanted in ("skip", "examples", "run", "format", "link", "show-tour", "script", "output", "input"):
            self.assertIn(wanted, seen)

    def test_what_screen_readers_are_told(self):
        self.browser.click("#show-tour")
        for selector, role, label in (
            ("header", "banner", None),
            ("main", "main", None),
            ("#writing", "region", "Script"),
            ("#running", "region", "Output"),
            ("#script", "textbox", "Script"),
            ("#input", "textbox", "Input"),
            ("#examples", "combobox", "Example"),
            ("#run", "button", "Run"),
            ("#stop", "button", "Stop"),
            ("#status", "status", None),
            ("#output", "region", "Output"),
            ("#tour-step", "combobox", "Step of the tour"),
        ):
            with self.subTest(selector):
                self.assertEqual(self.browser.role(selector), role)
                if label is not None:
                    self.assertEqual(self.browser.label(selector), label)
        self.assertEqual(self.browser.js("return document.documentElement.lang"), "en")

    # ------------------------------------------------------------ windows

    def test_a_narrow_window_needs_no_scrolling_sideways(self):
        self.browser.click("#show-tour")
        for width in (320, 400, 768, 1000):
            with self.subTest(width):
                self.browser.set_size(width, 700)
                self.assertLessEqual(
                    self.browser.js("return document.documentElement.scrollWidth"), width
                )

    def test_dark_and_light_have_enough_contrast(self):
        self.run_script("@@ why\nx = 'text' + 1.5\nprint(x, not)\nerror('no')\n", "Error")
        for is_dark in (False, True):
            self.browser.set_dark(is_dark)
            page = self.browser.js("return getComputedStyle(document.body).backgroundColor")
            self.assertEqual(sum(colour(page)) < 3 * 128, is_dark, page)
            for selector in ("body", "#status", "#output", "#output .error", ".hint", "#gutter",
                             "#colours .keyword", "#colours .literal", "#colours .number",
                             "#colours .function", "#colours .comment", "#run", "#link"):
                with self.subTest(selector, dark=is_dark):
                    text, ground = self.browser.js(
                        "let at = document.querySelector(args[0]);"
                        "const text = getComputedStyle(at).color;"
                        "let ground;"
                        "do { ground = getComputedStyle(at).backgroundColor; at = at.parentElement; }"
                        "while (ground === 'rgba(0, 0, 0, 0)');"
                        "return [text, ground]",
                        selector,
                    )
                    self.assertGreaterEqual(contrast(colour(text), colour(ground)), 4.5)

    # ------------------------------------------------------------ the script tests

    def test_the_script_tests(self):
        different = {
            line.split()[0]
            for line in (HERE / "differences.txt").read_text().splitlines()
            if line and not line.startswith("#")
        }
        cases = [
            case
            for case in find_cases(ROOT / "tests" / "scripts", ROOT / "tests" / "scripts")
            if not case.has_arguments and case.script.is_file() and case.name not in different
        ]

        def coded(data):
            return base64.b64encode(data).decode()

        self.browser.set_timeout(600)
        wrong = []
        for start in range(0, len(cases), 100):
            part = cases[start : start + 100]
            bundle = []
            for case in part:
                folder = case.beside(".files")
                bundle.append({
                    "name": case.script.name,
                    "script": coded(case.script.read_bytes()),
                    "input": coded(case.read(".in")),
                    "files": {
                        path.relative_to(folder).as_posix(): coded(path.read_bytes())
                        for path in sorted(folder.rglob("*"))
                        if path.is_file()
                    },
                })
            outcomes = self.browser.js(
                "const compiled = await WebAssembly.compileStreaming(fetch('dovrelscript.wasm'));"
                "const worker = new Worker('run_in_worker.js', {type: 'module'});"
                "const outcomes = await new Promise((resolve, reject) => {"
                "    worker.onmessage = ({data}) => resolve(data);"
                "    worker.onerror = (event) => reject(new Error(event.message));"
                "    worker.postMessage({compiled, cases: args[0]}); });"
                "worker.terminate(); return outcomes",
                bundle,
            )
            self.assertIsInstance(outcomes, list, outcomes)
            for case, got in zip(part, outcomes, strict=True):
                wanted = (case.read(".out"), case.read(".err"), int(case.read(".status", b"0")))
                actual = (base64.b64decode(got["out"]), base64.b64decode(got["err"]), got["status"])
                if wanted != actual:
                    wrong.append(f"{case.name}: {got.get('failure')} {actual[2]} {actual[1][:200]}")
        self.assertGreater(len(cases), 1000)
        self.assertEqual(wrong, [])


def colour(text):
    return [int(part) for part in re.findall(r"\d+", text)[:3]]


def contrast(first, second):
    """As the guidelines for accessible pages count it."""

    def luminance(parts):
        linear = [c / 3294.6 if c <= 10 else ((c / 255 + 0.055) / 1.055) ** 2.4 for c in parts]
        return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]

    low, high = sorted((luminance(first), luminance(second)))
    return (high + 0.05) / (low + 0.05)


def make_pictures(folder):
    page = PageTest()
    PageTest.setUpClass()
    browser = page.browser
    try:
        page.open()
        script = (ROOT / "examples" / "word_frequency.dv").read_text()
        page.run_script(script)
        browser.wait("document.getElementById('findings-status').textContent !== ''")
        (folder / "playground.png").write_bytes(browser.picture())

        page.open()
        browser.set_dark(True)
        browser.click("#show-tour")
        page.run_script("total = 0\nfor i, price in ipairs([3, 4, 'x'])\n    total += price * 2\nend\nif total then\n    print(totl)\nend\n", "Error")
        browser.wait("document.querySelector('#findings button') !== null")
        (folder / "playground-dark.png").write_bytes(browser.picture())

        page.open()
        browser.set_size(400, 900)
        page.run_script((ROOT / "examples" / "sieve.dv").read_text())
        browser.wait("document.getElementById('findings-status').textContent !== ''")
        (folder / "playground-narrow.png").write_bytes(browser.picture())
    finally:
        PageTest.tearDownClass()


def main():
    global SITE
    parser = argparse.ArgumentParser()
    parser.add_argument("--pictures", type=Path, metavar="FOLDER")
    parser.add_argument("site")
    parser.add_argument("tests", nargs="*")
    options = parser.parse_args()
    SITE = options.site
    if options.pictures:
        make_pictures(options.pictures)
        return 0
    names = [f"PageTest.{name}" for name in options.tests]
    return not unittest.main(argv=[sys.argv[0], "-v", *names], exit=False).result.wasSuccessful()


if __name__ == "__main__":
    sys.exit(main())
