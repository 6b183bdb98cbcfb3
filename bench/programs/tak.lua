-- Calls as arguments of calls.
local function tak(x, y, z)
    if y >= x then
        return z
    end
    return tak(tak(x - 1, y, z), tak(y - 1, z, x), tak(z - 1, x, y))
end

local sum = 0
for _ = 1, 30 do
    sum = sum + tak(18, 12, 6)
end
print(sum)
