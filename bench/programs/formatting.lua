-- Formatted ints, floats and texts.
local length = 0
local text
for i = 1, 400000 do
    text = string.format("%d|%05d|%x|%8.3f|%-10s|%s", i, i % 1000, i, i % 1024 / 8, "name", "value")
    length = length + #text
end
io.write(length, " ", text, "\n")
