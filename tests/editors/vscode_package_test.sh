#!/usr/bin/env bash
# Packs the extension of VS Code as its page tells, without a flag, and looks into the package.
#   vscode_package_test.sh NODE_MODULES
set -euo pipefail
modules=$(realpath "${1:?usage: vscode_package_test.sh NODE_MODULES}")
editors=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../editors" && pwd)

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

fail() {
    echo "FAILED $*"
    exit 1
}

cp -r "$editors/vscode" "$folder/vscode"
cd "$folder/vscode"
npm install --silent --no-audit --no-fund >"$folder/log" 2>&1 || fail "npm: $(<"$folder/log")"
"$modules/.bin/vsce" package >"$folder/log" 2>&1 </dev/null || fail "vsce: $(<"$folder/log")"
! grep -i 'warning' "$folder/log" || fail "vsce warns"
# It has what its package.json names.
python3 - dovrelscript-*.vsix <<'END'
import json, sys, zipfile
names = zipfile.ZipFile(sys.argv[1])
found = set(names.namelist())
contents = json.loads(names.read("extension/package.json"))
contributes = contents["contributes"]
wanted = [contents["main"], contents["icon"], "LICENSE.txt", "readme.md"]
wanted += [one["path"] for one in contributes["grammars"] + contributes["snippets"]]
wanted += [one["configuration"] for one in contributes["languages"]]
wanted += [f"node_modules/{name}/License.txt" for name in contents["dependencies"]]
missing = [path for path in wanted if "extension/" + path.removeprefix("./") not in found]
sys.exit(f"missing in the package: {missing}" if missing else 0)
END
# It stands on its own: all modules that the extension loads are in the package.
mkdir "$folder/unpacked"
python3 -m zipfile -e dovrelscript-*.vsix "$folder/unpacked"
cat >"$folder/load.js" <<'END'
const Module = require("node:module");
const load = Module._load;
// The editor's own module, of which loading needs names that can be extended and called.
const anything = new Proxy(class {}, { get: (target, name) => target[name] ?? anything });
Module._load = (name, ...rest) => (name === "vscode" ? anything : load(name, ...rest));
const extension = require(process.argv[2]);
if (typeof extension.activate !== "function" || typeof extension.deactivate !== "function") process.exit(1);
END
node "$folder/load.js" "$folder/unpacked/extension/dist/extension.js" >"$folder/log" 2>&1 ||
    fail "the packed extension does not load: $(cut -c -200 "$folder/log" | tail -n 20)"
echo "the package for VS Code: passed"
