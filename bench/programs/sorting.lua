-- The library's sort by itself, of ints and of texts.
for round = 1, 5 do
    local numbers = {}
    local texts = {}
    local seed = round
    for i = 1, 100000 do
        seed = (seed * 1103 + 12345) % 65536
        numbers[#numbers + 1] = seed * 7 % 32768
        texts[#texts + 1] = "key" .. tostring(seed)
    end
    table.sort(numbers)
    table.sort(texts)
    local checksum = 0
    for i = 1, #numbers do
        checksum = (checksum * 31 + numbers[i] + #texts[i]) % 1000003
    end
    io.write(checksum, " ", texts[1], " ", texts[#texts], "\n")
end
