#!/usr/bin/env python3
"""Speaks the Language Server Protocol with `dovrel lsp` as an editor does: a session for each
feature, with the answers that its rule demands.

In the scripts below "¦" marks the cursor; it is taken out before the script is sent.
"""

import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from named_tests import expect, run_tests, test  # noqa: E402
from protocol_client import Client, ProtocolError  # noqa: E402

PROGRAM = None
ROOT = Path(__file__).resolve().parent.parent.parent

ABILITIES = {
    "textDocument": {
        "completion": {"completionItem": {"snippetSupport": True}},
        "documentSymbol": {"hierarchicalDocumentSymbolSupport": True},
    },
    "workspace": {"didChangeWatchedFiles": {"dynamicRegistration": True}},
}


def without_cursor(text):
    """The text without its mark, and the position of the mark, in UTF-16."""
    at = text.index("¦")
    before = text[:at]
    line = before.count("\n")
    column = before.rpartition("\n")[2]
    character = len(column.encode("utf-16-le")) // 2
    return text[:at] + text[at + 1 :], {"line": line, "character": character}


def span(range_):
    """A range as (line, character, line, character), short to write."""
    start, end = range_["start"], range_["end"]
    return (start["line"], start["character"], end["line"], end["character"])


class Session:
    """A server with documents, from initialize to exit."""

    def __init__(self, abilities=None, folder=None, encodings=None):
        self.client = Client([PROGRAM, "lsp"])
        self.requests = 0
        self.versions = {}
        abilities = json.loads(json.dumps(ABILITIES if abilities is None else abilities))
        if encodings:
            abilities["general"] = {"positionEncodings": encodings}
        folders = [{"uri": uri_of(folder), "name": "work"}] if folder else None
        self.server = self.ask(
            "initialize",
            {"processId": os.getpid(), "capabilities": abilities, "workspaceFolders": folders},
        )
        self.tell("initialized", {})

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        if kind is not None:
            self.client.process.kill()
            self.client.process.wait()
            return
        expect(self.ask("shutdown"), None, "the answer of shutdown")
        self.tell("exit")
        expect(self.client.close(), 0, "the exit status")

    def tell(self, method, params=None):
        message = {"jsonrpc": "2.0", "method": method}
        if params is not None:
            message["params"] = params
        self.client.send(message)

    def answer(self, method, params=None):
        self.requests += 1
        number = self.requests
        message = {"jsonrpc": "2.0", "id": number, "method": method}
        if params is not None:
            message["params"] = params
        self.client.send(message)
        return self.client.wait_for(
            lambda one: one.get("id") == number and "method" not in one, what=method
        )

    def ask(self, method, params=None):
        answer = self.answer(method, params)
        if "error" in answer:
            raise ProtocolError(f"{method}: {answer['error']}")
        return answer["result"]

    def refusal(self, method, params):
        answer = self.answer(method, params)
        if "error" not in answer:
            raise AssertionError(f"{method} should be refused, and gave {answer}")
        return answer["error"]["message"]

    def open(self, text, uri="file:///nowhere/one.dv"):
        """Opens a script, with a mark or without; gives its place for requests."""
        place = {"textDocument": {"uri": uri}}
        if "¦" in text:
            text, place["position"] = without_cursor(text)
        self.versions[uri] = 1
        document = {"uri": uri, "languageId": "dovrelscript", "version": 1, "text": text}
        self.tell("textDocument/didOpen", {"textDocument": document})
        return place

    def change(self, place, changes):
        """Changes of (line, character, line, character, text), or whole texts."""
        uri = place["textDocument"]["uri"]
        self.versions[uri] += 1
        sent = []
        for change in changes:
            if isinstance(change, str):
                sent.append({"text": change})
                continue
            start = {"line": change[0], "character": change[1]}
            end = {"line": change[2], "character": change[3]}
            sent.append({"range": {"start": start, "end": end}, "text": change[4]})
        document = {"uri": uri, "version": self.versions[uri]}
        self.tell(
            "textDocument/didChange", {"textDocument": document, "contentChanges": sent}
        )

    def diagnostics(self, place):
        uri = place["textDocument"]["uri"]
        version = self.versions[uri]

        def wanted(one):
            params = one.get("params", {})
            return (
                one.get("method") == "textDocument/publishDiagnostics"
                and params["uri"] == uri
                and params["version"] == version
            )

        return self.client.wait_for(wanted, what="diagnostics")["params"]["diagnostics"]

    def labels(self, place):
        return [item["label"] for item in self.ask("textDocument/completion", place)["items"]]

    def hover(self, text):
        found = self.ask("textDocument/hover", self.open(text))
        return found and found["contents"]["value"]


