#!/usr/bin/env python3
"""Prints how large the page is and how long it takes to its first run, as docs/performance.md has it:

    measure.py SITE
"""

import gzip
import statistics
import subprocess
import sys
import threading
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parents[1] / "playground")]
from browser import Browser  # noqa: E402
from serve import make_server  # noqa: E402

TIMES = 9
GROUPS = (
    ("the module", ("*.wasm",)),
    ("what loads it", ("*.mjs",)),
    ("the page", ("*.html", "*.css", "*.js")),
    ("examples and tour", ("*.json",)),
)
# Runs the first script as soon as that can be, and gives the time since the page was asked for.
FIRST_RUN = """
const status = document.getElementById("status");
const until = (start) => new Promise((resolve) => {
    const look = () => status.textContent.startsWith(start) && (observer.disconnect(), resolve());
    const observer = new MutationObserver(look);
    observer.observe(status, {childList: true, characterData: true, subtree: true});
    look();
});
if (performance.getEntriesByName("ready").length === 0) await until("Ready.");
document.getElementById("run").click();
await until("Finished");
return [performance.getEntriesByName("ready")[0].startTime, performance.now()];
"""
# How long a run takes by itself: a worker is ready, and the module is compiled.
NEXT_RUN = FIRST_RUN.split("if (perf")[0] + """
await new Promise((resolve) => setTimeout(resolve, 300));
const start = performance.now();
document.getElementById("run").click();
await until("Finished");
return performance.now() - start;
"""


def sizes(site):
    total = [0, 0, 0]
    for name, patterns in GROUPS:
        row = [0, 0, 0]
        for pattern in patterns:
            for path in Path(site).glob(pattern):
                data = path.read_bytes()
                brotli = subprocess.run(
                    ["brotli", "--stdout", "--best", str(path)], stdout=subprocess.PIPE, check=True
                ).stdout
                for i, size in enumerate((len(data), len(gzip.compress(data, 9)), len(brotli))):
                    row[i] += size
        total = [a + b for a, b in zip(total, row)]
        yield name, row
    yield "all", total


def times(site):
    server = make_server(site, 0)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    address = f"http://127.0.0.1:{server.server_port}/"
    browser = Browser()
    try:
        for name, is_cold in (("nothing in the cache", True), ("again", False)):
            ready, first = [], []
            for _ in range(TIMES):
                if is_cold:
                    browser.command("Network.clearBrowserCache")
                browser.open(address)
                answer = browser.js(FIRST_RUN)
                ready.append(answer[0])
                first.append(answer[1])
            yield name, statistics.median(ready), statistics.median(first)
        runs = [browser.js(NEXT_RUN) for _ in range(TIMES)]
        yield "a later run", None, statistics.median(runs)
    finally:
        browser.close()
        server.shutdown()
        server.server_close()


def main():
    site = sys.argv[1]
    print("| | KiB | gzip | brotli |\n| --- | --: | --: | --: |")
    for name, row in sizes(site):
        print(f"| {name} | " + " | ".join(f"{size / 1024:.0f}" for size in row) + " |")
    print("\n| | ready after ms | first run done after ms |\n| --- | --: | --: |")
    for name, ready, first in times(site):
        print(f"| {name} | {'' if ready is None else f'{ready:.0f}'} | {first:.0f} |")


if __name__ == "__main__":
    main()
