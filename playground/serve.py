#!/usr/bin/env python3
"""Serves a folder on the loopback address, with the headers that let a script wait for input.

    serve.py SITE [PORT]        port 0: any that is free; the address is printed
"""

import functools
import http.server
import sys


class Handler(http.server.SimpleHTTPRequestHandler):
    extensions_map = {
        **http.server.SimpleHTTPRequestHandler.extensions_map,
        ".wasm": "application/wasm",
        ".js": "text/javascript",
        ".mjs": "text/javascript",
    }

    def end_headers(self):
        self.send_header("Cross-Origin-Opener-Policy", "same-origin")
        self.send_header("Cross-Origin-Embedder-Policy", "require-corp")
        self.send_header("Cache-Control", "no-cache")
        super().end_headers()

    def log_message(self, *_):
        pass


def make_server(site, port, handler=Handler):
    made = functools.partial(handler, directory=site)
    return http.server.ThreadingHTTPServer(("127.0.0.1", port), made)


def main():
    with make_server(sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 8000) as server:
        print(f"http://127.0.0.1:{server.server_port}/", flush=True)
        try:
            server.serve_forever()
        except KeyboardInterrupt:
            pass


if __name__ == "__main__":
    main()