def uri_of(path):
    return Path(path).resolve().as_uri()


def applied(text, edits):
    """The text with edits of the protocol applied, whose positions count UTF-16."""
    starts = [0] + [match.end() for match in re.finditer("\r\n|\n|\r", text)]

    def offset(position):
        at = starts[position["line"]]
        units = 0
        while units < position["character"]:
            units += 2 if ord(text[at]) > 0xFFFF else 1
            at += 1
        return at

    places = [
        (offset(e["range"]["start"]), offset(e["range"]["end"]), e["newText"]) for e in edits
    ]
    for first, last, new in sorted(places, reverse=True):
        text = text[:first] + new + text[last:]
    return text


# ---------------------------------------------------------------- the connection


@test
def tells_what_it_can():
    with Session() as session:
        expect(session.server["serverInfo"]["name"], "dovrel")
        can = session.server["capabilities"]
        expect(can["positionEncoding"], "utf-16")
        expect(can["textDocumentSync"]["change"], 2, "incremental changes")
        for name in ("hover", "definition", "references", "rename", "foldingRange"):
            if not can.get(name + "Provider"):
                raise AssertionError(f"{name} is not offered")
        # It asks to be told of files that change on the disk.
        asked = session.client.wait_for(lambda one: one.get("method", "").startswith("client/"))
        expect(asked["method"], "client/registerCapability")
        session.client.send({"jsonrpc": "2.0", "id": asked["id"], "result": None})


@test
def answers_misuse_by_errors():
    with Session() as session:
        place = session.open("x = ¦1\n")
        expect(session.answer("textDocument/nothing", {})["error"]["code"], -32601)
        expect(session.answer("textDocument/hover", {})["error"]["code"], -32602)
        unknown = {"textDocument": {"uri": "file:///not/open.dv"}, "position": place["position"]}
        expect(session.answer("textDocument/hover", unknown)["error"]["code"], -32602)
        session.client.send_bytes(b"Content-Length: 5\r\n\r\n{nope")
        broken = session.client.wait_for(lambda one: one.get("id", 0) is None)
        expect(broken["error"]["code"], -32700)
        session.client.send_bytes(b"Content-Length: 2\r\nContent-Type: x\r\n\r\n{}")
        expect(session.client.wait_for(lambda one: "error" in one)["error"]["code"], -32600)
        # A header without a length is passed over, and an unknown notice as well.
        session.client.send_bytes(b"X-Other: 1\r\n\r\n")
        session.tell("$/setTrace", {"value": "off"})
        expect(session.ask("textDocument/hover", place), None)


@test
def wants_initialize_first_and_shutdown_before_exit():
    client = Client([PROGRAM, "lsp", "--stdio"])
    client.send({"jsonrpc": "2.0", "id": 1, "method": "textDocument/hover", "params": {}})
    expect(client.wait_for(lambda one: one["id"] == 1)["error"]["code"], -32002)
    client.send({"jsonrpc": "2.0", "method": "exit"})
    expect(client.close(), 1, "the status of an exit without a shutdown")
    client = Client([PROGRAM, "lsp"])
    expect(client.close(), 1, "the status of an input that ends")


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
                [PROGRAM, "check", "--format", "json", path], capture_output=True, check=False
            )
            wanted = [
                (one["code"], one["line"] - 1) for one in json.loads(report.stdout)["findings"]
            ]
            place = session.open(path.read_text(encoding="utf-8"), uri_of(path))
            found = session.diagnostics(place)
            expect([(d["code"], d["range"]["start"]["line"]) for d in found], wanted, path.name)


# ---------------------------------------------------------------- places and changes


@test
def positions_count_utf16_and_utf8():
    text = 'x = "ä𝄞" + lst\r\n'
    for encodings, start in ((None, 12), (["utf-8", "utf-16"], 15), (["utf-16"], 12)):
        with Session(encodings=encodings) as session:
            wanted = encodings[0] if encodings else "utf-16"
            expect(session.server["capabilities"]["positionEncoding"], wanted)
            place = session.open(text)
            found = session.diagnostics(place)
            expect([span(one["range"]) for one in found], [(0, start, 0, start + 3)])
            # A change behind the wide characters.
            session.change(place, [(0, start, 0, start + 3, "x")])
            expect(session.diagnostics(place), [])


