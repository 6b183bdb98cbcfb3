#!/usr/bin/env python3
"""Speaks the Language Server Protocol with `dovrel lsp` as an editor does, with the answers that the rules
demand: symbols, folding, selections and semantic tokens."""

import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from lsp_session import Session, run_sessions, span, without_cursor  # noqa: E402
from named_tests import expect, test  # noqa: E402

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


if __name__ == "__main__":
    run_sessions()
