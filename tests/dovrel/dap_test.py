#!/usr/bin/env python3
"""Speaks the Debug Adapter Protocol with `dovrel dap` as an editor does: a session for each
feature, with the stops and values that the language demands."""

import os
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from named_tests import expect, run_tests, test  # noqa: E402
from protocol_client import Client, ProtocolError  # noqa: E402

PROGRAM = None


class Run:
    """A script under the debugger, from initialize to disconnect."""

    def __init__(self, script, breakpoints=(), filters=(), **launch):
        self.folder = tempfile.TemporaryDirectory()
        self.path = os.path.realpath(os.path.join(self.folder.name, "main.dv"))
        Path(self.path).write_text(script, encoding="utf-8")
        self.client = Client([PROGRAM, "dap"], cwd=self.folder.name)
        self.requests = 0
        self.printed = ""
        self.logged = []
        self.ask("initialize", {"adapterID": "dovrel", "linesStartAt1": True})
        self.event("initialized")
        self.ask("launch", {"program": self.path, **launch})
        self.verified = self.set_breakpoints(breakpoints)
        self.ask("setExceptionBreakpoints", {"filters": list(filters)})
        self.ask("configurationDone")

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        try:
            if kind is None:
                self.ask("disconnect")
                expect(self.client.close(), 0, "the exit status")
            else:
                self.client.process.kill()
                self.client.process.wait()
        finally:
            self.folder.cleanup()

    def answer(self, command, arguments=None):
        self.requests += 1
        number = self.requests
        request = {"type": "request", "seq": number, "command": command}
        if arguments is not None:
            request["arguments"] = arguments
        self.client.send(request)
        return self.client.wait_for(
            lambda one: one["type"] == "response" and one["request_seq"] == number, what=command
        )

    def ask(self, command, arguments=None):
        answer = self.answer(command, arguments)
        if not answer["success"]:
            raise ProtocolError(f"{command}: {answer['message']}")
        return answer["body"]

    def refusal(self, command, arguments=None):
        answer = self.answer(command, arguments)
        expect(answer["success"], False, f"{command} should be refused")
        return answer["message"]

    def event(self, name):
        """The next event of that name; output in front of it is gathered."""
        while True:
            message = self.client.wait_for(
                lambda one: one["type"] == "event" and one["event"] in (name, "output"), what=name
            )
            body = message.get("body", {})
            if message["event"] == name:
                return body
            if body["category"] == "console":
                self.logged.append(body["output"])
            else:
                self.printed += body["output"]

    def set_breakpoints(self, breakpoints, path=None):
        wanted = [one if isinstance(one, dict) else {"line": one} for one in breakpoints]
        body = self.ask(
            "setBreakpoints", {"source": {"path": path or self.path}, "breakpoints": wanted}
        )
        return [(one["verified"], one["line"]) for one in body["breakpoints"]]

    def stopped(self):
        """Where the run stands: the reason, and the line of the innermost call."""
        self.stop = self.event("stopped")
        frames = self.stack(self.stop["threadId"])
        return self.stop["reason"], frames[0][1]

    def stack(self, thread=1):
        body = self.ask("stackTrace", {"threadId": thread})
        self.frames = body["stackFrames"]
        return [(one["name"], one["line"]) for one in self.frames]

    def go(self, command="continue"):
        self.ask(command, {"threadId": self.stop["threadId"]})
        return self.stopped()

    def scopes(self, frame=0):
        """The scopes of a call of the stack, by which names are searched, without the library."""
        self.numbers = {}
        found = []
        for scope in self.ask("scopes", {"frameId": self.frames[frame]["id"]})["scopes"]:
            if scope["name"] == "Library":
                continue
            number = scope["variablesReference"]
            listed = self.ask("variables", {"variablesReference": number})["variables"]
            values = {one["name"]: one["value"] for one in listed}
            self.numbers.setdefault(scope["name"], number)
            found.append((scope["name"], values))
        return found

    def value(self, expression, frame=0):
        body = self.ask(
            "evaluate", {"expression": expression, "frameId": self.frames[frame]["id"]}
        )
        return body["result"]

    def finish(self):
        """Goes on to the end; gives the exit status."""
        if getattr(self, "stop", None):
            self.ask("continue", {"threadId": 1})
        status = self.event("exited")["exitCode"]
        self.event("terminated")
        return status


SUM = """\
total = 0
function add(amount)
    native before = total
    total = before + amount
    return total
end
for i = 1, 3
    add(i)
end
print("total", total)
"""


@test
def runs_to_the_end():
    with Run('print("hello", args[1], "ä")\nprint(2)\n', args=["one"]) as run:
        expect(run.finish(), 0)
        expect(run.printed, "hello one ä\n2\n")
    with Run("x = 1\nerror('bad')\n") as run:
        expect(run.finish(), 1)
        if "dovrel: DovrelScript error: bad\n  at line 2" not in run.printed:
            raise AssertionError(run.printed)


