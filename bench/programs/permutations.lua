local visits, rising = 0, 0
local function visit(list)
  visits = visits + 1
  if list[1] < list[2] and list[#list] > list[1] then rising = rising + list[2] end
end
local function permute(list, n, callback)
  if n == 1 then callback(list) return end
  for i = 1, n do
    permute(list, n - 1, callback)
    if n % 2 == 0 then list[i], list[n] = list[n], list[i]
    else list[1], list[n] = list[n], list[1] end
  end
end
for round = 1, 3 do permute({1, 2, 3, 4, 5, 6, 7, 8, 9}, 9, visit) end
print(visits .. " " .. rising)
