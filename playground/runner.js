// The interpreter as the page uses it: workers that run, stop, check and lay out.

const kLongestLine = 64 * 1024;

/** Downloads and compiles the module, once for all workers. */
export async function loadModule(url) {
    const answer = await fetch(url);
    if (!answer.ok) throw new Error(`${url}: ${answer.status}`);
    // A server that calls the file something else cannot be compiled from as it comes in.
    return answer.headers.get("Content-Type")?.startsWith("application/wasm")
        ? WebAssembly.compileStreaming(answer)
        : WebAssembly.compile(await answer.arrayBuffer());
}

function makeWorker() {
    return new Worker(new URL("worker.js", import.meta.url), { type: "module" });
}

/** Runs one script at a time. */
export class Runner {
    /**
     * @param {WebAssembly.Module} compiled
     * @param {object} host
     * @param {(stream: 1 | 2, text: string) => void} host.output
     * @param {() => void} host.asked  the script waits for a line; `answer` gives it
     * @param {(end: {status?: number, milliseconds?: number, stopped?: string}) => void} host.ended
     */
    constructor(compiled, host) {
        this.#compiled = compiled;
        this.#host = host;
        this.#spare = makeWorker();
    }

    /** Whether a line can be typed while a script runs. Needs two headers from the server. */
    static get canAsk() {
        return globalThis.crossOriginIsolated === true;
    }

    get isRunning() {
        return this.#worker !== null;
    }

    run(script, input, files) {
        this.stop(null);
        this.#worker = this.#spare ?? makeWorker();
        this.#spare = null;
        this.#shared = Runner.canAsk ? new SharedArrayBuffer(8 + kLongestLine) : null;
        const decoders = { 1: new TextDecoder(), 2: new TextDecoder() };
        this.#worker.onmessage = ({ data }) => this.#receive(data, decoders);
        this.#worker.onerror = (event) => this.#end({ stopped: event.message || "the worker failed" });
        this.#worker.postMessage({
            kind: "run", compiled: this.#compiled, script, input, files, shared: this.#shared,
        });
    }

    /** Ends the run, if there is one; null tells nobody. */
    stop(reason = "Stopped.") {
        if (this.#worker !== null) this.#end(reason === null ? null : { stopped: reason });
    }

    /** The line that the script waits for; null for the end of the input. */
    answer(line) {
        const control = new Int32Array(this.#shared, 0, 2);
        if (line === null) {
            control[1] = -1;
        } else {
            const bytes = new TextEncoder().encode(line).subarray(0, kLongestLine);
            new Uint8Array(this.#shared, 8).set(bytes);
            control[1] = bytes.length;
        }
        Atomics.store(control, 0, 1);
        Atomics.notify(control, 0);
    }

    #compiled;
    #host;
    #worker = null;
    #spare = null; // the next run's, made ahead
    #shared = null;

    #receive(message, decoders) {
        switch (message.kind) {
            case "output":
                this.#host.output(
                    message.stream,
                    decoders[message.stream].decode(message.bytes, { stream: true }),
                );
                break;
            case "input":
                this.#host.asked();
                break;
            case "end":
                this.#end(message);
                break;
            case "failure":
                this.#end({ stopped: message.message });
                break;
        }
    }

    #end(how) {
        this.#worker.onmessage = this.#worker.onerror = null;
        this.#worker.terminate();
        this.#worker = null;
        this.#spare ??= makeWorker();
        if (how !== null) this.#host.ended(how);
    }
}

/** Checks and lays out, in a worker of its own. */
export class Checker {
    constructor(compiled) {
        this.#compiled = compiled;
    }

    /** What `dovrel check` says, as Interpreter.check gives it. */
    check(script) {
        return this.#ask("check", script);
    }

    /** The script in the one layout; rejects with the reason if there is none. */
    format(script) {
        return this.#ask("format", script);
    }

    #compiled;
    #worker = makeWorker();
    #asked = 0;
    #waiting = new Map();

    #ask(task, script) {
        const id = ++this.#asked;
        this.#worker.onmessage = ({ data }) => {
            const waiting = this.#waiting.get(data.id);
            this.#waiting.delete(data.id);
            if (!waiting) return;
            if (data.error === undefined) waiting.resolve(data.result);
            else waiting.reject(new Error(data.error));
        };
        this.#worker.postMessage({ kind: "ask", id, task, script, compiled: this.#compiled });
        return new Promise((resolve, reject) => this.#waiting.set(id, { resolve, reject }));
    }
}
