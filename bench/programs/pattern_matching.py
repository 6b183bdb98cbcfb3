# Patterns with and without groups, searched, walked and replaced.
import re


def main():
    checksum = 0
    for i in range(1, 80001):
        line = "item-" + str(i) + " costs " + str(i * 7 % 1000) + " coins, not " + str(i % 13)
        name, number = re.search("([A-Za-z]+)-([0-9]+)", line).groups()
        checksum = (checksum + len(name) + int(number)) % 1000003
        for match in re.finditer("[0-9]+", line):
            checksum = (checksum * 3 + int(match[0])) % 1000003
        for match in re.finditer("[A-Za-z]+", line):
            checksum = (checksum * 3 + len(match[0])) % 1000003
        match = re.search("coins?", line)
        checksum = (checksum * 3 + match.start() + 1 + match.end()) % 1000003
        line = re.sub("[aeiou]", "<v>", line)
        checksum = (checksum * 3 + len(line)) % 1000003
    print(checksum)


main()
