-- Patterns with and without groups, searched, walked and replaced.
local checksum = 0
for i = 1, 80000 do
    local line = "item-" .. tostring(i) .. " costs " .. tostring(i * 7 % 1000) .. " coins, not " .. tostring(i % 13)
    local name, number = string.match(line, "(%a+)%-(%d+)")
    checksum = (checksum + #name + tonumber(number)) % 1000003
    for digits in string.gmatch(line, "%d+") do
        checksum = (checksum * 3 + tonumber(digits)) % 1000003
    end
    for word in string.gmatch(line, "%a+") do
        checksum = (checksum * 3 + #word) % 1000003
    end
    local first, last = string.find(line, "coins?")
    checksum = (checksum * 3 + first + last) % 1000003
    line = string.gsub(line, "[aeiou]", "<v>")
    checksum = (checksum * 3 + #line) % 1000003
end
print(checksum)
