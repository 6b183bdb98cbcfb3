# A coroutine beside a loop: one of its lines runs behind each round, and at its end it begins anew.
seen = 0


def watch(step):
    global seen
    while True:
        seen += step
        yield
        half = seen // 2
        yield
        half = half + step
        yield
        seen = (seen + half) % 65536
        yield
        yield


def main():
    turns = watch(3)
    total = 0
    next(turns)
    for i in range(1, 2000001):
        total = (total + i) % 10007
        next(turns)
    print(total, seen)


main()
