# Functions called through a dictionary, which work on the dictionary's own fields.
def deposit(account, amount):
    account["balance"] = (account["balance"] + amount) % 1000003
    account["count"] += 1
    return account["balance"]


def balance(account):
    return account["balance"]


def main():
    account = {"balance": 0, "count": 0}
    account["deposit"] = deposit
    account["read"] = balance
    total = 0
    for i in range(1, 1200001):
        account["deposit"](account, i % 50)
        total = (total + account["read"](account)) % 1000003
    print(account["count"], account["balance"], total)


main()
