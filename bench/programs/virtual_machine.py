import re


def assemble(source):
    code = []
    for line in source.split(";"):
        op, arg = re.fullmatch(r"(\w+) ?(-?\d*)", line).groups()
        code.append({"op": op} if arg == "" else {"op": op, "arg": int(arg)})
    return code


def execute(code, memory):
    stack = [0] * 10
    top = 0
    pc = 1
    steps = 0
    while True:
        ins = code[pc - 1]
        op = ins["op"]
        pc += 1
        steps += 1
        if op == "push":
            top += 1
            stack[top] = ins["arg"]
        elif op == "load":
            top += 1
            stack[top] = memory[ins["arg"]]
        elif op == "store":
            memory[ins["arg"]] = stack[top]
            top -= 1
        elif op == "add":
            top -= 1
            stack[top] = stack[top] + stack[top + 1]
        elif op == "sub":
            top -= 1
            stack[top] = stack[top] - stack[top + 1]
        elif op == "mul":
            top -= 1
            stack[top] = stack[top] * stack[top + 1]
        elif op == "mod":
            top -= 1
            stack[top] = stack[top] % stack[top + 1]
        elif op == "less":
            top -= 1
            stack[top] = 1 if stack[top] < stack[top + 1] else 0
        elif op == "jump":
            pc = ins["arg"]
        elif op == "jz":
            if stack[top] == 0:
                pc = ins["arg"]
            top -= 1
        elif op == "halt":
            return steps
        else:
            raise ValueError("bad op " + op)


source = "push 0;store 1;push 1;store 2;load 2;push 120000;less;jz 23;load 1;push 31;mul;load 2;add;push 10007;mod;store 1;load 2;push 1;add;store 2;jump 5;halt;halt"
code = assemble(source)
memory = [0] * 3
steps = execute(code, memory)
steps += execute(code, memory)
print(steps, memory[1], memory[2])
