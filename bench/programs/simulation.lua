-- A simulation: customers come to a bank's counters and wait in line.
local seed = 42
local function random(limit)
    seed = (seed * 1103 + 12345) % 65536
    return seed % limit
end

local function run(minutes, counters)
    local line = {}
    local first = 1
    local busy = {}
    for i = 1, counters do
        busy[i] = 0
    end
    local served = 0
    local waited = 0
    for minute = 1, minutes do
        if random(10) < 6 then
            line[#line + 1] = {arrived = minute, work = 2 + random(7)}
        end
        for i = 1, counters do
            if busy[i] > 0 then
                busy[i] = busy[i] - 1
            elseif first <= #line then
                local customer = line[first]
                first = first + 1
                busy[i] = customer.work
                waited = waited + minute - customer.arrived
                served = served + 1
            end
        end
    end
    return {served = served, waited = waited, left = #line - first + 1}
end

for round = 1, 4 do
    for counters = 2, 5 do
        local result = run(60000, counters)
        print(counters .. " " .. result.served .. " " .. result.waited % 1000003 .. " " .. result.left)
    end
end
