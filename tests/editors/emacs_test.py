#!/usr/bin/env python3
"""Tests Eglot, Emacs' client for language servers, against dovrel, as the mode in editors/emacs sets it up.
What the mode does without a server is tested by tests/dovrel/editors_test.py.

    emacs_test.py --program DOVREL
"""

import json
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests/dovrel"))
from named_tests import Skipped, expect, run_tests, test  # noqa: E402

PROGRAM = None

PRELUDE = """\
(require 'cl-lib)
(require 'json)
(require 'eglot nil t)
(unless (featurep 'eglot) (kill-emacs 77))
(setq eglot-sync-connect t eglot-confirm-server-initiated-edits nil)
(defun wait (probe)
  (let ((end (+ (float-time) 20)) found)
    (while (and (not (setq found (funcall probe))) (< (float-time) end))
      (accept-process-output nil 0.05))
    found))
(defun tell (value) (princ (json-encode value)))
(defun connect ()
  (apply #'eglot (eglot--guess-contact))
  (wait #'eglot-current-server))
"""


def run_emacs(text, form):
    """Opens a script, starts the server and runs `form`; what that has told."""
    with tempfile.TemporaryDirectory() as folder:
        script = Path(folder, "main.dv")
        script.write_text(text, encoding="utf-8")
        code = Path(folder, "code.el")
        code.write_text(PRELUDE, encoding="utf-8")
        command = ["emacs", "--batch", "-L", str(ROOT / "editors/emacs"), "-l", "dovrelscript-mode"]
        command += ["--eval", f'(setq dovrelscript-program "{PROGRAM}")', "-l", str(code)]
        command += [str(script), "--eval", f"(progn (connect) {form})"]
        done = subprocess.run(
            command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120, cwd=folder
        )
        if done.returncode == 77:
            raise Skipped("this Emacs has no Eglot")
        if done.returncode != 0:
            raise AssertionError(done.stdout + done.stderr)
        return json.loads(done.stdout.splitlines()[-1])


@test
def the_client_shows_mistakes():
    found = run_emacs(
        "x = 1\nif x then\nend\n",
        """\
(flymake-mode 1)
(flymake-start)
(wait #'flymake-diagnostics)
(let ((first (mapcar (lambda (one) (vector (line-number-at-pos (flymake-diagnostic-beg one))
                                           (flymake-diagnostic-text one)))
                     (flymake-diagnostics))))
  (goto-char (point-min))
  (search-forward " then")
  (replace-match "")
  (eglot--signal-textDocument/didChange)
  (tell (vector first (wait (lambda () (null (flymake-diagnostics)))))))
""",
    )
    expect([line for line, _ in found[0]], [2])
    expect("E103" in found[0][0][1], True, found[0][0][1])
    expect(found[1], True)


@test
def the_client_completes_and_lists():
    found = run_emacs(
        "function increased(number)\n    return number + 1\nend\nx = incr\n",
        """\
(goto-char (point-max))
(backward-char)
(let* ((offer (eglot-completion-at-point))
       (names (all-completions "incr" (nth 2 offer)))
       (index (progn (setq imenu-create-index-function #'eglot-imenu) (eglot-imenu))))
  (tell (vector (mapcar #'substring-no-properties names) (prin1-to-string index))))
""",
    )
    expect([name.strip() for name in found[0]][:1], ["increased"])
    expect("increased" in found[1], True, found[1])


@test
def the_client_formats():
    found = run_emacs(
        "if x\ny=1\nend\n",
        "(eglot-format-buffer) (tell (vector (buffer-string)))",
    )
    expect(found, ["if x\n    y = 1\nend\n"])


def use_program(path):
    global PROGRAM
    PROGRAM = path


if __name__ == "__main__":
    sys.exit(run_tests("Tests Eglot against the language server.", use_program))
