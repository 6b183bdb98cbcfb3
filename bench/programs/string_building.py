# Lines put together piece by piece, then joined.
def main():
    lines = []
    for i in range(1, 80001):
        line = ""
        for j in range(1, 21):
            line = line + str(i * j) + ","
        lines.append(line)
    text = "\n".join(lines)
    print(len(text), text[99999:800019])


main()
