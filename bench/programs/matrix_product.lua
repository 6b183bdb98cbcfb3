-- Tables of tables, and parameters of a function.
local function matrix(size, factor)
    local rows = {}
    for i = 1, size do
        local row = {}
        for j = 1, size do
            row[j] = (i * factor + j) % 10
        end
        rows[i] = row
    end
    return rows
end

local function product(a, b, size)
    local rows = {}
    for i = 1, size do
        local row = {}
        for j = 1, size do
            local sum = 0
            for k = 1, size do
                sum = sum + a[i][k] * b[k][j]
            end
            row[j] = sum
        end
        rows[i] = row
    end
    return rows
end

local size = 180
local c = product(matrix(size, 3), matrix(size, 7), size)
local trace = 0
for i = 1, size do
    trace = trace + c[i][i]
end
io.write(trace, " ", c[1][size], " ", c[size][1], "\n")
