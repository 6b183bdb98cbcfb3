-- Many short texts: they are validated, split, trimmed and cut into tokens.
local function trim(text)
    return string.match(text, "^%s*(.-)%s*$")
end

local checksum = 0
for i = 1, 60000 do
    local number = tostring(i * 7919 % 100003)
    if string.find("user" .. number .. "@host.example.org", "^[%w.]+@[%w.]+%.%a%a+$") then
        checksum = checksum + 1
    end
    if string.find(number, "^%d%d%d%d$") then
        checksum = checksum + 2
    end
    if string.find("2024-0" .. tostring(i % 20) .. "-17", "^%d%d%d%d%-%d%d%-%d%d$") then
        checksum = checksum + 4
    end
    local n = 0
    for field in string.gmatch("id" .. number .. ",red,green,42", "[%w ]+") do
        n = n + 1
        checksum = checksum + n * #field
    end
    checksum = checksum + #trim("  value " .. number .. "\t ")
    checksum = checksum + #string.gsub("a  b " .. number, "%s+", " ")
    local line = "x" .. number .. " = y + 12*(z-1)"
    n = 0
    for token in string.gmatch(line, "%w+") do
        n = n + 1
        checksum = checksum + n + #token
    end
    n = 0
    for _ in string.gmatch(line, "%p") do
        n = n + 1
        checksum = checksum + n
    end
    local key, value = string.match("width" .. number .. " = 80", "^(%w+)%s*=%s*(%w+)$")
    checksum = (checksum + #key * #value) % 1000003
end
print(checksum)
