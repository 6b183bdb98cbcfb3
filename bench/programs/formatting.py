# Formatted ints, floats and texts.
def main():
    length = 0
    for i in range(1, 400001):
        text = "%d|%05d|%x|%8.3f|%-10s|%s" % (i, i % 1000, i, i % 1024 / 8, "name", "value")
        length += len(text)
    print(length, text)


main()