@test
def stops_at_breakpoints():
    with Run(SUM, [4, 6, 99]) as run:
        # The `end` of a function is no statement, and behind the text there is none.
        expect(run.verified, [(True, 4), (True, 7), (False, 99)])
        expect(run.stopped(), ("breakpoint", 7))
        expect(run.go(), ("breakpoint", 4))
        expect(run.stack(), [("add", 4), ("script", 8)])
        expect(run.value("amount"), "1")
        run.set_breakpoints([])
        expect(run.finish(), 0)
        expect(run.printed, "total 6\n")


@test
def stops_on_conditions_and_hits():
    with Run(SUM, [{"line": 4, "condition": "amount == 3"}]) as run:
        expect(run.stopped(), ("breakpoint", 4))
        expect(run.value("total"), "3")
        expect(run.finish(), 0)
    with Run(SUM, [{"line": 4, "hitCondition": ">= 2"}]) as run:
        run.stopped()
        expect(run.value("amount"), "2")
        run.go()
        expect(run.value("amount"), "3")
        expect(run.finish(), 0)
    with Run(SUM, [{"line": 4, "hitCondition": "2"}]) as run:
        run.stopped()
        expect(run.value("amount"), "2")
        expect(run.finish(), 0)
    with Run(SUM, [{"line": 4, "condition": "amount +"}]) as run:
        run.stopped()
        if "the condition of the breakpoint fails" not in run.stop["text"]:
            raise AssertionError(run.stop)
        run.set_breakpoints([])
        expect(run.finish(), 0)


@test
def logs_without_a_stop():
    with Run(SUM, [{"line": 4, "logMessage": "add {amount} to {total}: {amount + total}"}]) as run:
        expect(run.finish(), 0)
        expect(run.logged, ["add 1 to 0: 1\n", "add 2 to 1: 3\n", "add 3 to 3: 6\n"])
        expect(run.printed, "total 6\n")


@test
def steps_in_over_and_out():
    with Run(SUM, stopOnEntry=True) as run:
        expect(run.stopped(), ("entry", 1))
        expect(run.go("next"), ("step", 2))
        expect(run.go("next"), ("step", 7))
        expect(run.go("next"), ("step", 8))
        expect(run.go("stepIn"), ("step", 3))
        expect(run.go("next"), ("step", 4))
        expect(run.go("stepOut"), ("step", 8))
        expect(run.go("next"), ("step", 8))
        expect(run.value("total"), "3")
        expect(run.go("next"), ("step", 10))
        expect(run.finish(), 0)


@test
def steps_through_short_functions():
    script = "function twice(n)\n    return 2 * n\nend\nx = 1 + twice(3)\nprint(x)\n"
    with Run(script, [4]) as run:
        run.stopped()
        expect(run.go("stepIn"), ("step", 2))
        expect(run.stack()[0], ("twice", 2))
        expect(run.scopes()[0], ("twice: parameters", {"n": "3"}))
        expect(run.value("n + 1"), "4")
        expect(run.go("stepOut"), ("step", 5))
        expect(run.finish(), 0)
        expect(run.printed, "7\n")


@test
def shows_scopes_in_the_order_of_the_search():
    script = """\
name = "global"
function inner(name)
    native count = 2
    if true
        local name = "block"
        print(name)
    end
end
function outer(other)
    native name = "outer"
    for i = 1, 1
        inner("inner")
    end
end
outer(5)
"""
    with Run(script, [6]) as run:
        expect(run.stopped(), ("breakpoint", 6))
        expect(run.stack(), [("inner", 6), ("outer", 12), ("script", 15)])
        names = [(scope, values) for scope, values in run.scopes() if scope != "Globals"]
        expect(
            names,
            [
                ("Block", {"name": '"block"'}),
                ("inner: parameters and natives", {"name": '"inner"', "count": "2"}),
                ("outer: variables", {"i": "1"}),
                ("outer: parameters and natives", {"other": "5", "name": '"outer"'}),
            ],
        )
        expect([scope for scope, _ in names][0], "Block", "what hides the parameter comes first")
        expect(run.value("name"), '"block"')
        expect(run.value("name", 1), '"outer"')
        expect(run.value("name", 2), '"global"')
        outer = [scope for scope, _ in run.scopes(1)]
        expect(outer, ["outer: variables", "outer: parameters and natives", "Globals"])
        globals_ = dict(run.scopes(2))["Globals"]
        expect(sorted(globals_), ["args", "inner", "name", "outer"])
        refused = run.refusal("evaluate", {"expression": "name + 1", "frameId": run.frames[1]["id"]})
        if "only names" not in refused:
            raise AssertionError(refused)
        expect(run.finish(), 0)


