// The page: what its buttons and keys do.
import { Editor } from "./editor.js";
import { fragmentOf, scriptIn } from "./link.js";
import { Checker, loadModule, Runner } from "./runner.js";
import { Tour } from "./tour.js";

const kCheckAfter = 300; // milliseconds without a key
const kShowAfter = 50; // milliseconds
const kWelcome = `@@ Press Run, or Ctrl+Enter.
words = ["one", "two", "three"]
for i, word in ipairs(words)
    print(i, word)
end
`;

const at = (id) => document.getElementById(id);
const status = at("status");
const output = at("output");
const asking = at("asking");

let runner = null;
let checker = null;
let files = {}; // beside the script, of an example
let errors = ""; // what the run has written to standard error
let unshown = []; // output that is not on the page yet
let showing = null;
let checksDue = 0;
let checksAsked = 0;

function say(text, isError = false) {
    status.textContent = text;
    status.classList.toggle("error", isError);
}

const editor = new Editor({
    changed() {
        clearTimeout(checksDue);
        checksDue = setTimeout(check, kCheckAfter);
    },
});

// ---------------------------------------------------------------- running

function setRunning(isRunning) {
    at("run").disabled = isRunning || runner === null;
    at("stop").disabled = !isRunning;
    asking.hidden = true;
}

function run() {
    if (runner === null || runner.isRunning) return;
    clearOutput();
    editor.markFailed(null);
    say("Running.");
    setRunning(true);
    const typed = at("input").value;
    runner.run(editor.text, typed === "" || typed.endsWith("\n") ? typed : typed + "\n", files);
}

function clearOutput() {
    showOutput();
    output.replaceChildren();
    errors = "";
}

/** Shows output a little later, together with what else comes until then. */
function write(stream, text) {
    if (stream === 2) errors += text;
    const last = unshown.at(-1);
    if (last?.stream === stream) last.text += text;
    else unshown.push({ stream, text });
    showing ??= setTimeout(showOutput, kShowAfter);
}

function showOutput() {
    clearTimeout(showing);
    showing = null;
    if (unshown.length === 0) return;
    const isAtEnd = output.scrollTop + output.clientHeight >= output.scrollHeight - 4;
    for (const { stream, text } of unshown) {
        if (stream === 1) {
            output.append(text);
            continue;
        }
        const error = document.createElement("span");
        error.className = "error";
        error.textContent = text;
        output.append(error);
    }
    unshown = [];
    if (isAtEnd) output.scrollTop = output.scrollHeight;
}

function ended({ status: code, milliseconds, stopped }) {
    showOutput();
    setRunning(false);
    const report = /^ {2}at line (\d+)/m.exec(errors);
    if (stopped) {
        say(stopped);
    } else if (code === 0) {
        say(`Finished in ${milliseconds.toFixed(milliseconds < 10 ? 1 : 0)} ms.`);
    } else if (report) {
        const line = Number(report[1]);
        editor.markFailed(line);
        say(`Error in line ${line}: ${/(?:DovrelScript error|dovrelscript): (?!DovrelScript error)(.*)/.exec(errors)?.[1] ?? ""}`, true);
    } else {
        say(`Ended with status ${code}.`, true);
    }
}

function asked() {
    showOutput();
    asking.hidden = false;
    say("The script waits for a line.");
    at("line").focus();
}

function answer(line) {
    asking.hidden = true;
    if (line !== null) write(1, `${line}\n`);
    say("Running.");
    runner.answer(line);
    at("line").value = "";
    output.focus();
}

// ---------------------------------------------------------------- checks and layout

/** Turns the offsets of findings from bytes of UTF-8 into units of the text. */
function placeFindings(findings, script) {
    if (!/[^\x00-\x7f]/.test(script)) return findings;
    const bytes = new TextEncoder().encode(script);
    const decoder = new TextDecoder();
    const unitsBefore = (offset) => decoder.decode(bytes.subarray(0, offset)).length;
    return findings.map((finding) => ({
        ...finding,
        first: unitsBefore(finding.first),
        last: unitsBefore(finding.last),
    }));
}

