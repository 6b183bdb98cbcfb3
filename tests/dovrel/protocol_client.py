"""A client of the protocols that editors speak: messages of JSON over the pipes of a process."""

import json
import queue
import subprocess
import threading
import time


class ProtocolError(Exception):
    """The process ended or answered what no protocol allows."""


class Client:
    """Runs a program and exchanges messages with it. What it says unasked is kept."""

    def __init__(self, command, cwd=None):
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, cwd=cwd
        )
        self.messages = queue.Queue()
        self.kept = []
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        stream = self.process.stdout
        while True:
            length = None
            while True:
                line = stream.readline()
                if not line:
                    self.messages.put(None)
                    return
                if line in (b"\r\n", b"\n"):
                    break
                name, _, value = line.decode("ascii").partition(":")
                if name.lower() == "content-length":
                    length = int(value)
            self.messages.put(json.loads(stream.read(length)))

    def send_bytes(self, data):
        self.process.stdin.write(data)
        self.process.stdin.flush()

    def send(self, message):
        data = json.dumps(message).encode("utf-8")
        self.send_bytes(b"Content-Length: %d\r\n\r\n" % len(data) + data)

    def wait_for(self, wanted, seconds=60, what="a message"):
        """The first message for which `wanted` holds, of those kept and those to come."""
        for message in self.kept:
            if wanted(message):
                self.kept.remove(message)
                return message
        deadline = time.monotonic() + seconds
        while True:
            try:
                message = self.messages.get(timeout=max(0.0, deadline - time.monotonic()))
            except queue.Empty:
                raise ProtocolError(f"waited {seconds} s for {what}; kept: {self.kept}") from None
            if message is None:
                self.messages.put(None)
                raise ProtocolError(f"the process ended before {what}")
            if wanted(message):
                return message
            self.kept.append(message)

    def close(self, seconds=60):
        """Ends the input and gives the exit status."""
        self.process.stdin.close()
        try:
            status = self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise ProtocolError("the process goes on after the end of its input") from None
        self.process.stdout.close()
        return status