@test
def shows_what_containers_hold():
    script = 'list = [1, "two", [3]]\nbox = {b: 1, a: list}\nx = 1\n'
    with Run(script, [3]) as run:
        run.stopped()
        answer = run.ask("evaluate", {"expression": "box", "frameId": 1})
        expect((answer["type"], answer["namedVariables"]), ("table", 2))
        keys = run.ask("variables", {"variablesReference": answer["variablesReference"]})
        expect([(one["name"], one["value"]) for one in keys["variables"]],
               [("a", '[1, "two", [3]]'), ("b", "1")])
        part = {"variablesReference": keys["variables"][0]["variablesReference"]}
        elements = run.ask("variables", {**part, "start": 1, "count": 1})["variables"]
        expect([(one["name"], one["value"], one["type"]) for one in elements],
               [("[2]", '"two"', "string")])
        # Elements can be set, and the script sees it.
        run.ask("setVariable", {**part, "name": "[2]", "value": "20 + 2"})
        expect(run.value("list[2]"), "22")
        refused = run.refusal("setVariable", {**part, "name": "[9]", "value": "1"})
        if "cannot be set" not in refused:
            raise AssertionError(refused)
        expect(run.finish(), 0)


@test
def sets_variables():
    with Run(SUM, [4]) as run:
        run.stopped()
        run.scopes()
        number = run.numbers["add: parameters and natives"]
        answer = run.ask(
            "setVariable", {"variablesReference": number, "name": "amount", "value": "100"}
        )
        expect(answer["value"], "100")
        run.set_breakpoints([])
        expect(run.finish(), 0)
        expect(run.printed, "total 105\n")


@test
def evaluates_without_a_trace():
    script = """\
count = 0
function bump()
    count += 1
    return count
end
decay function beat()
    count += 10
    count += 100
end
beat()
x = count
print(x, count)
"""
    with Run(script, [11]) as run:
        run.stopped()
        before = run.value("count")
        expect(before, "10")
        # Calls run, but no coroutine gets a turn for it, and errors come back as messages.
        expect(run.value("bump() + 0"), "11")
        message = run.refusal("evaluate", {"expression": "error('bad luck')", "frameId": 1})
        expect(message, "bad luck")
        message = run.refusal("evaluate", {"expression": "1 +", "frameId": 1})
        if not message:
            raise AssertionError("a broken expression has a message")
        expect(run.stack()[0], ("script", 11))
        expect(run.finish(), 0)
        expect(run.printed, "11 111\n")


@test
def watches_are_evaluated_at_each_stop():
    with Run(SUM, [4]) as run:
        found = []
        run.stopped()
        for _ in range(3):
            watched = []
            for context in ("watch", "hover", "repl"):
                arguments = {"expression": "total + amount", "context": context}
                arguments["frameId"] = run.frames[0]["id"]
                watched.append(run.ask("evaluate", arguments)["result"])
            found.append(watched)
            if len(found) < 3:
                run.go()
        expect(found, [["1"] * 3, ["3"] * 3, ["6"] * 3])
        expect(run.finish(), 0)


@test
def lines_may_end_as_in_windows():
    script = SUM.replace("\n", "\r\n").replace("total = 0", 'total = 0 @@ \U0001d11e')
    stop = {"line": 4, "condition": "amount == 2"}
    log = {"line": 10, "logMessage": "at {i}: {total}"}
    with Run(script, [stop, log]) as run:
        expect(run.verified, [(True, 4), (True, 10)])
        expect(run.stopped(), ("breakpoint", 4))
        expect(run.stack(), [("add", 4), ("script", 8)])
        expect(run.value("total"), "1")
        expect(run.go("next"), ("step", 5))
        expect(run.finish(), 0)
        expect(run.logged, ["at not: 6\n"])
        expect(run.printed, "total 6\n")


@test
def stops_at_errors():
    script = """\
function risky(n)
    native twice = n * 2
    error("too many: " + twice)
end
ok, message = pcall(risky, 4)
print(ok, message)
risky(5)
"""
    with Run(script, filters=["raised"]) as run:
        expect(run.stopped(), ("exception", 3))
        expect(run.stop["text"], "too many: 8")
        expect(run.value("twice"), "8")
        info = run.ask("exceptionInfo", {"threadId": 1})
        expect((info["description"], info["breakMode"]), ("too many: 8", "always"))
        expect(run.go(), ("exception", 3))
        expect(run.stop["text"], "too many: 10")
        expect(run.finish(), 1)
    with Run(script, filters=["uncaught"]) as run:
        expect(run.stopped(), ("exception", 3))
        expect(run.stop["text"], "too many: 10")
        info = run.ask("exceptionInfo", {"threadId": 1})
        expect(info["breakMode"], "unhandled")
        expect(run.printed, "false too many: 8\n")
        expect(run.finish(), 1)
    with Run(script) as run:
        expect(run.finish(), 1)


