// The interpreter's module with a face that has no pointers in it. It works wherever modules of
// JavaScript do: in the page's workers, and in Node for the tests.
import createModule from "./dovrelscript.mjs";

const kFolder = "/script";
const kFailure = 1;

class ModuleAborted extends Error {}

/**
 * One instance of the interpreter. It runs one script and is done; checks and layout may be asked
 * any number of times.
 */
export class Interpreter {
    /**
     * @param {WebAssembly.Module} compiled  the module, which is compiled once for all instances
     * @param {object} [host]
     * @param {(stream: 1 | 2, bytes: Uint8Array) => false | void} [host.write]  takes what is
     *     written to standard output (1) and standard error (2); the bytes are its own. False ends
     *     the run
     * @param {Uint8Array} [host.input]  all of standard input
     * @param {() => Uint8Array | null} [host.askLine]  gives the next line of standard input,
     *     without its line feed, or null at the end; in place of `input`
     */
    static async create(compiled, { write = () => {}, input, askLine } = {}) {
        const made = new Interpreter();
        made.#write = write;
        made.#input = input ?? new Uint8Array();
        made.#asks = askLine !== undefined;
        made.#module = await createModule({
            noInitialRun: true,
            instantiateWasm(imports, done) {
                const instance = new WebAssembly.Instance(compiled, imports);
                done(instance);
                return instance.exports;
            },
            askLine,
            stdin: () => made.#input[made.#read++] ?? null,
            stdout: (byte) => made.#put(1, Uint8Array.of(byte)),
            stderr: (byte) => made.#put(2, Uint8Array.of(byte)),
            print() {},
            printErr() {},
            // Destructors that find no stack either end here, before anybody else is told.
            onAbort(reason) {
                throw new ModuleAborted(String(reason));
            },
            quit(status, leave) {
                made.#status ??= status;
                throw leave;
            },
        });
        const { FS } = made.#module;
        // Whole pieces, where the devices would take a call for each byte.
        for (const stream of [1, 2]) {
            FS.streams[stream].stream_ops = {
                ...FS.streams[stream].stream_ops,
                write(_, heap, offset, length) {
                    const first = heap.byteOffset + offset;
                    made.#put(stream, new Uint8Array(heap.buffer.slice(first, first + length)));
                    return length;
                },
            };
        }
        FS.mkdir(kFolder);
        FS.chdir(kFolder);
        return made;
    }

    /** Puts a file, with the folders on its way, where the script runs. */
    addFile(path, bytes) {
        const { FS } = this.#module;
        const folders = path.split("/").slice(0, -1);
        folders.forEach((_, i) => {
            const folder = folders.slice(0, i + 1).join("/");
            if (!FS.analyzePath(folder).exists) FS.mkdir(folder);
        });
        FS.writeFile(path, bytes);
    }

    /** Runs a file that has been added, as the command line does. Gives the exit status. */
    run(path) {
        const name = this.#place(new TextEncoder().encode(path + "\0"));
        try {
            return this.#leave(() => this.#module._playground_run(name, this.#asks));
        } catch (error) {
            // The stack on which the browser has the module's calls.
            if (!(error instanceof RangeError || error instanceof ModuleAborted)) throw error;
            this.#leave(() => this.#module._playground_stack_end());
            return this.#status ?? kFailure;
        }
    }

    /** What is to be said about a script; see playground_check. Offsets count bytes of UTF-8. */
    check(text) {
        this.#withText(text, "_playground_check");
        return JSON.parse(this.#answer());
    }

    /** The script in the one layout; an Error says why there is none. */
    format(text) {
        if (this.#withText(text, "_playground_format")) return this.#answer();
        throw new Error(this.#answer());
    }

    #module;
    #write;
    #status = null; // of a script that has ended the process
    #input;
    #read = 0; // of it
    #asks;

    #put(stream, bytes) {
        // Who leaves the process leaves nothing behind.
        if (this.#status !== null || this.#write(stream, bytes) !== false) return;
        this.#status = kFailure;
        throw new Error("nobody takes the output");
    }

    /** The result of `call`, or the status of the process if that has ended there. */
    #leave(call) {
        try {
            return call();
        } catch (error) {
            if (this.#status === null) throw error;
            return this.#status;
        }
    }

    #place(bytes) {
        const address = this.#module._malloc(bytes.length + 1);
        this.#module.HEAPU8.set(bytes, address);
        return address;
    }

    #withText(text, name) {
        const bytes = new TextEncoder().encode(text);
        const address = this.#place(bytes);
        try {
            return this.#module[name](address, bytes.length);
        } finally {
            this.#module._free(address);
        }
    }

    #answer() {
        const first = this.#module._playground_answer();
        const last = first + this.#module._playground_answer_size();
        return new TextDecoder().decode(this.#module.HEAPU8.subarray(first, last));
    }
}
