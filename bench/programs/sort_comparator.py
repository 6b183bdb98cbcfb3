# The library's sort, which calls back a comparator of the script.
import functools


def before(a, b):
    return a % 1000 < b % 1000 or a % 1000 == b % 1000 and a < b


def compare(a, b):
    if before(a, b):
        return -1
    return 1 if before(b, a) else 0


def main():
    for round in range(1, 4):
        values = []
        seed = round
        for _ in range(80000):
            seed = (seed * 1103 + 12345) % 65536
            values.append(seed)
        values.sort(key=functools.cmp_to_key(compare))
        checksum = 0
        for value in values:
            checksum = (checksum * 31 + value) % 1000003
        print(checksum)


main()
