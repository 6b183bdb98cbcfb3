#!/usr/bin/env python3
"""Puts the page together in a folder: the files beside this one, the module, and what is made from
the examples and the tour.

    make_site.py BUILD SITE

BUILD has dovrelscript.mjs and dovrelscript.wasm.
"""

import html
import json
import re
import shutil
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent
PAGE = ("*.html", "*.css", "*.js")
MODULE = ("dovrelscript.mjs", "dovrelscript.wasm")
# There are no commands in a browser.
COMMANDS = "popen"


def examples():
    """Those that are one file, by their name, with the input and the files that their tests give."""
    found = []
    for path in sorted((ROOT / "examples").glob("*.dv")):
        script = path.read_text(encoding="utf-8")
        if COMMANDS in script:
            continue
        beside = ROOT / "tests" / "examples" / path.stem
        entry = {"name": path.stem, "title": path.stem.replace("_", " ").capitalize(), "script": script}
        if beside.with_suffix(".in").is_file():
            entry["input"] = beside.with_suffix(".in").read_text(encoding="utf-8")
        folder = beside.with_suffix(".files")
        if folder.is_dir():
            entry["files"] = {
                file.relative_to(folder).as_posix(): file.read_text(encoding="utf-8")
                for file in sorted(folder.rglob("*"))
                if file.is_file()
            }
        found.append(entry)
    return found


def anchor(title):
    """As the hosts of repositories make it of a heading."""
    return re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")


class Converter:
    """From the part of Markdown that the tour is written in to HTML."""

    def __init__(self, steps):
        self.steps = steps  # anchors to numbers of steps

    def inline(self, text):
        """Code, bold, emphasis and links. What is code is left alone by the others."""
        codes = []

        def keep(match):
            codes.append(f"<code>{html.escape(match[2].strip())}</code>")
            return f"\0{len(codes) - 1}\0"

        text = re.sub(r"(?<!`)(`+)(?!`)(.+?)(?<!`)\1(?!`)", keep, text, flags=re.DOTALL)
        text = html.escape(text, quote=False)
        text = re.sub(r"\[([^\[\]]*)\]\(([^)\s]+)\)", self.link, text)
        text = re.sub(r"\*\*(.+?)\*\*", r"<strong>\1</strong>", text, flags=re.DOTALL)
        text = re.sub(r"(?<!\w)\*(?! )(.+?)(?<! )\*(?!\w)", r"<em>\1</em>", text, flags=re.DOTALL)
        return re.sub(r"\0(\d+)\0", lambda match: codes[int(match[1])], text)

    def link(self, match):
        target = match[2]
        if target.startswith("#") and target[1:] in self.steps:
            return f'<a href="#" data-step="{self.steps[target[1:]]}">{match[1]}</a>'
        return match[1]  # the other documents are not part of the page

    def convert(self, text):
        lines = text.split("\n")
        parts = []
        while lines:
            line = lines[0]
            if not line.strip():
                lines.pop(0)
            elif line.startswith("```"):
                parts.append(self.code(lines))
            elif line.startswith("#"):
                level = len(line) - len(line.lstrip("#"))
                parts.append(f"<h{level}>{self.inline(lines.pop(0).lstrip('# '))}</h{level}>")
            elif line.startswith("|"):
                parts.append(self.table(lines))
            elif re.match(r"(-|\d+\.) ", line):
                parts.append(self.list(lines))
            else:
                parts.append(f"<p>{self.inline(self.paragraph(lines))}</p>")
        return "\n".join(parts)

    @staticmethod
    def paragraph(lines):
        taken = [lines.pop(0)]
        while lines and lines[0].strip() and not re.match(r"```|#|\||- |\d+\. ", lines[0]):
            taken.append(lines.pop(0))
        return "\n".join(taken)

    @staticmethod
    def code(lines):
        mark = lines.pop(0)[3:].strip()
        end = lines.index("```")
        text = html.escape("\n".join(lines[:end]) + "\n", quote=False)
        del lines[: end + 1]
        kind = ' class="script"' if mark == "dovrelscript" else ""
        return f'<pre tabindex="0"{kind}>{text}</pre>'

    def table(self, lines):
        rows = []
        while lines and lines[0].startswith("|"):
            row = lines.pop(0).strip().strip("|")
            # A bar in code or behind a backslash parts no cells.
            cells = re.split(r"(?<!\\)\|(?=(?:[^`]*`[^`]*`)*[^`]*$)", row)
            rows.append([cell.strip().replace("\\|", "|") for cell in cells])
        head, _, *body = rows

        def cells(row, kind):
            return "".join(f"<{kind}>{self.inline(cell)}</{kind}>" for cell in row)

        return (
            f"<table><thead><tr>{cells(head, 'th')}</tr></thead><tbody>"
            + "".join(f"<tr>{cells(row, 'td')}</tr>" for row in body)
            + "</tbody></table>"
        )

    def list(self, lines):
        kind = "ul" if lines[0].startswith("- ") else "ol"
        items = []
        while lines and re.match(r"(-|\d+\.) ", lines[0]):
            item = [re.sub(r"^(-|\d+\.) ", "", lines.pop(0))]
            while lines and lines[0].startswith(" "):
                item.append(lines.pop(0).strip())
            items.append(f"<li>{self.inline(chr(10).join(item))}</li>")
        return f"<{kind}>{''.join(items)}</{kind}>"


def tour():
    """A step for each section, with its title and its text."""
    text = (ROOT / "docs" / "tour.md").read_text(encoding="utf-8")
    sections, fenced = [], False
    for line in text.split("\n"):
        fenced ^= line.startswith("```")
        if line.startswith("## ") and not fenced:
            sections.append((line[3:], []))
        elif sections:
            sections[-1][1].append(line)
    converter = Converter({anchor(title): step for step, (title, _) in enumerate(sections)})
    return [
        {"title": title, "html": converter.convert("\n".join(lines))} for title, lines in sections
    ]


def main():
    build, site = Path(sys.argv[1]), Path(sys.argv[2])
    site.mkdir(parents=True, exist_ok=True)
    for pattern in PAGE:
        for path in HERE.glob(pattern):
            shutil.copy(path, site)
    for name in MODULE:
        shutil.copy(build / name, site)
    for name, content in (("examples.json", examples()), ("tour.json", tour())):
        (site / name).write_text(json.dumps(content, ensure_ascii=False), encoding="utf-8")


if __name__ == "__main__":
    main()
