// Runs script tests in a browser's worker, where the stack is another one than in Node. It gets the
// module and the cases, and gives what each of them has written.
import { Interpreter } from "/interpreter.js";

const bytesOf = (text) => Uint8Array.from(atob(text), (character) => character.charCodeAt(0));

function textOf(pieces) {
    let binary = "";
    for (const bytes of pieces) for (const byte of bytes) binary += String.fromCharCode(byte);
    return btoa(binary);
}

async function outcome(compiled, { name, script, input, files }) {
    const pieces = { 1: [], 2: [] };
    const interpreter = await Interpreter.create(compiled, {
        write: (stream, bytes) => pieces[stream].push(bytes),
        input: bytesOf(input),
    });
    for (const [path, content] of Object.entries(files)) interpreter.addFile(path, bytesOf(content));
    interpreter.addFile(name, bytesOf(script));
    const status = interpreter.run(name);
    return { out: textOf(pieces[1]), err: textOf(pieces[2]), status };
}

addEventListener("message", async ({ data: { compiled, cases } }) => {
    const outcomes = [];
    for (const one of cases) {
        try {
            outcomes.push(await outcome(compiled, one));
        } catch (error) {
            outcomes.push({ out: "", err: btoa("failed"), status: -1, failure: String(error) });
        }
    }
    postMessage(outcomes);
});
