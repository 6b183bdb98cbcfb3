-- Elements of one long array, written and read.
local limit = 2000000
local composite = {}
for i = 1, limit do
    composite[i] = false
end
local count = 0
local sum = 0
for i = 2, limit do
    if not composite[i] then
        count = count + 1
        sum = (sum + i) % 1000003
        for multiple = i + i, limit, i do
            composite[multiple] = true
        end
    end
end
io.write(count, " ", sum, "\n")
