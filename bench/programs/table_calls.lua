-- Functions called through a table, which work on the table's own fields.
local function deposit(account, amount)
    account["balance"] = (account["balance"] + amount) % 1000003
    account["count"] = account["count"] + 1
    return account["balance"]
end
local function balance(account)
    return account["balance"]
end
local account = {balance = 0, count = 0}
account["deposit"] = deposit
account["read"] = balance

local sum = 0
for i = 1, 1200000 do
    account["deposit"](account, i % 50)
    sum = (sum + account["read"](account)) % 1000003
end
io.write(account["count"], " ", account["balance"], " ", sum, "\n")
