-- The library's sort, which calls back a comparator of the script.
local function before(a, b)
    return a % 1000 < b % 1000 or a % 1000 == b % 1000 and a < b
end

for round = 1, 3 do
    local values = {}
    local seed = round
    for i = 1, 80000 do
        seed = (seed * 1103 + 12345) % 65536
        values[i] = seed
    end
    table.sort(values, before)
    local checksum = 0
    for i = 1, #values do
        checksum = (checksum * 31 + values[i]) % 1000003
    end
    print(checksum)
end
