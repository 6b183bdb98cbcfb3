// Starts what `dovrel` offers to editors: the language server, the debugger, and tasks.
"use strict";

const path = require("node:path");
const vscode = require("vscode");
const { LanguageClient } = require("vscode-languageclient/node");

/** The commands that are offered as tasks, with what finds their reports. */
const TASKS = [
  { command: "run", matcher: "$dovrel-run", group: undefined },
  { command: "check", matcher: "$dovrel-check", group: vscode.TaskGroup.Build },
  { command: "format", matcher: [], group: undefined },
  { command: "test", matcher: "$dovrel-test", group: vscode.TaskGroup.Test },
];

let client;

/** The program: that of the settings, else the one in PATH. */
function program(scope) {
  const chosen = vscode.workspace.getConfiguration("dovrel", scope).get("path");
  if (!chosen) return "dovrel";
  const folder = vscode.workspace.workspaceFolders?.[0]?.uri.fsPath ?? "";
  return chosen.replace("${workspaceFolder}", folder);
}

async function startServer() {
  if (!vscode.workspace.getConfiguration("dovrel").get("server")) return;
  const executable = { command: program(), args: ["lsp"] };
  client = new LanguageClient(
    "dovrel",
    "DovrelScript",
    { run: executable, debug: executable },
    { documentSelector: [{ language: "dovrelscript" }] },
  );
  try {
    await client.start();
  } catch (error) {
    client = undefined;
    const answer = await vscode.window.showErrorMessage(
      `${executable.command} lsp cannot be started: ${error.message ?? error}`,
      "Settings",
    );
    if (answer) vscode.commands.executeCommand("workbench.action.openSettings", "dovrel.path");
  }
}

async function stopServer() {
  const running = client;
  client = undefined;
  if (running) await running.stop();
}

function taskFor(definition, scope) {
  const known = TASKS.find((task) => task.command === definition.command);
  if (!known) return undefined;
  const given = definition.arguments ?? [];
  const target = definition.command === "test" ? "${workspaceFolder}" : "${file}";
  const words = [definition.command, ...(given.length > 0 ? given : [target])];
  const task = new vscode.Task(
    definition,
    scope ?? vscode.TaskScope.Workspace,
    definition.command,
    "dovrel",
    new vscode.ProcessExecution(program(), words),
    known.matcher,
  );
  task.group = known.group;
  return task;
}

const taskProvider = {
  provideTasks: () => TASKS.map(({ command }) => taskFor({ type: "dovrel", command })),
  resolveTask: (task) => taskFor(task.definition, task.scope),
};

const debugConfigurations = {
  /** The run of a file for which nothing is configured. */
  resolveDebugConfiguration(folder, configuration) {
    if (configuration.type || configuration.request || configuration.name) return configuration;
    const editor = vscode.window.activeTextEditor;
    if (editor?.document.languageId !== "dovrelscript") return undefined;
    return { type: "dovrel", request: "launch", name: "Run the open script", program: "${file}" };
  },
  resolveDebugConfigurationWithSubstitutedVariables(folder, configuration) {
    if (!configuration.program) {
      vscode.window.showErrorMessage("No script is named: `program` is missing.");
      return undefined;
    }
    const cwd = configuration.cwd ?? folder?.uri.fsPath ?? path.dirname(configuration.program);
    return { ...configuration, cwd };
  },
};

const debugAdapters = {
  createDebugAdapterDescriptor: (session) =>
    new vscode.DebugAdapterExecutable(program(session.workspaceFolder), ["dap"]),
};

async function activate(context) {
  context.subscriptions.push(
    vscode.commands.registerCommand("dovrel.restartServer", async () => {
      await stopServer();
      await startServer();
    }),
    vscode.workspace.onDidChangeConfiguration(async (event) => {
      if (!event.affectsConfiguration("dovrel.path") && !event.affectsConfiguration("dovrel.server"))
        return;
      await stopServer();
      await startServer();
    }),
    vscode.tasks.registerTaskProvider("dovrel", taskProvider),
    vscode.debug.registerDebugConfigurationProvider("dovrel", debugConfigurations),
    vscode.debug.registerDebugAdapterDescriptorFactory("dovrel", debugAdapters),
  );
  await startServer();
}

module.exports = { activate, deactivate: stopServer };
