# Calls of one-line functions inside arithmetic.
def square(x):
    return x * x


def add(a, b):
    return a + b


def clamp(x, limit):
    return x % limit


def main():
    total = 0
    for i in range(1, 2000001):
        total = add(total, square(i % 100))
        total = clamp(total, 1000003) + add(i, 1) % 3
    print(total)


main()
