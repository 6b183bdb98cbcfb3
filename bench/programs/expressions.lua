-- A parser: sums and products with brackets, read from a text and computed.
local source = ""
local position = 0
local length = 0
local sum

local function peek()
    if position > length then
        return ""
    end
    return string.sub(source, position, position)
end

local function number()
    local value = 0
    local c = peek()
    while c >= "0" and c <= "9" do
        value = value * 10 + string.byte(c) - 48
        position = position + 1
        c = peek()
    end
    return value
end

local function factor()
    if peek() == "(" then
        position = position + 1
        local inner = sum()
        position = position + 1
        return inner
    end
    return number()
end

local function product()
    local value = factor()
    while peek() == "*" do
        position = position + 1
        local right = factor()
        value = value * right % 10007
    end
    return value
end

function sum()
    local value = product()
    local c = peek()
    while c == "+" or c == "-" do
        position = position + 1
        local right = product()
        if c == "+" then
            value = value + right
        else
            value = value - right
        end
        c = peek()
    end
    return value
end

local function evaluate(text)
    source = text
    length = #text
    position = 1
    return sum()
end

local total = 0
for i = 1, 30000 do
    local text = "(" .. i .. "+17)*3-(4*(" .. i % 13 .. "+2)-1)*2+99"
    local value = evaluate(text)
    total = (total + value) % 1000003
end
print(total)
