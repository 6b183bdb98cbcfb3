// The tour beside the editor. Its steps are made from docs/tour.md when the page is built.
import { colouredPieces, paint } from "./highlight.js";

export class Tour {
    /** @param {{take: (script: string) => void}} host  is given a script to try */
    constructor(steps, host) {
        this.#steps = steps;
        this.#host = host;
        this.#choice.append(
            ...steps.map(({ title }, i) => new Option(`${i + 1}. ${title}`, String(i))),
        );
        this.#choice.addEventListener("change", () => this.#go(Number(this.#choice.value)));
        this.#back.addEventListener("click", () => this.#go(this.#step - 1));
        this.#next.addEventListener("click", () => this.#go(this.#step + 1));
        this.#text.addEventListener("click", (event) => this.#follow(event));
        this.#go(0, false);
    }

    #steps;
    #host;
    #step = 0;
    #panel = document.getElementById("tour");
    #title = document.getElementById("tour-title");
    #text = document.getElementById("tour-text");
    #choice = document.getElementById("tour-step");
    #back = document.getElementById("tour-back");
    #next = document.getElementById("tour-next");

    #go(step, moves = true) {
        this.#step = step;
        const { title, html } = this.#steps[step];
        this.#title.textContent = title;
        // Made from our own document by our own build.
        this.#text.innerHTML = html;
        for (const code of this.#text.querySelectorAll("pre.script")) this.#addTry(code);
        this.#choice.value = String(step);
        this.#back.disabled = step === 0;
        this.#next.disabled = step === this.#steps.length - 1;
        this.#panel.scrollTop = 0;
        if (moves) this.#title.focus({ preventScroll: true });
    }

    #addTry(code) {
        const script = code.textContent;
        code.replaceChildren(paint(script, colouredPieces(script)));
        const button = document.createElement("button");
        button.type = "button";
        button.textContent = "Try it";
        button.addEventListener("click", () => this.#host.take(script));
        code.after(button);
    }

    #follow(event) {
        const target = event.target.closest("a[data-step]");
        if (!target) return;
        event.preventDefault();
        this.#go(Number(target.dataset.step));
    }
}
