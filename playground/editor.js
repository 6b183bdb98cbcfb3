// The editor: a plain text area, so that the browser's own keys, undo and screen readers work, above
// a layer with the same text in colours.
import { colouredPieces, paint } from "./highlight.js";

const kIndent = "    ";
const kMostColoured = 100_000; // beyond it the text is shown without colours

export class Editor {
    /** @param {{changed: () => void}} host */
    constructor(host) {
        this.#host = host;
        this.#area.addEventListener("input", () => {
            this.#failedLine = null;
            this.#findings = [];
            this.#draw();
            this.#host.changed();
        });
        this.#area.addEventListener("scroll", () => this.#follow());
        this.#area.addEventListener("keydown", (event) => this.#keyDown(event));
        this.#area.addEventListener("focus", () => (this.#tabLeaves = false));
        new ResizeObserver(() => this.#follow()).observe(this.#area);
        this.#draw();
    }

    get text() {
        return this.#area.value;
    }

    /** Another script. It can be undone, for what stood there may be somebody's work. */
    set text(text) {
        if (this.text === "") {
            // The focus stays where it is: at the start of the page when that is loaded.
            this.#area.value = text;
            this.#area.setSelectionRange(0, 0);
            this.#area.dispatchEvent(new Event("input"));
            return;
        }
        const focused = document.activeElement;
        this.#area.focus({ preventScroll: true });
        this.#area.select();
        this.#insert(text);
        this.#area.setSelectionRange(0, 0);
        this.#area.scrollTo(0, 0);
        if (focused !== this.#area) {
            this.#area.blur();
            focused?.focus({ preventScroll: true });
        }
    }

    /** The same script, written otherwise: it can be undone, and the place is kept by its line. */
    replace(text) {
        if (text === this.text) return;
        const line = this.#lineOf(this.#area.selectionStart);
        const top = this.#area.scrollTop;
        this.#area.focus();
        this.#area.select();
        this.#insert(text);
        const place = this.#offsetOfLine(line);
        this.#area.setSelectionRange(place, place);
        this.#area.scrollTop = top;
    }

    /** Marks a 1-based line as the one that has failed, and shows it. */
    markFailed(line) {
        this.#failedLine = line;
        this.#draw();
        if (line !== null) this.#show(line);
    }

    /** Marks what the checks have found: objects with `first`, `last`, `line` and `severity`. */
    markFindings(findings) {
        this.#findings = findings;
        this.#draw();
    }

    /** Puts the cursor to an offset and shows it. */
    goTo(offset) {
        this.#area.focus();
        this.#area.setSelectionRange(offset, offset);
        this.#show(this.#lineOf(offset));
    }

    goToLine(line) {
        this.goTo(this.#offsetOfLine(line));
    }

    #host;
    #area = document.getElementById("script");
    #colours = document.getElementById("colours");
    #gutter = document.getElementById("gutter");
    #failedLine = null;
    #findings = [];
    #tabLeaves = false; // after Escape, until the editor is left

    #keyDown(event) {
        if (event.key === "Escape") {
            this.#tabLeaves = true;
            return;
        }
        const plain = !event.ctrlKey && !event.altKey && !event.metaKey && !event.isComposing;
        if (event.key === "Tab" && plain && !this.#tabLeaves) {
            event.preventDefault();
            this.#indent(event.shiftKey);
        } else if (event.key === "Enter" && plain && !event.shiftKey) {
            const start = this.#area.selectionStart;
            const line = this.text.slice(this.text.lastIndexOf("\n", start - 1) + 1, start);
            event.preventDefault();
            this.#insert("\n" + /^[ \t]*/.exec(line)[0]);
        }
    }

    #indent(back) {
        const { selectionStart: start, selectionEnd: end } = this.#area;
        const first = this.text.lastIndexOf("\n", start - 1) + 1;
        if (!back && start === end) {
            this.#insert(kIndent.slice((start - first) % kIndent.length));
            return;
        }
        const lines = this.text.slice(first, Math.max(end, first)).split("\n");
        const moved = lines.map((line) =>
            back ? line.replace(/^( {1,4}|\t)/, "") : line === "" ? line : kIndent + line,
        );
        if (moved.join() === lines.join()) return;
        this.#area.setSelectionRange(first, Math.max(end, first));
        this.#insert(moved.join("\n"));
        this.#area.setSelectionRange(first, first + moved.join("\n").length);
    }

    /** In place of what is selected. The command, though an old one, is the only way to keep undo. */
    #insert(text) {
        const command = text === "" ? "delete" : "insertText";
        if (document.execCommand(command, false, text)) return;
        this.#area.setRangeText(text, this.#area.selectionStart, this.#area.selectionEnd, "end");
        this.#area.dispatchEvent(new Event("input"));
    }

    #lineOf(offset) {
        return this.text.slice(0, offset).split("\n").length;
    }

    #offsetOfLine(line) {
        let offset = 0;
        for (let i = 1; i < line; ++i) {
            const next = this.text.indexOf("\n", offset);
            if (next < 0) return offset;
            offset = next + 1;
        }
        return offset;
    }

    #show(line) {
        const height = parseFloat(getComputedStyle(this.#area).lineHeight);
        const y = (line - 1) * height;
        const { scrollTop, clientHeight } = this.#area;
        if (y < scrollTop || y + 2 * height > scrollTop + clientHeight) {
            this.#area.scrollTop = Math.max(0, y - clientHeight / 2);
        }
        this.#follow();
    }

    #draw() {
        const text = this.text;
        const isColoured = text.length <= kMostColoured;
        this.#area.classList.toggle("plain", !isColoured);
        const marks = [];
        for (const { first, last, severity } of this.#findings) {
            marks.push([first, Math.max(last, first + 1), `wave ${severity}`]);
        }
        if (this.#failedLine !== null) {
            const first = this.#offsetOfLine(this.#failedLine);
            const end = text.indexOf("\n", first);
            marks.push([first, end < 0 ? text.length : end, "failed"]);
        }
        // A line feed at the end shows a line only if something follows.
        this.#colours.replaceChildren(
            isColoured ? paint(text, colouredPieces(text), marks) : "",
            "\n",
            ...this.#failedBar(),
        );
        this.#drawGutter(text.split("\n").length);
        this.#follow();
    }

    /** What colours the whole of the line that has failed, and not its text alone. */
    #failedBar() {
        if (this.#failedLine === null) return [];
        const style = getComputedStyle(this.#area);
        const bar = document.createElement("div");
        bar.id = "failed-line";
        bar.style.top = `${parseFloat(style.paddingTop) + (this.#failedLine - 1) * parseFloat(style.lineHeight)}px`;
        bar.style.width = `${this.#area.scrollWidth}px`;
        return [bar];
    }

    #drawGutter(count) {
        const kinds = new Map();
        for (const { line, severity } of this.#findings) {
            if (kinds.get(line) !== "error") kinds.set(line, severity);
        }
        if (this.#failedLine !== null) kinds.set(this.#failedLine, "error");
        const nodes = [];
        let plain = "";
        for (let line = 1; line <= count; ++line) {
            const kind = kinds.get(line);
            if (!kind) {
                plain += `${line}\n`;
                continue;
            }
            const mark = document.createElement("span");
            mark.className = kind;
            mark.textContent = `${kind === "error" ? "✖" : "▲"} ${line}\n`;
            nodes.push(plain, mark);
            plain = "";
        }
        this.#gutter.replaceChildren(...nodes, plain);
    }

    #follow() {
        this.#colours.scrollTop = this.#gutter.scrollTop = this.#area.scrollTop;
        this.#colours.scrollLeft = this.#area.scrollLeft;
    }
}
