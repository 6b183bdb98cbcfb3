#!/usr/bin/env python3
"""Tests the package for Vim in Neovim: what it knows of a file, and its own client for language servers
against dovrel.

    neovim_test.py --program DOVREL [--parser FILE]

--parser is the generated tree-sitter parser as a shared library.
"""

import json
import os
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests/dovrel"))
from named_tests import Skipped, expect, run_tests, test  # noqa: E402

PROGRAM = None
PARSER = os.environ.get("DOVREL_TREE_SITTER_PARSER")

# Waits for what `probe` gives, and writes it as JSON.
PRELUDE = """\
local function wait(probe)
  local found
  vim.wait(20000, function() found = probe() return found end, 20)
  return found
end
local function tell(value)
  vim.fn.writefile({ vim.fn.json_encode(value) }, vim.env.RESULT)
end
"""


def run_neovim(text, lua, before="", name="main.dv"):
    """Opens a script and runs `lua` in it; what that has told."""
    with tempfile.TemporaryDirectory() as folder:
        script = Path(folder, name)
        script.write_text(text, encoding="utf-8")
        code = Path(folder, "code.lua")
        code.write_text(PRELUDE + lua, encoding="utf-8")
        result = Path(folder, "result.json")
        command = ["nvim", "--headless", "-u", "NONE", "-i", "NONE", "-n"]
        command += ["--cmd", f"set runtimepath^={ROOT}/editors/vim"]
        command += ["--cmd", f"let g:dovrel_path = '{PROGRAM}'"]
        command += ["--cmd", f"filetype plugin indent on | syntax on | {before or 'echo'}"]
        command += [str(script), "-c", f"luafile {code}", "-c", "qall!"]
        done = subprocess.run(
            command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120,
            env={**os.environ, "RESULT": str(result), "HOME": folder, "LC_ALL": "C.UTF-8"},
        )  # fmt: skip
        if not result.is_file():
            raise AssertionError(done.stdout + done.stderr)
        return json.loads(result.read_text(encoding="utf-8"))


@test
def the_file_is_known():
    found = run_neovim(
        "if x\ny = 1\nend\n",
        """\
vim.cmd('silent normal! gg=G')
tell({ vim.bo.filetype, vim.b.current_syntax, vim.bo.commentstring, vim.bo.shiftwidth,
       vim.api.nvim_buf_get_lines(0, 0, -1, true) })
""",
        before="let g:dovrel_server = 0",
    )
    expect(found, ["dovrelscript", "dovrelscript", "@@ %s", 4, ["if x", "    y = 1", "end"]])


@test
def the_client_shows_mistakes():
    found = run_neovim(
        "x = 1\nif x then\nend\n",
        """\
wait(function() return #vim.diagnostic.get(0) > 0 end)
local rows = {}
for _, one in ipairs(vim.diagnostic.get(0)) do
  table.insert(rows, { one.lnum, one.col, one.severity, one.source })
end
vim.api.nvim_buf_set_lines(0, 1, 2, true, { 'if x' })
tell({ rows, wait(function() return #vim.diagnostic.get(0) == 0 end) })
""",
    )
    expect(found, [[[1, 5, 1, "dovrel"]], True])


@test
def the_client_completes_and_tells():
    found = run_neovim(
        "@@ Adds one.\nfunction increased(number)\n    return number + 1\nend\nx = incr\n",
        """\
wait(function() return #vim.lsp.buf_get_clients(0) > 0 end)
local function ask(method, line, character)
  local answers = vim.lsp.buf_request_sync(0, method, {
    textDocument = vim.lsp.util.make_text_document_params(),
    position = { line = line, character = character },
    context = { triggerKind = 1 },
  }, 20000)
  for _, answer in pairs(answers or {}) do return answer.result end
end
local names = {}
local items = ask('textDocument/completion', 4, 8)
for _, item in ipairs(items.items or items) do table.insert(names, item.label) end
local hover = ask('textDocument/hover', 1, 10)
local places = ask('textDocument/definition', 1, 12)
tell({ names, hover.contents.value, places[1] and places[1].range.start or places.range.start })
""",
    )
    expect([name for name in found[0] if name.startswith("incr")], ["increased"])
    if "Adds one." not in found[1]:
        raise AssertionError(found[1])
    expect(found[2], {"line": 1, "character": 9})


@test
def files_of_one_folder_share_a_server():
    found = run_neovim(
        "x = 1\n",
        """\
vim.cmd('edit ' .. vim.fn.expand('%:p:h') .. '/other.dv')
wait(function() return #vim.lsp.buf_get_clients(0) > 0 end)
-- Another one would have been started by now.
vim.wait(200, function() return #vim.lsp.get_active_clients() > 1 end)
tell({ #vim.lsp.get_active_clients(), #vim.lsp.buf_get_clients(0) })
""",
    )
    expect(found, [1, 1])


@test
def the_server_can_be_left_off():
    found = run_neovim(
        "x = 1\n", "tell({ #vim.lsp.get_active_clients() })\n", before="let g:dovrel_server = 0"
    )
    expect(found, [0])


@test
def tree_sitter_colours_a_script():
    if not PARSER:
        raise Skipped("there is no generated parser")
    with tempfile.TemporaryDirectory() as folder:
        # As docs/editors.md tells.
        for part, source in (("parser", PARSER), ("queries", ROOT / "editors/tree-sitter/queries")):
            Path(folder, part).mkdir()
            name = "dovrelscript.so" if part == "parser" else "dovrelscript"
            Path(folder, part, name).symlink_to(source)
        found = run_neovim(
            "function f(x)\n    return x\nend\n",
            """\
local parser = vim.treesitter.get_parser(0, 'dovrelscript')
local query = vim.treesitter.query or vim.treesitter
local read = query.get or query.get_query
local highlights = read('dovrelscript', 'highlights')
local root = parser:parse()[1]:root()
local names = {}
for id in highlights:iter_captures(root, 0, 1, 2) do table.insert(names, highlights.captures[id]) end
tell({ root:type(), root:has_error(), names, read('dovrelscript', 'folds') ~= nil })
""",
            before=f"set runtimepath^={folder} | let g:dovrel_server = 0",
        )
    expect(found[:2], ["script", False])
    for name in ("keyword.return", "variable"):
        if name not in found[2]:
            raise AssertionError(f"{name} is not among {found[2]}")
    expect(found[3], True)


def use_program(path):
    global PROGRAM
    PROGRAM = path


if __name__ == "__main__":
    sys.exit(run_tests("Tests the package for Vim in Neovim.", use_program))
