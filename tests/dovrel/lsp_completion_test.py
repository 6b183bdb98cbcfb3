#!/usr/bin/env python3
"""Speaks the Language Server Protocol with `dovrel lsp` as an editor does, with the answers that the rules
demand: completion, hover and signatures."""

import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from lsp_session import Session, run_sessions, uri_of  # noqa: E402
from named_tests import expect, test  # noqa: E402

# ---------------------------------------------------------------- completion


@test
def completion_of_names():
    script = (
        "count = 1\nfunction total(list, factor)\n    native sum = 0\n    s¦\n    return sum\nend\n"
        "settings = {size: 1}\n"
    )
    with Session() as session:
        answer = session.ask("textDocument/completion", session.open(script))
        items = {item["label"]: item for item in answer["items"]}
        for name in ("sum", "settings", "string", "select"):
            if name not in items:
                raise AssertionError(f"{name} is not offered: {sorted(items)}")
        for name in ("count", "s", "list"):
            if name in items:
                raise AssertionError(f"{name} is offered for `s`")
        order = sorted(items.values(), key=lambda item: item["sortText"])
        expect(order[0]["label"], "sum", "the first one: the function's own")
        expect(items["select"]["insertText"], "select($0)")
        text = session.ask("completionItem/resolve", items["select"])["documentation"]["value"]
        if "select(" not in text:
            raise AssertionError(text)


@test
def completion_of_functions_with_parameters():
    with Session() as session:
        place = session.open("@@ Adds up.\nfunction total(list, factor)\nend\nx = to¦\n")
        items = session.ask("textDocument/completion", place)["items"]
        mine = [item for item in items if item["label"] == "total"]
        expect([item["detail"] for item in mine], ["total(list, factor)"])
        expect(mine[0]["insertText"], "total($0)")
        resolved = session.ask("completionItem/resolve", mine[0])
        expect(resolved["documentation"]["value"], "Adds up.\n")
        # Parentheses that stand there already are not doubled.
        place = session.open("function total()\nend\nx = tot¦()\n", "file:///nowhere/two.dv")
        item = session.ask("textDocument/completion", place)["items"][0]
        expect((item["label"], "insertText" in item), ("total", False))
    with Session(abilities={}) as session:
        place = session.open("function total(list)\nend\nx = tot¦\n")
        item = session.ask("textDocument/completion", place)["items"][0]
        expect((item["label"], "insertText" in item), ("total", False), "without snippets")


@test
def completion_of_own_variables_alone():
    script = (
        "function first(one_a)\n    native one_b = 1\nend\n"
        "function second(one_c)\n    for one_d = 1, 2\n        print(one¦)\n    end\nend\n"
    )
    with Session() as session:
        expect(sorted(session.labels(session.open(script))), ["one_c", "one_d"])


@test
def completion_of_keywords_and_blocks():
    with Session() as session:
        items = session.ask("textDocument/completion", session.open("wh¦\n"))["items"]
        expect([item["label"] for item in items], ["while"])
        expect(items[0]["insertText"], "while ${1:condition}\n\t$0\nend")
        labels = session.labels(session.open("x = wh¦\n", "file:///nowhere/two.dv"))
        expect(labels, [], "no statement inside of an expression")
        labels = session.labels(session.open("for key ¦\n", "file:///nowhere/three.dv"))
        expect(labels[0], "in")
        labels = session.labels(session.open("decay ¦\n", "file:///nowhere/four.dv"))
        expect(labels, ["function"])
        expect(session.labels(session.open("function ¦\n", "file:///nowhere/5.dv")), [])
        expect(session.labels(session.open("x = 12¦\n", "file:///nowhere/6.dv")), [])


@test
def completion_of_keys():
    with Session() as session:
        place = session.open('x = string["s¦\nprint(1)\n')
        expect(session.labels(place), ["sub"])
        script = 'box = {width: 1, "full name": 2}\nbox["height"] = 3\nother["depth"] = 1\nx = box["¦"]\n'
        labels = session.labels(session.open(script, "file:///nowhere/two.dv"))
        expect(labels[:4], ["width", "full name", "height", "depth"])
        if "upper" not in labels:
            raise AssertionError("the methods of texts are not offered")
        expect(session.labels(session.open('x = "pr¦"\n', "file:///nowhere/three.dv")), [])


