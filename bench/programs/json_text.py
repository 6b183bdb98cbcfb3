import math
import re

NUMBER = re.compile(r"-?\d+")


def skip():
    global pos
    while pos < len(text) and text[pos] in " \n\t\r":
        pos += 1


def read_string():
    global pos
    pos += 1
    start = pos
    parts = []
    while True:
        c = text[pos]
        if c == '"':
            parts.append(text[start:pos])
            pos += 1
            return "".join(parts)
        elif c == "\\":
            if pos > start:
                parts.append(text[start:pos])
            c = text[pos + 1]
            parts.append("\n" if c == "n" else c)
            pos += 2
            start = pos
        else:
            pos += 1


def read_number():
    global pos
    digits = NUMBER.match(text, pos).group()
    pos += len(digits)
    return int(digits)


def read_array():
    global pos
    result = []
    pos += 1
    skip()
    if text[pos] == "]":
        pos += 1
        return result
    while True:
        result.append(read_value())
        skip()
        pos += 1
        if text[pos - 1] == "]":
            return result


def read_object():
    global pos
    result = {}
    pos += 1
    skip()
    if text[pos] == "}":
        pos += 1
        return result
    while True:
        skip()
        key = read_string()
        skip()
        pos += 1
        result[key] = read_value()
        skip()
        pos += 1
        if text[pos - 1] == "}":
            return result


def read_value():
    global pos
    skip()
    c = text[pos]
    if c == "{":
        return read_object()
    elif c == "[":
        return read_array()
    elif c == '"':
        return read_string()
    elif c == "t":
        pos += 4
        return True
    elif c == "f":
        pos += 5
        return False
    elif c == "n":
        pos += 4
        return None
    return read_number()


def write(value, out):
    if isinstance(value, str):
        out.append('"' + value.replace('"', "'").replace("\n", "|") + '"')
    elif isinstance(value, bool):
        out.append("true" if value else "false")
    elif isinstance(value, int):
        out.append(str(value))
    elif value is None:
        out.append("null")
    elif isinstance(value, list):
        out.append("[")
        for i, element in enumerate(value):
            if i > 0:
                out.append(",")
            write(element, out)
        out.append("]")
    else:
        out.append("{")
        first = True
        for key in sorted(value):
            if not first:
                out.append(",")
            first = False
            out.append('"' + key + '":')
            write(value[key], out)
        out.append("}")


records = []
for i in range(1, 201):
    records.append(
        f'{{"id": {i}, "name": "user \\"{i}\\"", "tags": ["a{i % 7}", "b", "c"], '
        f'"active": {"true" if i % 3 == 0 else "false"}, "score": -{i * 37 % 101}, '
        f'"nested": {{"x": 1, "y": [1, 2, [3, 4]]}}}}'
    )
document = "[" + ",\n ".join(records) + "]"
check = 0
for turn in range(1, 41):
    text = document
    pos = 0
    value = read_value()
    out = []
    write(value, out)
    result = "".join(out)
    check = int(math.fmod(check * 31 + len(result) + value[turn - 1]["score"], 1000003))
print(len(document), check, result[:100])
