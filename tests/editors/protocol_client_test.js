// The library by which VS Code speaks to language servers, against `dovrel lsp`: what it sends and
// what it understands.
//   node protocol_client_test.js DOVREL
"use strict";
const assert = require("node:assert");
const { spawn } = require("node:child_process");
const { once } = require("node:events");
const protocol = require("vscode-languageserver-protocol/node");

const URI = "file:///nowhere/main.dv";
const TEXT = "function increased(number)\n  return number + 1\nend\n\nx = incr\nif x then\nend\n";

async function main(program) {
  const server = spawn(program, ["lsp"], { stdio: ["pipe", "pipe", "inherit"] });
  const connection = protocol.createProtocolConnection(
    new protocol.StreamMessageReader(server.stdout),
    new protocol.StreamMessageWriter(server.stdin),
  );
  const failures = [];
  connection.onError((error) => failures.push(error));
  connection.onUnhandledNotification((message) => failures.push(message));
  const found = new Promise((resolve) =>
    connection.onNotification(protocol.PublishDiagnosticsNotification.type, resolve),
  );
  connection.onRequest(protocol.RegistrationRequest.type, () => {});
  connection.listen();

  const { capabilities } = await connection.sendRequest(protocol.InitializeRequest.type, {
    processId: process.pid,
    rootUri: null,
    capabilities: {},
    workspaceFolders: null,
  });
  const ask = (type, more) => connection.sendRequest(type, { textDocument: { uri: URI }, ...more });
  await connection.sendNotification(protocol.InitializedNotification.type, {});
  await connection.sendNotification(protocol.DidOpenTextDocumentNotification.type, {
    textDocument: { uri: URI, languageId: "dovrelscript", version: 1, text: TEXT },
  });

  const { uri, diagnostics } = await found;
  assert.strictEqual(uri, URI);
  const mistake = diagnostics.find((one) => one.severity === protocol.DiagnosticSeverity.Error);
  assert.deepStrictEqual(mistake.range.start, { line: 5, character: 5 });

  const offered = await ask(protocol.CompletionRequest.type, { position: { line: 4, character: 8 } });
  const item = (offered.items ?? offered).find((one) => one.label === "increased");
  assert.strictEqual(item.kind, protocol.CompletionItemKind.Function);

  const symbols = await ask(protocol.DocumentSymbolRequest.type);
  assert.deepStrictEqual(symbols.map((one) => one.name), ["increased", "x"]);

  const places = await ask(protocol.ReferencesRequest.type, {
    position: { line: 0, character: 10 },
    context: { includeDeclaration: true },
  });
  assert.deepStrictEqual(places.map((one) => one.range.start.line), [0]);

  const { legend } = capabilities.semanticTokensProvider;
  const { data } = await ask(protocol.SemanticTokensRequest.type);
  assert.strictEqual(data.length % 5, 0);
  assert.ok(data.length > 0 && data.every((n, i) => i % 5 !== 3 || n < legend.tokenTypes.length));

  // A change in the middle, as an editor sends it.
  await connection.sendNotification(protocol.DidChangeTextDocumentNotification.type, {
    textDocument: { uri: URI, version: 2 },
    contentChanges: [
      { range: { start: { line: 5, character: 4 }, end: { line: 5, character: 9 } }, text: "" },
    ],
  });
  const edits = await ask(protocol.DocumentFormattingRequest.type, {
    options: { tabSize: 4, insertSpaces: true },
  });
  const place = { line: 1, character: 2 };
  assert.deepStrictEqual(edits, [{ range: { start: place, end: place }, newText: "  " }]);

  await connection.sendRequest(protocol.ShutdownRequest.type);
  await connection.sendNotification(protocol.ExitNotification.type);
  const [status] = await once(server, "exit");
  assert.strictEqual(status, 0);
  assert.deepStrictEqual(failures, []);
  console.log("protocol client: passed");
}

main(process.argv[2]).catch((error) => {
  console.error(error);
  process.exit(1);
});
