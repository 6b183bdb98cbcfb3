// Runs the script tests by the playground's module and compares what each one prints with what the
// program prints:
//
//     node run_scripts.mjs MODULES SCRIPTS [CASE..]
//
// MODULES is the folder of the built page. `differences.txt` beside this file names the cases that
// differ, each with its reason.
import { readFileSync, readdirSync, existsSync, statSync } from "node:fs";
import { join, relative, dirname, basename } from "node:path";
import { fileURLToPath, pathToFileURL } from "node:url";

const here = dirname(fileURLToPath(import.meta.url));
const [site, scripts, ...wanted] = process.argv.slice(2);

// The module expects to be in a worker.
globalThis.self ??= { location: { href: pathToFileURL(site).href } };
const { Interpreter } = await import(pathToFileURL(join(site, "interpreter.js")));
const compiled = new WebAssembly.Module(readFileSync(join(site, "dovrelscript.wasm")));

function* filesBelow(folder) {
    for (const entry of readdirSync(folder).sort()) {
        const path = join(folder, entry);
        if (statSync(path).isDirectory()) yield* filesBelow(path);
        else yield path;
    }
}

/** The names in a list with a reason behind each, "area/name  reason", as far as Node goes. */
function leftOut() {
    const names = new Map();
    const list = join(here, "differences.txt");
    for (const line of existsSync(list) ? readFileSync(list, "utf8").split("\n") : []) {
        const [, name, reason] = /^([^#\s]\S*)\s+(.*)$/.exec(line) ?? [];
        if (name && !reason.startsWith("browser:")) names.set(name, reason);
    }
    return names;
}

function read(path, absent = Buffer.alloc(0)) {
    return existsSync(path) ? readFileSync(path) : absent;
}

async function outcome(base) {
    const pieces = { 1: [], 2: [] };
    const interpreter = await Interpreter.create(compiled, {
        write: (stream, bytes) => pieces[stream].push(bytes),
        input: read(`${base}.in`),
    });
    if (existsSync(`${base}.files`)) {
        for (const path of filesBelow(`${base}.files`)) {
            interpreter.addFile(relative(`${base}.files`, path), readFileSync(path));
        }
    }
    const script = `${basename(base)}.dv`;
    interpreter.addFile(script, readFileSync(`${base}.dv`));
    const status = interpreter.run(script);
    return { out: Buffer.concat(pieces[1]), err: Buffer.concat(pieces[2]), status };
}

function firstDifference(label, expected, actual) {
    if (expected.equals(actual)) return [];
    const [before, after] = [expected, actual].map((bytes) => bytes.toString("latin1").split("\n"));
    const at = before.findIndex((line, i) => line !== after[i]);
    const line = at < 0 ? before.length : at;
    const shown = (lines) => JSON.stringify(lines[line] ?? null).slice(0, 300);
    return [`${label}, line ${line + 1}: expected ${shown(before)}, actual ${shown(after)}`];
}

async function problemsOf(base) {
    let got;
    try {
        got = await outcome(base);
    } catch (error) {
        return [String(error?.stack ?? error).slice(0, 500)];
    }
    const status = Number(read(`${base}.status`, "0"));
    const problems = [
        ...firstDifference("standard output", read(`${base}.out`), got.out),
        ...firstDifference("standard error", read(`${base}.err`), got.err),
    ];
    if (status !== got.status) problems.push(`exit status: expected ${status}, actual ${got.status}`);
    return problems;
}

const names = leftOut();
const count = { passed: 0, failed: 0, commandLine: 0, leftOut: 0 };
for (const path of filesBelow(scripts)) {
    const name = relative(scripts, path).replace(/\.dv$/, "");
    if (!path.endsWith(".dv") || name.includes(".files/")) continue;
    if (wanted.length && !wanted.some((want) => name === want || name.startsWith(`${want}/`))) continue;
    const base = join(scripts, name);
    if (existsSync(`${base}.args`)) {
        ++count.commandLine;
        continue;
    }
    const problems = await problemsOf(base);
    if (names.delete(name)) {
        ++count.leftOut;
        if (problems.length > 0) continue;
        problems.push("differences.txt says that it fails, and it passes");
    }
    if (problems.length === 0) {
        ++count.passed;
        continue;
    }
    ++count.failed;
    console.log(`FAILED ${name}\n  ${problems.join("\n  ")}`);
}
if (!wanted.length) {
    for (const name of names.keys()) {
        console.log(`FAILED differences.txt names ${name}, which is no case`);
        ++count.failed;
    }
}
console.log(
    `${count.passed} passed, ${count.failed} failed, ${count.leftOut} differ as differences.txt says; ` +
        `not run: ${count.commandLine} with a command line of their own`,
);
process.exit(count.failed || !count.passed ? 1 : 0);
