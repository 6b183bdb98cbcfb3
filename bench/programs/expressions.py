# A parser: sums and products with brackets, read from a text and computed.
class Parser:
    def __init__(self, text):
        self.source = text
        self.position = 0
        self.length = len(text)

    def peek(self):
        if self.position >= self.length:
            return ""
        return self.source[self.position]

    def number(self):
        value = 0
        c = self.peek()
        while "0" <= c <= "9":
            value = value * 10 + ord(c) - 48
            self.position += 1
            c = self.peek()
        return value

    def factor(self):
        if self.peek() == "(":
            self.position += 1
            inner = self.sum()
            self.position += 1
            return inner
        return self.number()

    def product(self):
        value = self.factor()
        while self.peek() == "*":
            self.position += 1
            value = value * self.factor() % 10007
        return value

    def sum(self):
        value = self.product()
        c = self.peek()
        while c == "+" or c == "-":
            self.position += 1
            right = self.product()
            if c == "+":
                value += right
            else:
                value -= right
            c = self.peek()
        return value


def main():
    total = 0
    for i in range(1, 30001):
        text = "(" + str(i) + "+17)*3-(4*(" + str(i % 13) + "+2)-1)*2+99"
        total = (total + Parser(text).sum()) % 1000003
    print(total)


main()
