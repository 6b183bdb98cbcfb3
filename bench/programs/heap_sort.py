# A heap in a list that functions change in place. Element 0 stays unused.
def sift(values, first, last):
    root = first
    while root * 2 <= last:
        child = root * 2
        if child < last and values[child] < values[child + 1]:
            child += 1
        if values[root] >= values[child]:
            return True
        values[root], values[child] = values[child], values[root]
        root = child
    return False


def heap_sort(values):
    count = len(values) - 1
    for first in range(count // 2, 0, -1):
        sift(values, first, count)
    for last in range(count, 1, -1):
        values[1], values[last] = values[last], values[1]
        sift(values, 1, last - 1)


def main():
    values = [0]
    seed = 42
    for _ in range(80000):
        seed = (seed * 1103 + 12345) % 65536
        values.append(seed)
    heap_sort(values)
    checksum = 0
    for i in range(1, len(values)):
        checksum = (checksum * 31 + values[i]) % 1000003
    print(checksum)


main()
