import sys

sys.setrecursionlimit(100000)


def tokenise(source):
    return source.replace("(", " ( ").replace(")", " ) ").split()


def read():
    global at
    token = tokens[at]
    at += 1
    if token == "(":
        items = []
        while tokens[at] != ")":
            items.append(read())
        at += 1
        return items
    try:
        return int(token)
    except ValueError:
        return {"symbol": token}


def lookup(env, name):
    scope = env
    while scope is not None:
        value = scope["vars"].get(name)
        if value is not None:
            return value
        scope = scope["outer"]
    raise NameError("unbound: " + name)


def evaluate(x, env):
    if isinstance(x, int):
        return x
    if isinstance(x, dict):
        return lookup(env, x["symbol"])
    first = x[0]
    op = first["symbol"] if isinstance(first, dict) else None
    if op == "if":
        if evaluate(x[1], env):
            return evaluate(x[2], env)
        return evaluate(x[3], env)
    elif op == "define":
        value = evaluate(x[2], env)
        env["vars"][x[1]["symbol"]] = value
        return value
    elif op == "lambda":
        return {"params": x[1], "body": x[2], "env": env}
    fn = evaluate(first, env)
    args = []
    for i in range(1, len(x)):
        args.append(evaluate(x[i], env))
    if callable(fn):
        return fn(args)
    inner = {"vars": {}, "outer": fn["env"]}
    for i, p in enumerate(fn["params"]):
        inner["vars"][p["symbol"]] = args[i]
    return evaluate(fn["body"], inner)


world = {"vars": {}, "outer": None}
world["vars"]["+"] = lambda args: args[0] + args[1]
world["vars"]["-"] = lambda args: args[0] - args[1]
world["vars"]["*"] = lambda args: args[0] * args[1]
world["vars"]["<"] = lambda args: args[0] < args[1]
world["vars"]["="] = lambda args: args[0] == args[1]


def run(source):
    global tokens, at
    result = 0
    tokens = tokenise(source)
    at = 0
    while at < len(tokens):
        result = evaluate(read(), world)
    return result


run("(define fib (lambda (n) (if (< n 2) n (+ (fib (- n 1)) (fib (- n 2))))))")
run("(define fact (lambda (n) (if (= n 0) 1 (* n (fact (- n 1))))))")
run("(define count (lambda (n acc) (if (= n 0) acc (count (- n 1) (+ acc n)))))")
print(run("(fib 21)"), run("(fact 10)"), run("(count 5000 0)"))
