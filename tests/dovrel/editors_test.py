#!/usr/bin/env python3
"""Tests what the editor packages do beyond colours: indentation, the compiler file and comments of
Vim and Emacs, and how the extension of VS Code starts dovrel and reads its reports.

An editor whose program is missing is left out, with a message.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from named_tests import Skipped, expect, run_tests, test  # noqa: E402

PROGRAM = None
ROOT = Path(__file__).resolve().parent.parent.parent
EDITORS = ROOT / "editors"

BROKEN = "x = lst\nif x then\n    x = 1\nend\n"
WANTED_PLACES = [(1, 5, "W204"), (2, 6, "E103")]


def require(program):
    path = shutil.which(program)
    if path is None:
        raise Skipped(f"{program} is missing")
    return path


def scripts():
    """Scripts in the one layout, whose indentation an editor must find again."""
    for path in sorted((ROOT / "examples").glob("*.dv")):
        yield path, path.read_text(encoding="utf-8")


def flattened(text):
    """Without the indentation of lines, but for those that go on in a string."""
    return "".join(line.lstrip(" ") for line in text.splitlines(keepends=True))


def comparable(text):
    """The lines that begin in code outside of brackets: how far a bracket is indented is taste."""
    depth = 0
    is_in_string = False
    lines = []
    for line in text.splitlines():
        if is_in_string:
            is_in_string = '"' not in line
            continue
        code = re.sub(r"\"(?:\\.|[^\"\\])*\"|'(?:\\.|[^'\\])*'", "", line).partition("@@")[0]
        if depth == 0:
            lines.append(line)
        is_in_string = '"' in code
        depth += sum(code.count(c) for c in "([{") - sum(code.count(c) for c in ")]}")
    return lines


# ---------------------------------------------------------------- Vim


def run_vim(path, *commands):
    vim = require("vim")
    version = subprocess.run([vim, "--version"], capture_output=True, text=True, check=True).stdout
    if "+eval" not in version:
        raise Skipped("this vim knows no scripts")
    command = [vim, "-Nes", "-u", "NONE", "-i", "NONE"]
    command += ["--cmd", f"set runtimepath={EDITORS}/vim,$VIMRUNTIME"]
    command += ["--cmd", "filetype plugin indent on"]
    for one in commands:
        command += ["-c", one]
    command += ["-c", "qall!", str(path)]
    subprocess.run(
        command, stdin=subprocess.DEVNULL, capture_output=True, check=True, timeout=120, cwd=path.parent
    )


@test
def vim_indents_as_the_layout_does():
    require("vim")
    for path, text in scripts():
        with tempfile.TemporaryDirectory() as folder:
            copy = Path(folder, path.name)
            copy.write_text(flattened(text), encoding="utf-8")
            run_vim(copy, "normal gg=G", "write")
            found = copy.read_text(encoding="utf-8")
            expect(comparable(found), comparable(text), path.name)


@test
def vim_knows_comments_and_files():
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "helper.dv").write_text("x = 1\n")
        script = Path(folder, "main.dv")
        script.write_text('runFile("helper.dv")\n')
        run_vim(
            script,
            f"call writefile([&commentstring, &matchpairs, &shiftwidth], '{folder}/options')",
            "normal 0f\"l",
            "normal gf",
            f"call writefile([expand('%:t')], '{folder}/gone-to')",
            # Without an editor's window there is no :checkpath, but the list of included files is.
            f"buffer main.dv | redir! > {folder}/included | silent checkpath! | redir END",
        )
        expect(Path(folder, "options").read_text(), "@@ %s\n(:),{:},[:]\n4\n")
        expect(Path(folder, "gone-to").read_text(), "helper.dv\n")
        if "helper.dv" not in Path(folder, "included").read_text():
            raise AssertionError(Path(folder, "included").read_text())


@test
def vim_reads_the_reports_of_the_check():
    with tempfile.TemporaryDirectory() as folder:
        script = Path(folder, "broken.dv")
        script.write_text(BROKEN)
        listing = "map(getqflist(), 'v:val.lnum . \" \" . v:val.col . \" \" . v:val.type . \" \" . v:val.text')"
        run_vim(
            script,
            f"let g:dovrel_path = '{PROGRAM}'",
            "compiler dovrel",
            "silent make",
            f"call writefile({listing}, '{folder}/list')",
        )
        rows = [row.split(" ", 3) for row in Path(folder, "list").read_text().splitlines()]
        found = [(int(row[0]), int(row[1]), row[3].split(":")[0]) for row in rows]
        expect(found, WANTED_PLACES)
        expect([row[2].lower() for row in rows], ["w", "e"])


# ---------------------------------------------------------------- Emacs


def run_emacs(path, *forms):
    command = [require("emacs"), "--batch", "-Q", "-L", str(EDITORS / "emacs")]
    command += ["-l", "dovrelscript-mode", str(path)]
    for form in forms:
        command += ["--eval", form]
    result = subprocess.run(
        command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False, timeout=300
    )
    if result.returncode != 0:
        raise AssertionError(result.stderr)
    return result.stdout


@test
def emacs_indents_as_the_layout_does():
    require("emacs")
    for path, text in scripts():
        with tempfile.TemporaryDirectory() as folder:
            copy = Path(folder, path.name)
            copy.write_text(flattened(text), encoding="utf-8")
            run_emacs(copy, "(indent-region (point-min) (point-max))", "(save-buffer)")
            found = copy.read_text(encoding="utf-8")
            expect(comparable(found), comparable(text), path.name)


@test
def emacs_knows_the_language():
    with tempfile.TemporaryDirectory() as folder:
        script = Path(folder, "main.dv")
        script.write_text("decay function beat(n)\n    print(\"@@ no\") @@ yes\nend\n")
        printed = run_emacs(
            script,
            "(font-lock-ensure)",
            '(princ (format "%s %s\\n" major-mode comment-start))',
            '(dolist (word (list "function" "beat" "no" "yes" "end")) (goto-char (point-min))'
            ' (search-forward word) (princ (format "%s\\n" (get-text-property (1- (point)) (quote face)))))',
        )
        expect(
            printed.splitlines(),
            [
                "dovrelscript-mode @@ ",
                "font-lock-keyword-face",
                "font-lock-function-name-face",
                "font-lock-string-face",
                "font-lock-comment-face",
                "font-lock-keyword-face",
            ],
        )
        # It compiles without a warning.
        copy = Path(folder, "dovrelscript-mode.el")
        shutil.copy(EDITORS / "emacs" / "dovrelscript-mode.el", copy)
        run_emacs(script, f'(setq byte-compile-error-on-warn t)',
                  f'(unless (byte-compile-file "{copy}") (kill-emacs 1))')


# ---------------------------------------------------------------- VS Code


def package():
    return json.loads((EDITORS / "vscode" / "package.json").read_text(encoding="utf-8"))


def matcher(name):
    return next(one for one in package()["contributes"]["problemMatchers"] if one["name"] == name)


@test
def vscode_package_is_whole():
    contents = package()
    contributes = contents["contributes"]
    # The file that the editor loads is made of this one.
    expect(contents["scripts"]["bundle"].split()[:2], ["esbuild", "extension.js"])
    paths = ["extension.js", contents["icon"], "LICENSE.txt", "README.md"]
    paths += [one["path"] for one in contributes["grammars"] + contributes["snippets"]]
    paths += [one["configuration"] for one in contributes["languages"]]
    for path in paths:
        if not (EDITORS / "vscode" / path).is_file():
            raise AssertionError(f"{path} is missing")
    snippets = json.loads((EDITORS / "vscode" / "snippets.json").read_text(encoding="utf-8"))
    for name, snippet in snippets.items():
        # What a snippet puts in is a script, once its places are filled.
        text = "\n".join(snippet["body"])
        text = re.sub(r"\$\{\d+:([^}]*)\}", r"\1", text)
        text = re.sub(r"\$\{?\d+\}?", "", text).replace("function)", "f)")
        report = subprocess.run(
            [PROGRAM, "check", "-"], input=text + "\n", capture_output=True, text=True, check=False
        )
        if " error " in report.stdout:
            raise AssertionError(f"{name}: {report.stdout}")


@test
def vscode_reads_the_reports_of_the_check():
    with tempfile.TemporaryDirectory() as folder:
        script = Path(folder, "broken.dv")
        script.write_text(BROKEN)
        report = subprocess.run(
            [PROGRAM, "check", script], capture_output=True, text=True, check=False
        ).stdout
        pattern = matcher("dovrel-check")["pattern"]
        found = [re.match(pattern["regexp"], line) for line in report.splitlines()]
        found = [one for one in found if one]
        places = [
            (int(one[pattern["line"]]), int(one[pattern["column"]]), one[pattern["code"]])
            for one in found
        ]
        expect(places, WANTED_PLACES)
        expect([one[pattern["severity"]] for one in found], ["warning", "error"])
        expect({one[pattern["file"]] for one in found}, {str(script)})


@test
def vscode_reads_the_reports_of_tests_and_runs():
    with tempfile.TemporaryDirectory() as folder:
        script = Path(folder, "one_test.dv")
        script.write_text("function test_it()\n    expect_equal(1, 2)\nend\n")
        report = subprocess.run(
            [PROGRAM, "test", script], capture_output=True, text=True, check=False
        ).stdout
        pattern = matcher("dovrel-test")["pattern"]
        found = [re.match(pattern["regexp"], line) for line in report.splitlines()]
        found = [(one[pattern["file"]], one[pattern["line"]]) for one in found if one]
        expect(found, [(str(script), "2")])
        helper = Path(folder, "helper.dv")
        helper.write_text("x = 1\ny = x + absent\n")
        report = subprocess.run(
            [PROGRAM, "run", "-e", f'runFile("{helper}")'], capture_output=True, text=True, check=False
        ).stderr
        first, second = matcher("dovrel-run")["pattern"]
        lines = report.splitlines()
        expect(re.match(first["regexp"], lines[0])[1], "Unsupported operation '+' between types")
        place = re.match(second["regexp"], lines[1])
        expect((place[second["file"]], place[second["line"]]), (str(helper), "2"))


STAND_IN = """\
// Stands in for the editor: tells what the extension asks it for.
const Module = require("node:module");
const told = [];
const settings = JSON.parse(process.argv[2]);
const disposable = { dispose() {} };
const vscode = {
  workspace: {
    workspaceFolders: [{ uri: { fsPath: "/some folder" } }],
    getConfiguration: () => ({ get: (name) => settings[name] }),
    onDidChangeConfiguration: () => disposable,
  },
  window: { showErrorMessage: async (text) => void told.push(["error", text]) },
  commands: { registerCommand: () => disposable, executeCommand() {} },
  tasks: {
    registerTaskProvider(type, provider) {
      for (const task of provider.provideTasks()) {
        told.push(["task", task.name, task.execution.process, ...task.execution.args]);
      }
      return disposable;
    },
  },
  debug: {
    registerDebugConfigurationProvider: () => disposable,
    registerDebugAdapterDescriptorFactory(type, factory) {
      const made = factory.createDebugAdapterDescriptor({});
      told.push(["debugger", made.command, ...made.args]);
      return disposable;
    },
  },
  TaskGroup: { Build: "build", Test: "test" },
  TaskScope: { Workspace: 1 },
  Task: class {
    constructor(definition, scope, name, source, execution, matchers) {
      Object.assign(this, { definition, name, execution, matchers });
    }
  },
  ProcessExecution: class {
    constructor(process, args) {
      Object.assign(this, { process, args });
    }
  },
  DebugAdapterExecutable: class {
    constructor(command, args) {
      Object.assign(this, { command, args });
    }
  },
};
class LanguageClient {
  constructor(id, name, server) {
    this.server = server.run;
  }
  async start() {
    told.push(["server", this.server.command, ...this.server.args]);
    if (settings.fails) throw new Error("gone");
  }
  async stop() {
    told.push(["stopped"]);
  }
}
const load = Module._load;
Module._load = (name, ...rest) => {
  if (name === "vscode") return vscode;
  if (name === "vscode-languageclient/node") return { LanguageClient };
  return load(name, ...rest);
};
(async () => {
  const extension = require(process.argv[3]);
  await extension.activate({ subscriptions: [] });
  await extension.deactivate();
  console.log(JSON.stringify(told));
})();
"""


@test
def vscode_extension_starts_server_and_debugger():
    node = require("node")
    with tempfile.TemporaryDirectory() as folder:
        stand_in = Path(folder, "stand_in.js")
        stand_in.write_text(STAND_IN)

        def told(**settings):
            command = [node, stand_in, json.dumps(settings), EDITORS / "vscode" / "extension.js"]
            result = subprocess.run(command, capture_output=True, text=True, check=True, timeout=60)
            return json.loads(result.stdout)

        found = told(path="", server=True)
        wanted = ["server", "debugger", "task", "task", "task", "task", "stopped"]
        expect(sorted(one[0] for one in found), sorted(wanted))
        expect([one for one in found if one[0] == "server"], [["server", "dovrel", "lsp"]])
        expect([one for one in found if one[0] == "debugger"], [["debugger", "dovrel", "dap"]])
        tasks = [one[1:] for one in found if one[0] == "task"]
        expect(tasks[1], ["check", "dovrel", "check", "${file}"])
        expect(tasks[3], ["test", "dovrel", "test", "${workspaceFolder}"])
        found = told(path="${workspaceFolder}/bin/dovrel", server=True)
        expect([one[1] for one in found if one[0] == "server"], ["/some folder/bin/dovrel"])
        expect([one for one in told(path="", server=False) if one[0] == "server"], [])
        found = told(path="/no/dovrel", server=True, fails=True)
        expect([one[1] for one in found if one[0] == "error"],
               ["/no/dovrel lsp cannot be started: gone"])


def use_program(path):
    global PROGRAM
    PROGRAM = path


if __name__ == "__main__":
    sys.exit(run_tests("Tests the packages for editors.", use_program))
