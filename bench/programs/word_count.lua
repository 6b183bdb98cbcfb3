-- Words cut out of lines and counted in a table.
local counts = {}
local seed = 7
for _ = 1, 60000 do
    local line = ""
    for _ = 1, 8 do
        seed = (seed * 1103 + 12345) % 65536
        line = line .. "w" .. tostring(seed % 997) .. " "
    end
    local start = 1
    while start <= #line do
        local finish = string.find(line, " ", start, true)
        local word = string.sub(line, start, finish - 1)
        counts[word] = (counts[word] or 0) + 1
        start = finish + 1
    end
end
local words = {}
for word in pairs(counts) do
    words[#words + 1] = word
end
table.sort(words)
local checksum = 0
for i = 1, #words do
    checksum = (checksum * 31 + counts[words[i]]) % 1000003
end
io.write(#words, " ", words[1], " ", counts["w42"], " ", checksum, "\n")