@test
def completion_of_codes_and_files():
    with Session() as session:
        labels = session.labels(session.open("@@ dovrel: allow W2¦\nx = 1\n"))
        if "W204" not in labels or "E101" in labels:
            raise AssertionError(labels)
        expect(session.labels(session.open("@@ pri¦\n", "file:///nowhere/two.dv")), [])
        with tempfile.TemporaryDirectory() as folder:
            Path(folder, "helper.dv").write_text("x = 1\n")
            Path(folder, "notes.txt").write_text("x\n")
            Path(folder, "parts").mkdir()
            place = session.open('runFile("¦")\n', uri_of(Path(folder, "main.dv")))
            expect(sorted(session.labels(place)), ["helper.dv", "parts"])


# ---------------------------------------------------------------- hover and signatures


@test
def hover_tells_what_a_name_is():
    with Session() as session:
        text = session.hover("@@ Adds up.\n@@ Slowly.\ndecay function total(list, ...)\nend\nto¦tal(1)\n")
        if "decay function total(list, ...)" not in text or "Adds up.\nSlowly.\n" not in text:
            raise AssertionError(text)
        text = session.hover("function f(size)\n    return si¦ze\nend\n")
        if "`size`: parameter of `f`." not in text:
            raise AssertionError(text)
        text = session.hover("level = 1\nlevel = 2\nprint(le¦vel)\n")
        if "global variable" not in text or "Assigned in line 1, line 2." not in text:
            raise AssertionError(text)
        if "Nothing in the scripts is assigned" not in session.hover("print(los¦t)\n"):
            raise AssertionError("an absent variable")
        expect(session.hover("x = ¦ 1 + 2\n"), None)
        expect(session.hover('x = "len ¦ a"\n'), None)


@test
def hover_shows_the_library():
    with Session() as session:
        if "gives the number of bytes" not in session.hover("x = le¦n([1])\n"):
            raise AssertionError("len")
        text = session.hover('x = string["s¦ub"]("a", 1)\n')
        if 'string["sub"](s, i, j)' not in text or "](" in text.split("```")[-1]:
            raise AssertionError(text)
        if 'string["upper"]' not in session.hover('x = name["up¦per"]()\n'):
            raise AssertionError("a method of a text")
        if "table of the library" not in session.hover('x = str¦ing["sub"]("a", 1)\n'):
            raise AssertionError("a table")
        # A function of the script takes the place of the library's.
        text = session.hover("function len(x)\nend\ny = le¦n(1)\n")
        if "function len(x)" not in text or "bytes" in text:
            raise AssertionError(text)


@test
def signature_help_follows_the_arguments():
    with Session() as session:
        script = "@@ Adds up.\nfunction total(list, factor)\nend\nx = total([1, 2], ¦\nprint(1)\n"
        help_ = session.ask("textDocument/signatureHelp", session.open(script))
        signature = help_["signatures"][help_["activeSignature"]]
        expect(signature["label"], "total(list, factor)")
        expect([one["label"] for one in signature["parameters"]], ["list", "factor"])
        expect(signature["documentation"]["value"], "Adds up.\n")
        expect(help_["activeParameter"], 1)
        place = session.open('x = string["sub"]("text", 1, ¦)\n', "file:///nowhere/two.dv")
        help_ = session.ask("textDocument/signatureHelp", place)
        label = help_["signatures"][help_["activeSignature"]]["label"]
        expect((label, help_["activeParameter"]), ('string["sub"](s, i, j)', 2))
        place = session.open("x = tostring(¦)\n", "file:///nowhere/second_name.dv")
        help_ = session.ask("textDocument/signatureHelp", place)
        expect(help_["signatures"][0]["label"], "tostring(value)", "another name of a function")
        place = session.open("x = print(1, 2, 3, ¦)\n", "file:///nowhere/three.dv")
        help_ = session.ask("textDocument/signatureHelp", place)
        expect(help_["activeParameter"], 1, "the last parameter goes on")
        for script in ("x = (1 + ¦)\n", "function f(¦)\nend\n", "x = 1 ¦\n", "f(1)¦\n"):
            place = session.open(script, "file:///nowhere/four.dv")
            expect(session.ask("textDocument/signatureHelp", place), None, script)


if __name__ == "__main__":
    run_sessions()
