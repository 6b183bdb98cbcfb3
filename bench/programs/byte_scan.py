# Every byte of one long string.
def main():
    text = "The quick brown fox jumps over the lazy dog. " * 100000
    spaces = 0
    checksum = 0
    for i in range(len(text)):
        byte = ord(text[i])
        if byte == 32:
            spaces += 1
        checksum = (checksum * 31 + byte) % 1000003
    print(len(text), spaces, checksum)


main()
