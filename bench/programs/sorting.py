# The library's sort by itself, of ints and of texts.
def main():
    for round in range(1, 6):
        numbers = []
        texts = []
        seed = round
        for _ in range(100000):
            seed = (seed * 1103 + 12345) % 65536
            numbers.append(seed * 7 % 32768)
            texts.append("key" + str(seed))
        numbers.sort()
        texts.sort()
        checksum = 0
        for i in range(len(numbers)):
            checksum = (checksum * 31 + numbers[i] + len(texts[i])) % 1000003
        print(checksum, texts[0], texts[-1])


main()
