# Calls that may fail, and what is made of their errors.
def parse_age(text):
    try:
        age = int(text)
    except ValueError:
        raise ValueError("no number: " + text) from None
    if age < 0 or age > 150:
        raise ValueError("out of range: " + text)
    return age


def main():
    texts = ["17", "abc", "42", "-3", "99", "151", "0", "8x"]
    total = 0
    failures = 0
    length = 0
    for i in range(1, 1000001):
        try:
            total = (total + parse_age(texts[i % 8])) % 1000003
        except ValueError as error:
            failures += 1
            length += len(str(error))
    print(total, failures, length)


main()
