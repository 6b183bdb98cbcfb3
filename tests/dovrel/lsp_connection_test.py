#!/usr/bin/env python3
"""Speaks the Language Server Protocol with `dovrel lsp` as an editor does, with the answers that the rules
demand: the connection, changes of texts, positions, and texts that are broken."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from lsp_session import Session, program, run_sessions, span  # noqa: E402
from named_tests import expect, test  # noqa: E402
from protocol_client import Client  # noqa: E402

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
    client = Client([program(), "lsp", "--stdio"])
    client.send({"jsonrpc": "2.0", "id": 1, "method": "textDocument/hover", "params": {}})
    expect(client.wait_for(lambda one: one["id"] == 1)["error"]["code"], -32002)
    client.send({"jsonrpc": "2.0", "method": "exit"})
    expect(client.close(), 1, "the status of an exit without a shutdown")
    client = Client([program(), "lsp"])
    expect(client.close(), 1, "the status of an input that ends")


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


if __name__ == "__main__":
    run_sessions()