@test
def changes_keep_windows_line_ends():
    with Session() as session:
        place = session.open("a = 1\r\nb = a\r\nprint(b)\r\n")
        session.change(place, [(1, 5, 2, 0, " + 1\r\nc = b\r\n"), (0, 0, 1, 0, "")])
        session.change(place, [(2, 6, 2, 7, "c")])
        # b = a + 1 / c = b / print(c), and nothing is assigned to a now.
        found = session.diagnostics(place)
        expect([(one["code"], span(one["range"])) for one in found], [("W204", (0, 4, 0, 5))])
        place["position"] = {"line": 2, "character": 6}
        where = session.ask("textDocument/definition", place)
        expect([span(one["range"]) for one in where], [(1, 0, 1, 1)])
        # Beyond the end of a line is its end, and beyond the last line the end of the text.
        session.change(place, [(0, 99, 0, 99, "0"), (99, 0, 99, 0, "lst = 1\r\n")])
        place["position"] = {"line": 3, "character": 1}
        expect(len(session.ask("textDocument/documentHighlight", place)), 1)
        # A whole text takes the place of what was there.
        session.change(place, ["z = 1\rprint(zz)"])
        found = session.diagnostics(place)
        # To the language a carriage return is a blank, to the editor it ends a line.
        expect([(one["code"], one["range"]["start"]["line"]) for one in found], [("E103", 1)])


@test
def files_outside_of_folders():
    with Session() as session:
        place = session.open("va¦lue = 1\nprint(value)\n", "untitled:Untitled-1")
        expect(len(session.ask("textDocument/references", place)), 2)
        expect(session.ask("textDocument/documentLink", place), [])


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


# ---------------------------------------------------------------- symbols and structure

OUTLINE = """\
limit = 3
function outer(a)
    function outer_helper(b)
        return b
    end
    limit = 4
end
box = {}
function box["draw"]()
end
limit = 5
"""


@test
def symbols_of_a_document():
    def names(symbols):
        return [(one["name"], names(one.get("children", []))) for one in symbols]

    with Session() as session:
        found = session.ask("textDocument/documentSymbol", session.open(OUTLINE))
        expect(
            names(found),
            [("limit", []), ("outer", [("outer_helper", [])]), ("box", []), ('box["draw"]', [])],
        )
        expect([one["kind"] for one in found], [13, 12, 13, 6])
        expect(found[1]["detail"], "(a)")
        expect((span(found[1]["range"]), span(found[1]["selectionRange"])), ((1, 0, 6, 3), (1, 9, 1, 14)))
    with Session(abilities={}) as session:
        found = session.ask("textDocument/documentSymbol", session.open(OUTLINE))
        expect([one["name"] for one in found], ["limit", "outer", "outer_helper", "box", 'box["draw"]'])
        expect(span(found[1]["location"]["range"]), (1, 9, 1, 14))


@test
def symbols_of_the_workspace():
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "helper.dv").write_text("function Help_Out()\nend\nhelp_level = 1\nx = 2\n")
        with Session(folder=folder) as session:
            session.open("function helped()\nend\n")
            found = session.ask("workspace/symbol", {"query": "help"})
            expect(sorted(one["name"] for one in found), ["Help_Out", "help_level", "helped"])
            expect(session.ask("workspace/symbol", {"query": "nothing"}), [])


@test
def folding():
    script = """\
@@ One
@@ two
@@ three
if a
    b()
    c()
elseif d
    e()
    f()
else
    g()
    h()
end
t = {
    1,
    2
}
repeat
    x += 1
    y += 1
until x > 3
z = 1
"""
    with Session() as session:
        folds = session.ask("textDocument/foldingRange", session.open(script))
        found = sorted((one["startLine"], one["endLine"], one.get("kind")) for one in folds)
        wanted = [(0, 2, "comment"), (3, 5, None), (6, 8, None), (9, 11, None), (13, 15, None), (17, 19, None)]
        expect(found, wanted)


@test
def selections_grow():
    script = 'function f()\n    if a\n        print("one two", g[1 + v¦alue])\n        b()\n    end\nend\n'
    with Session() as session:
        place = session.open(script)
        params = {"textDocument": place["textDocument"], "positions": [place["position"]]}
        range_ = session.ask("textDocument/selectionRange", params)[0]
        text = without_cursor(script)[0]
        lines = text.split("\n")
        grown = []
        while range_:
            first, character, last, end = span(range_["range"])
            part = lines[first : last + 1]
            part[-1] = part[-1][:end]
            part[0] = part[0][character:]
            grown.append("\n".join(part))
            range_ = range_.get("parent")
        expect(
            grown[:7],
            [
                "value",
                "1 + value",
                "[1 + value]",
                '"one two", g[1 + value]',
                '("one two", g[1 + value])',
                'print("one two", g[1 + value])',
                'print("one two", g[1 + value])\n        b()',
            ],
        )
        expect(grown[-1], text, "the last one is the whole")
        for inner, outer in zip(grown, grown[1:]):
            if inner not in outer:
                raise AssertionError(f"{inner!r} is not in {outer!r}")


