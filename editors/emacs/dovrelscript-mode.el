;;; dovrelscript-mode.el --- Editing of DovrelScript files  -*- lexical-binding: t; -*-

;; Copyright (c) 2026 The dovrelscript maintainers
;; Version: 0.4.0
;; Package-Requires: ((emacs "26.1"))
;; Keywords: languages

;;; Commentary:

;; Colours, comments and indentation of .dv files, checks by Flymake's compile patterns, and the
;; language server through Eglot.  Put this folder into `load-path' and
;;
;;   (require 'dovrelscript-mode)
;;
;; into your init file; `M-x eglot' in a script starts the server.

;;; Code:

(require 'compile)

(defgroup dovrelscript nil
  "Editing of DovrelScript files."
  :group 'languages)

(defcustom dovrelscript-program "dovrel"
  "The program that checks scripts and serves editors."
  :type 'string)

(defcustom dovrelscript-indent 4
  "Columns of a level of indentation."
  :type 'integer
  :safe #'integerp)

(defvar dovrelscript-mode-syntax-table
  (let ((table (make-syntax-table)))
    (modify-syntax-entry ?_ "_" table)
    (modify-syntax-entry ?$ "_" table)
    (modify-syntax-entry ?\" "\"" table)
    (modify-syntax-entry ?\' "\"" table)
    (modify-syntax-entry ?\\ "\\" table)
    (modify-syntax-entry ?\n ">" table)
    ;; A comment begins with two of these.
    (modify-syntax-entry ?@ ". 12" table)
    (dolist (sign '(?+ ?- ?* ?/ ?% ?< ?> ?= ?! ?~ ?^ ?# ?& ?|))
      (modify-syntax-entry sign "." table))
    table))

(defconst dovrelscript--opener
  "\\_<\\(?:if\\|while\\|for\\|repeat\\|\\(?:\\(?:decay\\|native\\|local\\)[ \t]+\\)?function\\)\\_>")
(defconst dovrelscript--closer "\\_<\\(?:end\\|until\\)\\_>")
(defconst dovrelscript--branch "\\_<\\(?:elseif\\|else\\)\\_>")

(defconst dovrelscript-font-lock-keywords
  `((,(concat "\\(?:^\\|;\\)[ \t]*"
              (regexp-opt '("if" "elseif" "else" "end" "while" "repeat" "until" "for" "function"
                            "return" "break" "decay" "native" "local")
                          'symbols))
     1 font-lock-keyword-face)
    ("\\_<\\(?:decay\\|native\\|local\\)[ \t]+\\(function\\)\\_>" 1 font-lock-keyword-face)
    ("\\_<function[ \t]+\\([A-Za-z_$][A-Za-z0-9_$]*\\)" 1 font-lock-function-name-face)
    ("\\(?:^\\|;\\)[ \t]*for\\_>.*?\\_<\\(in\\)\\_>" 1 font-lock-keyword-face)
    ("\\_<\\(?:not\\|and\\|or\\)\\_>" . font-lock-keyword-face)
    ("\\_<\\(?:true\\|false\\)\\_>" . font-lock-constant-face)
    ("\\_<\\(?:string\\|table\\|math\\|utf8\\|io\\|os\\|package\\)\\_>[ \t]*\\[" 0
     font-lock-builtin-face)))

(defun dovrelscript--opened (end)
  "How many blocks and brackets the code from point to END leaves open."
  (let ((count 0))
    (save-excursion
      (while (re-search-forward (concat dovrelscript--opener "\\|" dovrelscript--closer
                                        "\\|[][(){}]")
                                end t)
        (let* ((first (match-beginning 0))
               (text (match-string-no-properties 0))
               (state (save-excursion (syntax-ppss first))))
          (unless (or (nth 3 state) (nth 4 state))
            (cond
             ((member text '("(" "[" "{")) (setq count (1+ count)))
             ((member text '(")" "]" "}")) (setq count (1- count)))
             ;; Words are of blocks where a statement begins, and nowhere else.
             ((not (save-excursion
                     (goto-char first)
                     (looking-back "\\(?:^\\|;\\)[ \t]*" (line-beginning-position)))))
             ((string-match-p "\\`\\(?:end\\|until\\)\\'" text) (setq count (1- count)))
             (t (setq count (1+ count))))))))
    count))

(defun dovrelscript--steps-out-p ()
  "The line that point begins closes a block or a bracket, or begins a branch."
  (looking-at (concat "[ \t]*\\(?:" dovrelscript--closer "\\|" dovrelscript--branch "\\|[])}]\\)")))

(defun dovrelscript--indentation ()
  "The column at which the line of point should begin."
  (save-excursion
    (beginning-of-line)
    (let ((steps (if (dovrelscript--steps-out-p) -1 0))
          (column 0))
      (when (re-search-backward "^[ \t]*[^ \t\n]" nil t)
        (beginning-of-line)
        (setq column (current-indentation))
        (let ((opened (dovrelscript--opened (line-end-position))))
          (when (dovrelscript--steps-out-p) (setq opened (1+ opened)))
          (setq steps (+ steps (cond ((> opened 0) 1) ((< opened 0) -1) (t 0))))))
      (max 0 (+ column (* steps dovrelscript-indent))))))

(defun dovrelscript-indent-line ()
  "Indent the line of point."
  (interactive)
  (unless (nth 3 (syntax-ppss (line-beginning-position)))
    (let ((back (- (current-column) (current-indentation))))
      (indent-line-to (dovrelscript--indentation))
      (when (> back 0) (move-to-column (+ (current-indentation) back))))))

(add-to-list 'compilation-error-regexp-alist-alist
             '(dovrel "^\\(.+?\\):\\([0-9]+\\):\\([0-9]+\\): \\(?:error\\|\\(warning\\)\\) [EW][0-9]+:"
                      1 2 3 (4)))
(add-to-list 'compilation-error-regexp-alist 'dovrel)

;;;###autoload
(define-derived-mode dovrelscript-mode prog-mode "DovrelScript"
  "Major mode for DovrelScript files."
  (setq-local comment-start "@@ ")
  (setq-local comment-start-skip "@@+[ \t]*")
  (setq-local comment-end "")
  (setq-local indent-tabs-mode nil)
  (setq-local tab-width dovrelscript-indent)
  (setq-local indent-line-function #'dovrelscript-indent-line)
  (setq-local electric-indent-chars (append "])}\n" electric-indent-chars))
  (setq-local font-lock-defaults '(dovrelscript-font-lock-keywords))
  (setq-local imenu-generic-expression
              '((nil "^[ \t]*\\(?:\\(?:decay\\|native\\|local\\)[ \t]+\\)?function[ \t]+\\([^( \t]+\\)" 1)))
  (when buffer-file-name
    (setq-local compile-command
                (concat dovrelscript-program " check "
                        (shell-quote-argument (file-name-nondirectory buffer-file-name))))))

;;;###autoload
(add-to-list 'auto-mode-alist '("\\.dv\\'" . dovrelscript-mode))

(defvar eglot-server-programs)
(with-eval-after-load 'eglot
  (add-to-list 'eglot-server-programs
               `(dovrelscript-mode . ,(lambda (&rest _) (list dovrelscript-program "lsp")))))

(provide 'dovrelscript-mode)
;;; dovrelscript-mode.el ends here
