#!/usr/bin/env python3
"""Speaks the Language Server Protocol with `dovrel lsp` as an editor does, with the answers that the rules
demand: mistakes, their cures, and the layout."""

import json
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from lsp_session import ROOT, Session, applied, program, run_sessions, span, uri_of  # noqa: E402
from named_tests import expect, test  # noqa: E402

# ---------------------------------------------------------------- diagnostics


@test
def diagnostics_follow_the_text():
    with Session() as session:
        place = session.open("list = [1, 2]\nprint(len(lst))\n")
        found = session.diagnostics(place)
        expect([one["code"] for one in found], ["W204"])
        expect(span(found[0]["range"]), (1, 10, 1, 13))
        expect(found[0]["severity"], 2)
        expect(found[0]["source"], "dovrel")
        if "did you mean `list`" not in found[0]["message"]:
            raise AssertionError(found[0]["message"])
        session.change(place, [(1, 10, 1, 13, "list")])
        expect(session.diagnostics(place), [])
        session.change(place, [(0, 13, 0, 13, "\nif list then")])
        found = session.diagnostics(place)
        expect([(one["code"], one["severity"]) for one in found], [("E102", 1), ("E103", 1)])
        # Several keys in a row are checked once, when they rest.
        for letter in "abc":
            session.change(place, [(0, 0, 0, 0, letter)])
        session.diagnostics(place)
        session.tell("textDocument/didClose", place)
        gone = session.client.wait_for(
            lambda one: one.get("method") == "textDocument/publishDiagnostics"
        )
        expect(gone["params"]["diagnostics"], [], "what is left of a closed document")


@test
def diagnostics_say_what_the_check_says():
    paths = sorted((ROOT / "examples").glob("*.dv"))[:6]
    with Session() as session:
        for path in paths:
            report = subprocess.run(
                [program(), "check", "--format", "json", path], capture_output=True, check=False
            )
            wanted = [
                (one["code"], one["line"] - 1) for one in json.loads(report.stdout)["findings"]
            ]
            place = session.open(path.read_text(encoding="utf-8"), uri_of(path))
            found = session.diagnostics(place)
            expect([(d["code"], d["range"]["start"]["line"]) for d in found], wanted, path.name)


# ---------------------------------------------------------------- layout and cures


@test
def formatting_of_files_and_ranges():
    script = "\r\nif a\r\nb( 1,2 )\r\n\r\n\r\nc()\r\nend\r\ns = \"x\r\n  y\"\r\n"
    with Session() as session:
        place = session.open(script)
        place["options"] = {"tabSize": 4, "insertSpaces": True}
        edits = session.ask("textDocument/formatting", place)
        laid_out = applied(script, edits)
        wanted = subprocess.run(
            [program(), "format", "-"], input=script.encode(), capture_output=True, check=False
        )
        expect(laid_out.encode(), wanted.stdout, "as dovrel format lays it out")
        expect("    b(1, 2)\r\n" in laid_out, True)
        part = {"start": {"line": 5, "character": 0}, "end": {"line": 6, "character": 0}}
        edits = session.ask("textDocument/rangeFormatting", {**place, "range": part})
        expect(applied(script, edits), script.replace("\nc()", "\n    c()"))
        place = session.open('x = "a\n', "file:///nowhere/two.dv")
        message = session.refusal("textDocument/formatting", {**place, "options": {}})
        if "is not closed" not in message:
            raise AssertionError(message)


