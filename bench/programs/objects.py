# Objects with their functions in a class.
class Account:
    def __init__(self, owner, balance):
        self.owner = owner
        self.balance = balance
        self.count = 0

    def deposit(self, amount):
        self.balance += amount
        self.count += 1
        return self.balance

    def withdraw(self, amount):
        if self.balance < amount:
            return -1
        self.balance -= amount
        self.count += 1
        return self.balance


def main():
    accounts = []
    for i in range(1, 101):
        accounts.append(Account("owner " + str(i), i * 10))
    refused = 0
    for turn in range(1, 40001):
        for i in range(0, 100, 3):
            one = accounts[i]
            if one.withdraw(turn % 50) < 0:
                refused += 1
                one.deposit(70)
    total = 0
    count = 0
    for one in accounts:
        total += one.balance
        count += one.count
    print(total, count, refused)


main()
