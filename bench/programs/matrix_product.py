# Lists of lists, and parameters of a function.
def matrix(size, factor):
    rows = []
    for i in range(1, size + 1):
        row = []
        for j in range(1, size + 1):
            row.append((i * factor + j) % 10)
        rows.append(row)
    return rows


def product(a, b, size):
    rows = []
    for i in range(size):
        row = []
        for j in range(size):
            total = 0
            for k in range(size):
                total += a[i][k] * b[k][j]
            row.append(total)
        rows.append(row)
    return rows


def main():
    size = 180
    c = product(matrix(size, 3), matrix(size, 7), size)
    trace = 0
    for i in range(size):
        trace += c[i][i]
    print(trace, c[0][size - 1], c[size - 1][0])


main()
