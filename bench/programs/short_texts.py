# Many short texts: they are validated, split, trimmed and cut into tokens.
import re


def trim(text):
    return re.match(r"^\s*(.*?)\s*$", text)[1]


def main():
    checksum = 0
    for i in range(1, 60001):
        number = str(i * 7919 % 100003)
        if re.search("^[A-Za-z0-9.]+@[A-Za-z0-9.]+\\.[A-Za-z][A-Za-z]+$", "user" + number + "@host.example.org"):
            checksum += 1
        if re.search("^[0-9][0-9][0-9][0-9]$", number):
            checksum += 2
        if re.search("^[0-9]{4}-[0-9]{2}-[0-9]{2}$", "2024-0" + str(i % 20) + "-17"):
            checksum += 4
        for n, field in enumerate(re.findall("[A-Za-z0-9 ]+", "id" + number + ",red,green,42"), 1):
            checksum += n * len(field)
        checksum += len(trim("  value " + number + "\t "))
        checksum += len(re.sub(r"\s+", " ", "a  b " + number))
        line = "x" + number + " = y + 12*(z-1)"
        for n, token in enumerate(re.findall("[A-Za-z0-9]+", line), 1):
            checksum += n + len(token)
        for n, _ in enumerate(re.findall("[!-/:-@\\[-`{-~]", line), 1):
            checksum += n
        key, value = re.search(r"^([A-Za-z0-9]+)\s*=\s*([A-Za-z0-9]+)$", "width" + number + " = 80").groups()
        checksum = (checksum + len(key) * len(value)) % 1000003
    print(checksum)


main()
