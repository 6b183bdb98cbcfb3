#!/usr/bin/env python3
"""Speaks the Language Server Protocol with `dovrel lsp` as an editor does, with the answers that the rules
demand: definitions, references, links and renaming."""

import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from lsp_session import Session, applied, run_sessions, span, uri_of, without_cursor  # noqa: E402
from named_tests import expect, test  # noqa: E402

# ---------------------------------------------------------------- navigation

SCOPES = """\
level = 1
function outer(a)
    native level = a
    inner()
    return level
end
function inner()
    return level
end
outer(level)
"""


def at(text, line, character):
    lines = text.split("\n")
    lines[line] = lines[line][:character] + "¦" + lines[line][character:]
    return "\n".join(lines)


@test
def definitions_and_references():
    with Session() as session:
        place = session.open(at(SCOPES, 9, 2))
        where = session.ask("textDocument/definition", place)
        expect([span(one["range"]) for one in where], [(1, 9, 1, 14)])
        place["context"] = {"includeDeclaration": False}
        expect(
            [span(one["range"]) for one in session.ask("textDocument/references", place)],
            [(9, 0, 9, 5)],
        )
        # The function's own variable, and the global.
        place["context"] = {"includeDeclaration": True}
        place["position"] = {"line": 4, "character": 12}
        own = session.ask("textDocument/references", place)
        expect([span(one["range"])[0] for one in own], [2, 4])
        place["position"] = {"line": 7, "character": 12}
        outside = session.ask("textDocument/references", place)
        expect([span(one["range"])[0] for one in outside], [0, 7, 9])
        marks = session.ask("textDocument/documentHighlight", place)
        expect([one["kind"] for one in marks], [3, 2, 2], "writes and reads")
        place["position"] = {"line": 3, "character": 0}
        expect(session.ask("textDocument/definition", place), None)


@test
def definitions_of_elements():
    script = 'shapes = {}\nfunction shapes["square"](side)\n    return side\nend\nx = shapes["squ¦are"](2)\n'
    with Session() as session:
        where = session.ask("textDocument/definition", session.open(script))
        expect([span(one["range"])[0] for one in where], [1])


@test
def definitions_in_other_files():
    with tempfile.TemporaryDirectory() as folder:
        helper = Path(folder, "helper.dv")
        helper.write_text("function help_out(x)\n    return x\nend\n")
        Path(folder, ".hidden").mkdir()
        Path(folder, ".hidden", "other.dv").write_text("function help_out()\nend\n")
        with Session(folder=folder) as session:
            place = session.open("help¦_out(1)\n", uri_of(Path(folder, "main.dv")))
            where = session.ask("textDocument/definition", place)
            expect([(one["uri"], span(one["range"])[0]) for one in where], [(uri_of(helper), 0)])
            # The file changes on the disk, then in the editor, then goes.
            helper.write_text("\n\nfunction help_out(x)\nend\n")
            changes = {"changes": [{"uri": uri_of(helper), "type": 2}]}
            session.tell("workspace/didChangeWatchedFiles", changes)
            where = session.ask("textDocument/definition", place)
            expect([span(one["range"])[0] for one in where], [2])
            other = session.open("\nfunction help_out(x)\nend\n", uri_of(helper))
            where = session.ask("textDocument/definition", place)
            expect([span(one["range"])[0] for one in where], [1], "the editor's text counts")
            session.tell("textDocument/didClose", other)
            where = session.ask("textDocument/definition", place)
            expect([span(one["range"])[0] for one in where], [2], "the disk's again")
            helper.unlink()
            session.tell("workspace/didChangeWatchedFiles", changes)
            expect(session.ask("textDocument/definition", place), [])
            event = {"added": [], "removed": [{"uri": uri_of(folder), "name": "work"}]}
            session.tell("workspace/didChangeWorkspaceFolders", {"event": event})
            expect(session.ask("textDocument/definition", place), [])


@test
def links_lead_to_files():
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "parts").mkdir()
        Path(folder, "parts", "helper.dv").write_text("x = 1\n")
        with Session() as session:
            script = 'runFile("parts/helper.dv")\nok = pcall(loadFile("gone.dv"))\nprint("parts/helper.dv")\n'
            place = session.open(script, uri_of(Path(folder, "main.dv")))
            links = session.ask("textDocument/documentLink", place)
            expect([span(one["range"]) for one in links], [(0, 9, 0, 24)])
            expect(links[0]["target"], uri_of(Path(folder, "parts", "helper.dv")))


