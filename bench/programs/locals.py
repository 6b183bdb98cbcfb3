# Variables of blocks and loops: the longest chains of the Collatz steps.
def chain(start):
    steps = 0
    n = start
    while n != 1:
        half = n // 2
        if half * 2 == n:
            n = half
        else:
            third = n * 3
            n = third + 1
        steps += 1
    return steps


def main():
    longest = 0
    best = 0
    for start in range(1, 100001):
        steps = chain(start)
        if steps > longest:
            longest = steps
            best = start
    print(best, longest)


main()