@test
def semantic_tokens():
    script = """\
limit = 3
decay function beat(n)
    native own = n
    print(own, limit, string["sub"]("abc", 1))
end
beat(limit)
"""
    with Session() as session:
        legend = session.server["capabilities"]["semanticTokensProvider"]["legend"]
        place = session.open(script)

        def named(data):
            tokens = []
            line = character = 0
            for i in range(0, len(data), 5):
                line_delta, delta, length, kind, bits = data[i : i + 5]
                line += line_delta
                character = delta + (0 if line_delta else character)
                text = script.split("\n")[line][character : character + length]
                modifiers = [m for n, m in enumerate(legend["tokenModifiers"]) if bits >> n & 1]
                tokens.append((text, " ".join([legend["tokenTypes"][kind], *modifiers])))
            return tokens

        full = session.ask("textDocument/semanticTokens/full", place)
        wanted = [
            ("limit", "variable global"),
            ("beat", "function declaration decay"),
            ("n", "parameter declaration"),
            ("own", "variable declaration local"),
            ("n", "parameter"),
            ("print", "function defaultLibrary"),
            ("own", "variable local"),
            ("limit", "variable global"),
            ("string", "namespace defaultLibrary"),
            ('"sub"', "method defaultLibrary"),
            ("beat", "function decay"),
            ("limit", "variable global"),
        ]
        expect(named(full["data"]), wanted)
        part = {"start": {"line": 2, "character": 0}, "end": {"line": 3, "character": 0}}
        answer = session.ask("textDocument/semanticTokens/range", {**place, "range": part})
        expect(named(answer["data"]), wanted[3:5])
        # After a change the difference leads to what a full answer has.
        session.change(place, [(2, 0, 2, 0, "    native more = n\n")])
        delta = {**place, "previousResultId": full["resultId"]}
        answer = session.ask("textDocument/semanticTokens/full/delta", delta)
        data = list(full["data"])
        for edit in answer["edits"]:
            data[edit["start"] : edit["start"] + edit["deleteCount"]] = edit["data"]
        expect(data, session.ask("textDocument/semanticTokens/full", place)["data"])
        stale = session.ask("textDocument/semanticTokens/full/delta", delta)
        expect("data" in stale, True, "a difference to what is not known is a full answer")


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
            [PROGRAM, "format", "-"], input=script.encode(), capture_output=True, check=False
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


# ---------------------------------------------------------------- broken files


@test
def broken_files_keep_their_functions():
    script = 'function total(list)\nend\nx = "open\ny = total(\nfunction second()\nend\nz = sec¦ond\n'
    with Session() as session:
        place = session.open(script)
        where = session.ask("textDocument/definition", place)
        expect([span(one["range"])[0] for one in where], [4])
        session.change(place, [(2, 9, 2, 9, '"'), (3, 10, 3, 10, "1)")])
        place["position"] = {"line": 3, "character": 5}
        where = session.ask("textDocument/definition", place)
        expect([span(one["range"])[0] for one in where], [0])


@test
def odd_texts_do_no_harm():
    texts = ("", "\n", "\ufeffx = 1\n", "\0\n", "(" * 30000, "x = " + "not " * 2000, '"' * 999,
             "end\n" * 99, "if\n" * 99, "function\nfunction f\nfunction f(\n", "x = 1;;;y = 2;", "@@")
    methods = ("hover", "completion", "signatureHelp", "definition", "references",
               "documentHighlight", "documentSymbol", "foldingRange", "documentLink",
               "semanticTokens/full")
    with Session() as session:
        for text in texts:
            place = session.open(text)
            place["context"] = {"includeDeclaration": True}
            for character in (0, 3, 500):
                place["position"] = {"line": 0, "character": character}
                for method in methods:
                    session.ask("textDocument/" + method, place)
            params = {**place, "positions": [place["position"]]}
            session.ask("textDocument/selectionRange", params)
            session.diagnostics(place)


def use_program(path):
    global PROGRAM
    PROGRAM = path


if __name__ == "__main__":
    sys.exit(run_tests("Tests dovrel lsp by a client of the protocol.", use_program))
