"""What the tests of `dovrel lsp` share: sessions with a server as an editor has them, and the marks in
scripts.

In the scripts "¦" marks the cursor; it is taken out before the script is sent.
"""

import json
import os
import re
import sys
from pathlib import Path

from named_tests import expect, run_tests
from protocol_client import Client, ProtocolError

PROGRAM = None
ROOT = Path(__file__).resolve().parent.parent.parent


def use_program(path):
    global PROGRAM
    PROGRAM = path


def program():
    """The dovrel to test."""
    return PROGRAM


def run_sessions():
    sys.exit(run_tests("Tests dovrel lsp by a client of the protocol.", use_program))


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
