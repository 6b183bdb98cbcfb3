local function assemble(source)
  local code = {}
  for line in source:gmatch("[%w %-]+") do
    local op, arg = line:match("^(%w+) ?(%-?%d*)$")
    if arg == "" then code[#code + 1] = {op = op}
    else code[#code + 1] = {op = op, arg = tonumber(arg)} end
  end
  return code
end
local function execute(code, memory)
  local stack, top, pc, steps = {}, 0, 1, 0
  while true do
    local ins = code[pc]
    local op = ins.op
    pc = pc + 1
    steps = steps + 1
    if op == "push" then
      top = top + 1
      stack[top] = ins.arg
    elseif op == "load" then
      top = top + 1
      stack[top] = memory[ins.arg]
    elseif op == "store" then
      memory[ins.arg] = stack[top]
      top = top - 1
    elseif op == "add" then
      top = top - 1
      stack[top] = stack[top] + stack[top + 1]
    elseif op == "sub" then
      top = top - 1
      stack[top] = stack[top] - stack[top + 1]
    elseif op == "mul" then
      top = top - 1
      stack[top] = stack[top] * stack[top + 1]
    elseif op == "mod" then
      top = top - 1
      stack[top] = stack[top] % stack[top + 1]
    elseif op == "less" then
      top = top - 1
      if stack[top] < stack[top + 1] then stack[top] = 1 else stack[top] = 0 end
    elseif op == "jump" then
      pc = ins.arg
    elseif op == "jz" then
      if stack[top] == 0 then pc = ins.arg end
      top = top - 1
    elseif op == "halt" then
      return steps
    else
      error("bad op " .. op)
    end
  end
end
local source = "push 0;store 1;push 1;store 2;load 2;push 120000;less;jz 23;load 1;push 31;mul;load 2;add;push 10007;mod;store 1;load 2;push 1;add;store 2;jump 5;halt;halt"
local code = assemble(source)
local memory = {}
local steps = execute(code, memory)
steps = steps + execute(code, memory)
print(steps .. " " .. memory[1] .. " " .. memory[2])
