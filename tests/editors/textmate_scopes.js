// Prints the scopes of the given scripts as an editor sees them, one JSON object:
//   node textmate_scopes.js GRAMMAR SCRIPT..
// For each script a list of lines, each a list of [start, end, innermost scope].
"use strict";
const fs = require("fs");
const oniguruma = require("vscode-oniguruma");
const textmate = require("vscode-textmate");

async function main([grammarPath, ...scripts]) {
  await oniguruma.loadWASM(fs.readFileSync(require.resolve("vscode-oniguruma/release/onig.wasm")).buffer);
  const registry = new textmate.Registry({
    onigLib: Promise.resolve({
      createOnigScanner: (patterns) => new oniguruma.OnigScanner(patterns),
      createOnigString: (text) => new oniguruma.OnigString(text),
    }),
    loadGrammar: async () =>
      textmate.parseRawGrammar(fs.readFileSync(grammarPath, "utf8"), "grammar.json"),
  });
  const grammar = await registry.loadGrammar("source.dovrelscript");
  const result = {};
  for (const script of scripts) {
    let state = textmate.INITIAL;
    result[script] = fs.readFileSync(script, "utf8").replace(/\n$/, "").split("\n").map((line) => {
      const done = grammar.tokenizeLine(line, state);
      state = done.ruleStack;
      return done.tokens.map((t) => [t.startIndex, t.endIndex, t.scopes[t.scopes.length - 1]]);
    });
  }
  console.log(JSON.stringify(result));
}

main(process.argv.slice(2)).catch((error) => {
  console.error(error);
  process.exit(1);
});
