# Counting loops, integer arithmetic and comparisons, over plain variables.
def main():
    total = 0
    for i in range(1, 4001):
        for j in range(1, 601):
            total = (total + i * j % 7) % 1000003
            if total > 500000:
                total -= 3
    print(total)

    longest = 0
    start = 0
    for n in range(1, 40001):
        value = n
        steps = 0
        while value != 1:
            if value % 2 == 0:
                value = value // 2
            else:
                value = value * 3 + 1
            steps += 1
        if steps > longest:
            longest = steps
            start = n
    print(start, longest)


main()
