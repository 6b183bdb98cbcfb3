-- A heap in a table that functions change in place.
local function sift(values, first, last)
    local root = first
    while root * 2 <= last do
        local child = root * 2
        if child < last and values[child] < values[child + 1] then
            child = child + 1
        end
        if values[root] >= values[child] then
            return true
        end
        values[root], values[child] = values[child], values[root]
        root = child
    end
    return false
end

local function heapSort(values)
    local count = #values
    for first = math.floor(count / 2), 1, -1 do
        sift(values, first, count)
    end
    for last = count, 2, -1 do
        values[1], values[last] = values[last], values[1]
        sift(values, 1, last - 1)
    end
end

local values = {}
local seed = 42
for i = 1, 80000 do
    seed = (seed * 1103 + 12345) % 65536
    values[i] = seed
end
heapSort(values)
local checksum = 0
for i = 1, #values do
    checksum = (checksum * 31 + values[i]) % 1000003
end
print(checksum)
