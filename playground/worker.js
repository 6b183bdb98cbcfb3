// Runs one script, or answers checks and layout; a run that does not end is ended together with its
// worker.
import { Interpreter } from "./interpreter.js";

const kChunk = 64 * 1024;
const kMilliseconds = 40;
/// A script that prints without end would take the memory of the page.
const kMostOutput = 1024 * 1024;

/** Gathers output, so that a message goes for many lines and not for each one. */
class Output {
    #bytes = new Uint8Array(kChunk);
    #size = 0;
    #stream = 1;
    #total = 0;
    #sent = performance.now();

    /** False once it has been too much. */
    write(stream, bytes) {
        if (stream !== this.#stream || this.#size + bytes.length > kChunk) this.send();
        this.#stream = stream;
        this.#total += bytes.length;
        if (bytes.length > kChunk) {
            postMessage({ kind: "output", stream, bytes });
        } else {
            this.#bytes.set(bytes, this.#size);
            this.#size += bytes.length;
        }
        if (performance.now() - this.#sent >= kMilliseconds) this.send();
        return !this.isTooMuch;
    }

    get isTooMuch() {
        return this.#total > kMostOutput;
    }

    send() {
        if (this.#size > 0) {
            const bytes = this.#bytes.slice(0, this.#size);
            postMessage({ kind: "output", stream: this.#stream, bytes });
        }
        this.#size = 0;
        this.#sent = performance.now();
    }
}

/** A function that asks the page for a line; `shared` is where it puts the answer. */
function askerFor(shared, output) {
    // Two numbers, whether there is an answer and its size (negative at the end of the input), and
    // the answer behind them.
    const control = new Int32Array(shared, 0, 2);
    return () => {
        if (control[1] < 0) return null;
        output.send();
        Atomics.store(control, 0, 0);
        postMessage({ kind: "input" });
        Atomics.wait(control, 0, 0);
        return control[1] < 0 ? null : new Uint8Array(shared, 8, control[1]).slice();
    };
}

async function run({ compiled, script, files, input, shared }) {
    const output = new Output();
    const encoder = new TextEncoder();
    const interpreter = await Interpreter.create(compiled, {
        write: (stream, bytes) => output.write(stream, bytes),
        input: encoder.encode(input),
        askLine: shared && input === "" ? askerFor(shared, output) : undefined,
    });
    for (const [path, text] of Object.entries(files)) interpreter.addFile(path, encoder.encode(text));
    interpreter.addFile("script.dv", encoder.encode(script));
    const start = performance.now();
    const status = interpreter.run("script.dv");
    output.send();
    const milliseconds = performance.now() - start;
    const stopped = output.isTooMuch ? "Stopped: it prints too much for this page." : undefined;
    postMessage({ kind: "end", status, milliseconds, stopped });
}

let checker = null;

async function answer({ compiled, id, task, script }) {
    try {
        checker ??= await Interpreter.create(compiled);
        postMessage({ kind: "answer", id, result: checker[task](script) });
    } catch (error) {
        checker = null; // whatever state it is in
        postMessage({ kind: "answer", id, error: error.message });
    }
}

addEventListener("message", ({ data }) => {
    const work = data.kind === "run" ? run(data) : answer(data);
    work.catch((error) => postMessage({ kind: "failure", message: String(error) }));
});