# ---------------------------------------------------------------- rename


def renamed(session, text, name):
    marked = "¦" in text
    place = session.open(text)
    clean = without_cursor(text)[0] if marked else text
    result = session.ask("textDocument/rename", {**place, "newName": name})
    return applied(clean, result["changes"].get(place["textDocument"]["uri"], []))


@test
def rename_of_own_variables():
    script = "x = 1\nfunction f(li¦st)\n    for i, v in ipairs(list)\n        print(v, x)\n    end\nend\n"
    with Session() as session:
        expect(renamed(session, script, "values_of"), script.replace("¦", "").replace("list", "values_of"))
        place = session.open(script)
        prepared = session.ask("textDocument/prepareRename", place)
        expect((span(prepared["range"]), prepared["placeholder"]), ((1, 11, 1, 15), "list"))
        script = "function f()\n    native n = 1\n    n += 1\n    t = {n: ¦n}\n    return n\nend\nn = 5\n"
        wanted = "function f()\n    native m = 1\n    m += 1\n    t = {n: m}\n    return m\nend\nn = 5\n"
        expect(renamed(session, script, "m"), wanted)


@test
def rename_of_functions_in_all_files():
    with tempfile.TemporaryDirectory() as folder:
        helper = Path(folder, "helper.dv")
        helper.write_text('runFile("main.dv")\nprint(twice(2))\n')
        main = Path(folder, "main.dv")
        with Session(folder=folder) as session:
            place = session.open("function tw¦ice(x)\n    return 2 * x\nend\n", uri_of(main))
            result = session.ask("textDocument/rename", {**place, "newName": "double"})
            found = {uri: [span(e["range"]) for e in edits] for uri, edits in result["changes"].items()}
            expect(found, {uri_of(main): [(0, 9, 0, 14)], uri_of(helper): [(1, 6, 1, 11)]})


@test
def rename_refuses_and_says_why():
    own = "function f(si¦ze)\n    return g(size)\nend\n"
    refused = (
        ("cou¦nt = 1\n", "total", "is a global variable"),
        ("x = le¦n([1])\n", "total", "is a name of the library"),
        ('x = t["ke¦y"]\n', "total", "keys are texts"),
        ("x = 1¦ + 2\n", "total", "there is no name here"),
        (own, "end", "is a word of the language"),
        (own, "true", "is a word of the language"),
        (own, "a.b", "is no name"),
        (own, "len", "is a name of the library"),
        ("function f(si¦ze)\n    other = 1\nend\n", "other", "uses another `other`"),
        ("function f(si¦ze, other)\nend\n", "other", "there is a variable `other` already"),
        (own + "function g(x)\n    return size\nend\n", "total", "scoping is dynamic"),
        (own + "function g(x)\n    return total\nend\n", "total", "which this one would hide"),
        ("function f(si¦ze)\n    load(size)\nend\n", "total", "cannot be looked at"),
        ("function f(a)\n    a()\nend\nfunction g(si¦ze)\n    f(g)\nend\nfunction h()\n    print(size)\nend\n",
         "total", "`h`, which may run from here"),
        ("function f¦()\nend\ntotal = 1\n", "total", "is used already"),
        ("function f¦()\nend\nf = 1\n", "total", "a value is assigned to `f`"),
        ("function f¦()\nend\nfunction g(f)\nend\n", "total", "is also a variable of a function"),
        ("function f¦()\nend\nload(text)\nf()\n", "total", "cannot be looked at"),
        ("function le¦n(x)\nend\n", "total", "is a name of the library"),
    )
    with Session() as session:
        for script, name, reason in refused:
            place = session.open(script)
            message = session.refusal("textDocument/rename", {**place, "newName": name})
            if reason not in message:
                raise AssertionError(f"{script!r} to {name}: {message}")
        session.open("nothing = 1\n")
        place = session.open("cou¦nt = 1\n", "file:///nowhere/two.dv")
        if "global" not in session.refusal("textDocument/prepareRename", place):
            raise AssertionError("prepareRename")
        result = session.ask("textDocument/rename", {**place, "newName": "count"})
        expect(result["changes"], {}, "a rename to the same name")


if __name__ == "__main__":
    run_sessions()
