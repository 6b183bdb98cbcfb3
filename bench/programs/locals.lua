-- Variables of blocks and loops: the longest chains of the Collatz steps.
local function chain(start)
    local steps = 0
    local n = start
    while n ~= 1 do
        local half = n // 2
        if half * 2 == n then
            n = half
        else
            local third = n * 3
            n = third + 1
        end
        steps = steps + 1
    end
    return steps
end

local longest = 0
local best = 0
for start = 1, 100000 do
    local steps = chain(start)
    if steps > longest then
        longest = steps
        best = start
    end
end
print(best .. " " .. longest)
