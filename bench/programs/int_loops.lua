-- Counting loops, integer arithmetic and comparisons, over plain variables.
local total = 0
for i = 1, 4000 do
    for j = 1, 600 do
        total = (total + i * j % 7) % 1000003
        if total > 500000 then
            total = total - 3
        end
    end
end
print(total)

local longest = 0
local start = 0
for n = 1, 40000 do
    local value = n
    local steps = 0
    while value ~= 1 do
        if value % 2 == 0 then
            value = value // 2
        else
            value = value * 3 + 1
        end
        steps = steps + 1
    end
    if steps > longest then
        longest = steps
        start = n
    end
end
io.write(start, " ", longest, "\n")