function showFindings(findings) {
    const count = findings.length;
    at("findings-status").textContent =
        count === 0 ? "Nothing found." : count === 1 ? "One finding." : `${count} findings.`;
    at("findings").replaceChildren(
        ...findings.map((finding) => {
            const item = document.createElement("li");
            const button = document.createElement("button");
            const kind = document.createElement("b");
            button.type = "button";
            button.className = finding.severity;
            button.title = finding.explanation;
            kind.textContent = `Line ${finding.line}, ${finding.severity} ${finding.code}: `;
            button.append(kind, finding.message);
            button.addEventListener("click", () => editor.goTo(finding.first));
            item.append(button);
            return item;
        }),
    );
}

async function check() {
    if (checker === null) return;
    const asked = ++checksAsked;
    const script = editor.text;
    try {
        const findings = placeFindings(await checker.check(script), script);
        if (asked !== checksAsked || script !== editor.text) return;
        editor.markFindings(findings);
        showFindings(findings);
    } catch (error) {
        at("findings-status").textContent = `The checks failed: ${error.message}`;
    }
}

async function format() {
    const script = editor.text;
    try {
        const formatted = await checker.format(script);
        if (script !== editor.text) return;
        editor.replace(formatted);
        say(formatted === script ? "It is laid out already." : "Laid out.");
    } catch (error) {
        say(`It cannot be laid out: ${error.message}`, true);
    }
}

// ---------------------------------------------------------------- scripts from elsewhere

/** Another script, with the files and the input that belong to it. */
function take(script, { files: beside = {}, input = "" } = {}) {
    runner?.stop();
    files = beside;
    at("input").value = input;
    clearOutput();
    editor.text = script;
}

async function copyLink() {
    history.replaceState(null, "", await fragmentOf(editor.text));
    try {
        await navigator.clipboard.writeText(location.href);
        say("The link is copied.");
    } catch {
        say("The link is in the address of this page.");
    }
}

async function takeLink() {
    const script = await scriptIn(location.hash);
    if (script !== null) take(script);
    else if (location.hash.startsWith("#script=")) say("The link holds no script.", true);
    return script !== null;
}

async function loadExamples() {
    const examples = await (await fetch("examples.json")).json();
    at("examples").append(...examples.map(({ name, title }) => new Option(title, name)));
    at("examples").addEventListener("change", () => {
        const example = examples.find(({ name }) => name === at("examples").value);
        if (!example) return;
        take(example.script, example);
        say(`${example.title}.`);
    });
}

async function loadTour() {
    const steps = await (await fetch("tour.json")).json();
    new Tour(steps, {
        take(script) {
            take(script);
            run();
        },
    });
    at("show-tour").addEventListener("click", () => {
        const isShown = at("tour").hidden;
        at("tour").hidden = !isShown;
        document.querySelector("main").classList.toggle("touring", isShown);
        at("show-tour").setAttribute("aria-expanded", String(isShown));
        if (isShown) at("tour-title").focus();
    });
}

// ---------------------------------------------------------------- the start

at("run").addEventListener("click", run);
at("stop").addEventListener("click", () => runner?.stop());
at("format").addEventListener("click", format);
at("link").addEventListener("click", copyLink);
at("end-of-input").addEventListener("click", () => answer(null));
asking.addEventListener("submit", (event) => {
    event.preventDefault();
    answer(at("line").value);
});
addEventListener("hashchange", takeLink);
addEventListener("keydown", (event) => {
    if (event.key === "Enter" && (event.ctrlKey || event.metaKey)) {
        event.preventDefault();
        run();
    }
});
at("input-help").textContent = Runner.canAsk
    ? "What the script reads from standard input. If this is empty, it asks for each line."
    : "What the script reads from standard input.";

if (!(await takeLink())) editor.text = kWelcome;
loadExamples().catch((error) => say(`The examples cannot be loaded: ${error.message}`, true));
loadTour().catch((error) => say(`The tour cannot be loaded: ${error.message}`, true));
try {
    const compiled = await loadModule(new URL("dovrelscript.wasm", import.meta.url));
    runner = new Runner(compiled, { output: write, asked, ended });
    checker = new Checker(compiled);
    say("Ready.");
    performance.mark("ready");
    setRunning(false);
    at("format").disabled = false;
    check();
} catch (error) {
    say(`The interpreter cannot be loaded: ${error.message}`, true);
}