@test
def stops_at_mistakes_of_all_kinds():
    with Run("x = not\ny = 1\nz = y + x\n", filters=["uncaught"]) as run:
        expect(run.stopped(), ("exception", 3))
        expect(run.stop["text"], "Unsupported operation '+' between types")
        expect(run.finish(), 1)


@test
def pauses_a_loop():
    with Run("x = 0\nwhile true\n    x += 1\nend\n") as run:
        run.ask("pause", {"threadId": 1})
        reason, line = run.stopped()
        if line == 1:  # before it has run at all
            run.ask("continue", {"threadId": 1})
            time.sleep(0.05)
            run.ask("pause", {"threadId": 1})
            reason, line = run.stopped()
        expect((reason, line in (2, 3)), ("pause", True))
        first = int(run.value("x"))
        run.ask("continue", {"threadId": 1})
        run.ask("pause", {"threadId": 1})
        run.stopped()
        if int(run.value("x")) < first:
            raise AssertionError("the loop did not go on")
        # A breakpoint that is set while it runs.
        run.ask("continue", {"threadId": 1})
        run.set_breakpoints([3])
        expect(run.stopped(), ("breakpoint", 3))
        run.ask("terminate")
        expect(run.event("exited")["exitCode"], 1)


@test
def coroutine_is_a_thread():
    script = """\
decay function beside(name)
    print("one", name)
    print("two", name)
end
beside("x")
print("main")
print("end")
"""
    with Run(script, [3]) as run:
        expect(run.stopped(), ("breakpoint", 3))
        expect(run.stop["threadId"], 2)
        threads = run.ask("threads")["threads"]
        expect([one["name"] for one in threads], ["main flow", "coroutine beside"])
        expect(run.stack(2), [("beside", 3)])
        expect([one for one in run.scopes() if one[0] != "Globals"][0][1], {"name": '"x"'})
        expect(run.stack(1), [("script", 6)])
        expect(run.finish(), 0)
        expect(run.printed, "one x\nmain\ntwo x\nend\n")
    with Run(script, [6]) as run:
        expect(run.stopped(), ("breakpoint", 6))
        # The coroutine waits; its next line is known.
        expect(run.stack(2), [("beside", 3)])
        run.stack(1)
        # A step in the main flow passes over the turn in between.
        expect(run.go("next"), ("step", 7))
        expect(run.stop["threadId"], 1)
        expect(run.finish(), 0)


@test
def follows_into_other_files():
    with tempfile.TemporaryDirectory() as folder:
        helper = os.path.realpath(os.path.join(folder, "helper.dv"))
        Path(helper).write_text("function help_out(n)\n    native m = n\n    return m\nend\n")
        script = f'runFile("{helper}")\nx = help_out(3)\nprint(x)\n'
        with Run(script, [2]) as run:
            run.stopped()
            expect(run.set_breakpoints([3], helper), [(True, 3)])
            expect(run.go(), ("breakpoint", 3))
            paths = [one["source"]["path"] for one in run.frames]
            expect(paths, [helper, run.path])
            expect(run.finish(), 0)


@test
def answers_misuse_by_failures():
    with Run("x = 1\n", stopOnEntry=True) as run:
        expect(run.stopped(), ("entry", 1))
        if "no command" not in run.refusal("nothing"):
            raise AssertionError("an unknown command")
        run.refusal("evaluate", {})
        expect(run.ask("variables", {"variablesReference": 999})["variables"], [])
        expect(run.finish(), 0)
        if "not stopped" not in run.refusal("next", {"threadId": 1}):
            raise AssertionError("a step of what does not run")
        run.refusal("stackTrace", {"threadId": 1})
    client = Client([PROGRAM, "dap"])
    client.send({"type": "request", "seq": 1, "command": "launch", "arguments": {"program": "/no"}})
    answer = client.wait_for(lambda one: one["type"] == "response")
    expect((answer["success"], "failed to open" in answer["message"]), (False, True))
    client.close()


@test
def ends_with_the_editor():
    # A script that never comes back to a statement does not keep the process.
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "main.dv")
        Path(path).write_text("while true\nend\n")
        client = Client([PROGRAM, "dap"])
        for number, (command, arguments) in enumerate(
            (("launch", {"program": path}), ("configurationDone", {})), 1
        ):
            client.send(
                {"type": "request", "seq": number, "command": command, "arguments": arguments}
            )
            client.wait_for(lambda one: one["type"] == "response")
        client.close(20)


def use_program(path):
    global PROGRAM
    PROGRAM = path


if __name__ == "__main__":
    sys.exit(run_tests("Tests dovrel dap by a client of the protocol.", use_program))
