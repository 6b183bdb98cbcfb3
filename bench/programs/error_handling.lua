-- Calls that may fail, and what is made of their errors.
local function parseAge(text)
    local age = tonumber(text)
    if age == nil then
        error("no number: " .. text, 0)
    end
    if age < 0 or age > 150 then
        error("out of range: " .. text, 0)
    end
    return age
end

local texts = {"17", "abc", "42", "-3", "99", "151", "0", "8x"}
local sum = 0
local failures = 0
local length = 0
for i = 1, 1000000 do
    local ok, result = pcall(parseAge, texts[i % 8 + 1])
    if ok then
        sum = (sum + result) % 1000003
    else
        failures = failures + 1
        length = length + #result
    end
end
print(sum .. " " .. failures .. " " .. length)
