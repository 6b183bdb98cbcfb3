-- Lines put together piece by piece, then joined.
local lines = {}
for i = 1, 80000 do
    local line = ""
    for j = 1, 20 do
        line = line .. tostring(i * j) .. ","
    end
    lines[#lines + 1] = line
end
local text = table.concat(lines, "\n")
io.write(#text, " ", string.sub(text, 100000, 800019), "\n")