@test
def cures_of_findings():
    cures = (
        ("list = [1]\nprint(len(lst))\n", "W204", "list = [1]\nprint(len(list))\n"),
        ('x = string["uper"]("a")\n', "W205", 'x = string["upper"]("a")\n'),
        ("a = 1\nif a then\n    a = 2\nend\n", "E103", "a = 1\nif a\n    a = 2\nend\n"),
        ("a = 1\nif a = 1\n    a = 2\nend\n", "E103", "a = 1\nif a == 1\n    a = 2\nend\n"),
        ("a = 1\na++\n", "E103", "a = 1\na += 1\n"),
        ("var a = 1\n", "E103", "a = 1\n"),
        ("t = {}\nx = t.size\n", "E103", 't = {}\nx = t["size"]\n'),
        ("x = 1 // two\n", "E103", "x = 1 @@ two\n"),
        ("x = 2 ** 3\n", "E103", "x = 2 ^ 3\n"),
        ("def f()\nend\n", "E103", "function f()\nend\n"),
        ('x = 1\nif x\n    x = 2\nelif y\n    x = 3\nend\n', "E103",
         'x = 1\nif x\n    x = 2\nelseif y\n    x = 3\nend\n'),
        ('print "hello"\n', "E103", 'print("hello")\n'),
        ('x = "abc\n', "E101", 'x = "abc"\n'),
        ("x = nil\n", "W305", None),
        ("x = None\n", "W305", "x = not\n"),
        ("x = True\n", "W305", "x = true\n"),
        ("a = 1\nif a\n    a = 2\nelse if b\n    a = 3\nend\n", "W305",
         "a = 1\nif a\n    a = 2\nelseif b\n    a = 3\nend\n"),
        ("a = 1\nif a\n    a = 2\nend if\n", "W306", "a = 1\nif a\n    a = 2\nend @@ if\n"),
        ("a = 1\nend\n", "W307", "a = 1\n"),
        ("x = 1,\n", "W416", "x = 1\n"),
        ("k = 1\nt = {}\nt[k] = not\n", "W409", "k = 1\nt = {}\nerase(t, k)\n"),
        ("list = [1]\nfor i, v in list\n    print(i, v)\nend\n", "W414",
         "list = [1]\nfor i, v in ipairs(list)\n    print(i, v)\nend\n"),
        ("a = 1\nx = not -a\n", "W412", "a = 1\nx = not (-a)\n"),
        ("function f(a, b)\n    native c = a\n    native d = 1\n    d = 2\n    return c\nend\nf(1, 2)\n",
         "W206", None),
        ("function f()\n    i = 0\n    return i\nend\nf()\n", "W203",
         "function f()\n    native i = 0\n    return i\nend\nf()\n"),
    )
    with Session() as session:
        for script, code, wanted in cures:
            place = session.open(script)
            found = [one for one in session.diagnostics(place) if one["code"] == code]
            if not found:
                raise AssertionError(f"{script!r} has no {code}")
            params = {**place, "range": found[0]["range"], "context": {"diagnostics": found[:1]}}
            actions = session.ask("textDocument/codeAction", params)
            mends = [one for one in actions if not one["title"].startswith("Allow")]
            if wanted is None:
                continue
            if not mends:
                raise AssertionError(f"{script!r}: no cure of {found[0]}")
            edits = mends[0]["edit"]["changes"][place["textDocument"]["uri"]]
            mended = applied(script, edits)
            expect(mended, wanted, script)
            place = session.open(mended)
            left = [one["code"] for one in session.diagnostics(place)]
            if code in left:
                raise AssertionError(f"{mended!r} still has {code}")


@test
def cures_of_unused_variables_take_all_places():
    script = "function f()\n    native d = 1\n    d = 2\n    return 3\nend\nf()\n"
    with Session() as session:
        place = session.open(script)
        found = [one for one in session.diagnostics(place) if one["code"] == "W206"]
        expect(found[0]["tags"], [1], "shown faded")
        params = {**place, "range": found[0]["range"], "context": {"diagnostics": found}}
        actions = session.ask("textDocument/codeAction", params)
        edits = actions[0]["edit"]["changes"][place["textDocument"]["uri"]]
        expect(applied(script, edits), script.replace("d =", "_d ="))


@test
def warnings_can_be_allowed():
    script = "if x\r\n    print(lst)\r\nend\r\nx = 1\r\n"
    with Session() as session:
        place = session.open(script)
        found = [one for one in session.diagnostics(place) if one["code"] == "W204"]
        params = {**place, "range": found[0]["range"], "context": {"diagnostics": found}}
        actions = session.ask("textDocument/codeAction", params)
        allow = [one for one in actions if one["title"] == "Allow W204 here"]
        edits = allow[0]["edit"]["changes"][place["textDocument"]["uri"]]
        changed = applied(script, edits)
        expect(changed.split("\r\n")[1], "    @@ dovrel: allow W204")
        place = session.open(changed)
        expect([one["code"] for one in session.diagnostics(place)], [])


if __name__ == "__main__":
    run_sessions()
