-- Objects in tables, with their functions in a table of the class.
local account = {}
function account.make(owner, balance)
    return {owner = owner, balance = balance, count = 0}
end
function account.deposit(self, amount)
    self.balance = self.balance + amount
    self.count = self.count + 1
    return self.balance
end
function account.withdraw(self, amount)
    if self.balance < amount then
        return -1
    end
    self.balance = self.balance - amount
    self.count = self.count + 1
    return self.balance
end

local accounts = {}
for i = 1, 100 do
    accounts[#accounts + 1] = account.make("owner " .. i, i * 10)
end
local refused = 0
for turn = 1, 40000 do
    for i = 1, 100, 3 do
        local one = accounts[i]
        if account.withdraw(one, turn % 50) < 0 then
            refused = refused + 1
            account.deposit(one, 70)
        end
    end
end
local total = 0
local count = 0
for _, one in ipairs(accounts) do
    total = total + one.balance
    count = count + one.count
end
print(total .. " " .. count .. " " .. refused)
