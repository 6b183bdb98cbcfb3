# Words cut out of lines and counted in a dictionary.
def main():
    counts = {}
    seed = 7
    for _ in range(60000):
        line = ""
        for _ in range(8):
            seed = (seed * 1103 + 12345) % 65536
            line = line + "w" + str(seed % 997) + " "
        start = 0
        while start < len(line):
            finish = line.find(" ", start)
            word = line[start:finish]
            counts[word] = counts.get(word, 0) + 1
            start = finish + 1
    words = sorted(counts)
    checksum = 0
    for word in words:
        checksum = (checksum * 31 + counts[word]) % 1000003
    print(len(words), words[0], counts["w42"], checksum)


main()
