#!/usr/bin/env python3
"""Measures how long an editor waits for `dovrel lsp` with a large script open:

    bench/editor.py [--program build/dovrel] [--lines 50000] [--rounds 20]

For each kind of answer it types a letter in the middle of the script and takes the time from there
to the answer. What is shown is the median and the longest of the rounds, in milliseconds. The time
that this client takes to read an answer as JSON is not counted.
"""

import argparse
import json
import statistics
import subprocess
import time

BLOCK = """\
@@ Adds up what stands in list number {n}.
function total_{n}(list, factor)
    native sum = 0
    for i, value in ipairs(list)
        if value > {n}
            sum += value * factor
        else
            sum += shift_{s} - i
        end
    end
    return sum
end
shift_{s} = {n}
names_{n} = {{first: "one", second: [1, 2, {n}]}}
print("total", total_{n}([1, 2, 3], {n}), names_{n}["first"], string["sub"]("text {n}", 1, 3))

"""


def script(lines):
    blocks = []
    for n in range(1, lines // BLOCK.count("\n") + 2):
        blocks.append(BLOCK.format(n=n, s=n % 100))
    return "\n".join("".join(blocks).split("\n")[:lines]) + "\n"


class Server:
    def __init__(self, program):
        self.process = subprocess.Popen(
            [program, "lsp"], stdin=subprocess.PIPE, stdout=subprocess.PIPE
        )
        self.requests = 0

    def send(self, method, params, number=None):
        message = {"jsonrpc": "2.0", "method": method, "params": params}
        if number is not None:
            message["id"] = number
        data = json.dumps(message).encode()
        self.process.stdin.write(b"Content-Length: %d\r\n\r\n" % len(data) + data)
        self.process.stdin.flush()

    def ask(self, method, params):
        """The answer, and the moment at which it had come."""
        self.requests += 1
        self.send(method, params, self.requests)
        while True:
            length = 0
            while (line := self.process.stdout.readline()) != b"\r\n":
                length = int(line.partition(b":")[2])
            content = self.process.stdout.read(length)
            arrived = time.perf_counter()
            answer = json.loads(content)
            if answer.get("id") == self.requests:
                return answer["result"], arrived


def main():
    parser = argparse.ArgumentParser(description="Measures the answers of dovrel lsp.")
    parser.add_argument("--program", default="build/dovrel")
    parser.add_argument("--lines", type=int, default=50000)
    parser.add_argument("--rounds", type=int, default=20)
    arguments = parser.parse_args()

    server = Server(arguments.program)
    snippets = {"completionItem": {"snippetSupport": True}}
    trees = {"hierarchicalDocumentSymbolSupport": True}
    abilities = {"textDocument": {"completion": snippets, "documentSymbol": trees}}
    server.ask("initialize", {"capabilities": abilities})
    server.send("initialized", {})
    document = {"uri": "file:///nowhere/large.dv"}
    text = script(arguments.lines)
    middle = arguments.lines // 2 // 16 * 16 + 5  # `sum += ...`
    begin = time.perf_counter()
    opened = {**document, "languageId": "dovrelscript", "version": 1, "text": text}
    server.send("textDocument/didOpen", {"textDocument": opened})
    place = {"textDocument": document, "position": {"line": middle, "character": 14}}
    _, arrived = server.ask("textDocument/hover", place)
    print(f"{arguments.lines} lines; opened and answered in {(arrived - begin) * 1000:.0f} ms")

    screen = {
        "start": {"line": middle - 30, "character": 0},
        "end": {"line": middle + 30, "character": 0},
    }
    tokens, _ = server.ask("textDocument/semanticTokens/full", {"textDocument": document})
    cases = (
        ("textDocument/completion", place),
        ("textDocument/hover", place),
        ("textDocument/signatureHelp", place),
        ("textDocument/definition", place),
        ("textDocument/references", {**place, "context": {"includeDeclaration": True}}),
        ("textDocument/documentHighlight", place),
        ("textDocument/documentSymbol", {"textDocument": document}),
        ("workspace/symbol", {"query": "total_77"}),
        ("textDocument/foldingRange", {"textDocument": document}),
        ("textDocument/selectionRange", {**place, "positions": [place["position"]]}),
        ("textDocument/semanticTokens/range", {"textDocument": document, "range": screen}),
        (
            "textDocument/semanticTokens/full/delta",
            {"textDocument": document, "previousResultId": tokens["resultId"]},
        ),
        ("textDocument/documentLink", {"textDocument": document}),
        ("textDocument/codeAction", {**place, "range": screen, "context": {"diagnostics": []}}),
    )
    version = 1
    for method, params in cases:
        times = []
        for _ in range(arguments.rounds):
            version += 1
            at = {"line": middle, "character": 15}
            change = {"range": {"start": at, "end": at}, "text": "m"}
            begin = time.perf_counter()
            server.send(
                "textDocument/didChange",
                {"textDocument": {**document, "version": version}, "contentChanges": [change]},
            )
            answer, arrived = server.ask(method, params)
            times.append((arrived - begin) * 1000)
            if "previousResultId" in params:
                params["previousResultId"] = answer["resultId"]
        name = method.removeprefix("textDocument/")
        print(f"{name:28} {statistics.median(times):7.1f} {max(times):7.1f}")
    server.process.kill()


if __name__ == "__main__":
    main()
