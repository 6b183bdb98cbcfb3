local tokens, at
local function tokenise(source)
  local list = {}
  source = source:gsub("%(", " ( "):gsub("%)", " ) ")
  for token in source:gmatch("%S+") do list[#list + 1] = token end
  return list
end
local function read()
  local token = tokens[at]
  at = at + 1
  if token == "(" then
    local list = {}
    while tokens[at] ~= ")" do
      local item = read()
      list[#list + 1] = item
    end
    at = at + 1
    return list
  end
  local number = tonumber(token)
  if number then return number end
  return {symbol = token}
end
local function lookup(env, name)
  local scope = env
  while scope ~= nil do
    local value = scope.vars[name]
    if value ~= nil then return value end
    scope = scope.outer
  end
  error("unbound: " .. name)
end
local function evaluate(x, env)
  if type(x) == "number" then return x end
  local name = x.symbol
  if name ~= nil then return lookup(env, name) end
  local op = x[1].symbol
  if op == "if" then
    local test = evaluate(x[2], env)
    if test then return evaluate(x[3], env) end
    return evaluate(x[4], env)
  elseif op == "define" then
    local v = evaluate(x[3], env)
    env.vars[x[2].symbol] = v
    return v
  elseif op == "lambda" then
    return {params = x[2], body = x[3], env = env}
  end
  local fn = evaluate(x[1], env)
  local args = {}
  for i = 2, #x do
    local arg = evaluate(x[i], env)
    args[#args + 1] = arg
  end
  if type(fn) == "function" then return fn(args) end
  local scope = {vars = {}, outer = fn.env}
  for i, p in ipairs(fn.params) do scope.vars[p.symbol] = args[i] end
  return evaluate(fn.body, scope)
end
local global = {vars = {}}
global.vars["+"] = function(a) return a[1] + a[2] end
global.vars["-"] = function(a) return a[1] - a[2] end
global.vars["*"] = function(a) return a[1] * a[2] end
global.vars["<"] = function(a) return a[1] < a[2] end
global.vars["="] = function(a) return a[1] == a[2] end
local function run(source)
  local result = 0
  tokens = tokenise(source)
  at = 1
  while at <= #tokens do
    local form = read()
    result = evaluate(form, global)
  end
  return result
end
run("(define fib (lambda (n) (if (< n 2) n (+ (fib (- n 1)) (fib (- n 2))))))")
run("(define fact (lambda (n) (if (= n 0) 1 (* n (fact (- n 1))))))")
run("(define count (lambda (n acc) (if (= n 0) acc (count (- n 1) (+ acc n)))))")
print(run("(fib 21)") .. " " .. run("(fact 10)") .. " " .. run("(count 5000 0)"))
