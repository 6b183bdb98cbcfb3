# Elements of one long list, written and read.
def main():
    limit = 2000000
    composite = [False]
    for _ in range(limit):
        composite.append(False)
    count = 0
    total = 0
    for i in range(2, limit + 1):
        if not composite[i]:
            count += 1
            total = (total + i) % 1000003
            for multiple in range(i + i, limit + 1, i):
                composite[multiple] = True
    print(count, total)


main()
