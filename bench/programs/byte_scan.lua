-- Every byte of one long string.
local text = string.rep("The quick brown fox jumps over the lazy dog. ", 100000)
local spaces = 0
local checksum = 0
for i = 1, #text do
    local byte = string.byte(text, i)
    if byte == 32 then
        spaces = spaces + 1
    end
    checksum = (checksum * 31 + byte) % 1000003
end
io.write(#text, " ", spaces, " ", checksum, "\n")
