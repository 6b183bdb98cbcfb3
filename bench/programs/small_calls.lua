-- Calls of one-line functions inside arithmetic.
local function square(x)
    return x * x
end
local function add(a, b)
    return a + b
end
local function clamp(x, limit)
    return x % limit
end

local sum = 0
for i = 1, 2000000 do
    sum = add(sum, square(i % 100))
    sum = clamp(sum, 1000003) + add(i, 1) % 3
end
print(sum)
