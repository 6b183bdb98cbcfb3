text = ""
pos = 1
local function skip()
  local c = string.byte(text, pos)
  while c == 32 or c == 10 or c == 9 or c == 13 do
    pos = pos + 1
    c = string.byte(text, pos)
  end
end
local readValue
local function readString()
  local start = pos + 1
  local parts = {}
  pos = pos + 1
  while true do
    local c = string.sub(text, pos, pos)
    if c == '"' then
      parts[#parts + 1] = string.sub(text, start, pos - 1)
      pos = pos + 1
      return table.concat(parts)
    elseif c == "\\" then
      if pos > start then parts[#parts + 1] = string.sub(text, start, pos - 1) end
      c = string.sub(text, pos + 1, pos + 1)
      if c == "n" then parts[#parts + 1] = "\n" else parts[#parts + 1] = c end
      pos = pos + 2
      start = pos
    else
      pos = pos + 1
    end
  end
end
local function readNumber()
  local digits = string.match(text, "^%-?%d+", pos)
  pos = pos + #digits
  return tonumber(digits)
end
local function readArray()
  local result = {}
  pos = pos + 1
  skip()
  if string.sub(text, pos, pos) == "]" then pos = pos + 1 return result end
  while true do
    local value = readValue()
    result[#result + 1] = value
    skip()
    if string.sub(text, pos, pos) == "]" then pos = pos + 1 return result end
    pos = pos + 1
  end
end
local function readObject()
  local result = {}
  pos = pos + 1
  skip()
  if string.sub(text, pos, pos) == "}" then pos = pos + 1 return result end
  while true do
    skip()
    local key = readString()
    skip()
    pos = pos + 1
    local value = readValue()
    result[key] = value
    skip()
    if string.sub(text, pos, pos) == "}" then pos = pos + 1 return result end
    pos = pos + 1
  end
end
function readValue()
  skip()
  local c = string.sub(text, pos, pos)
  if c == "{" then return readObject()
  elseif c == "[" then return readArray()
  elseif c == '"' then return readString()
  elseif c == "t" then pos = pos + 4 return true
  elseif c == "f" then pos = pos + 5 return false
  elseif c == "n" then pos = pos + 4 return nil
  else return readNumber() end
end
local function write(value, out)
  local kind = type(value)
  local first = true
  if kind == "string" then
    out[#out + 1] = '"' .. value:gsub('"', "'"):gsub("\n", "|") .. '"'
  elseif kind == "number" then out[#out + 1] = tostring(value)
  elseif kind == "boolean" then
    if value then out[#out + 1] = "true" else out[#out + 1] = "false" end
  elseif kind == "nil" then out[#out + 1] = "null"
  elseif value[1] ~= nil then
    out[#out + 1] = "["
    for i, element in ipairs(value) do
      if i > 1 then out[#out + 1] = "," end
      write(element, out)
    end
    out[#out + 1] = "]"
  else
    out[#out + 1] = "{"
    local names = {}
    for key in pairs(value) do names[#names + 1] = key end
    table.sort(names)
    for _, key in ipairs(names) do
      local element = value[key]
      if not first then out[#out + 1] = "," end
      first = false
      out[#out + 1] = '"' .. key .. '":'
      write(element, out)
    end
    out[#out + 1] = "}"
  end
end
local records = {}
for i = 1, 200 do
  records[#records + 1] = '{"id": ' .. i .. ', "name": "user \\"' .. i .. '\\"", "tags": ["a' .. i % 7 .. '", "b", "c"], "active": ' .. tostring(i % 3 == 0) .. ', "score": -' .. i * 37 % 101 .. ', "nested": {"x": 1, "y": [1, 2, [3, 4]]}}'
end
document = "[" .. table.concat(records, ",\n ") .. "]"
local check = 0
local result
for round = 1, 40 do
  text = document
  pos = 1
  local value = readValue()
  local out = {}
  write(value, out)
  result = table.concat(out)
  check = math.fmod(check * 31 + #result + value[round].score, 1000003)
end
print(#document .. " " .. check .. " " .. string.sub(result, 1, 100))
