local function push_heap(heap, cost, cell)
  local i = #heap + 1
  heap[i] = {cost, cell}
  while i > 1 do
    local up = i // 2
    if heap[up][1] <= heap[i][1] then return end
    heap[up], heap[i] = heap[i], heap[up]
    i = up
  end
end
local function pop_heap(heap)
  local top = heap[1]
  local last = table.remove(heap)
  local size = #heap
  local i = 1
  if size == 0 then return top[1], top[2] end
  heap[1] = last
  while i * 2 <= size do
    local child = i * 2
    if child < size and heap[child + 1][1] < heap[child][1] then child = child + 1 end
    if heap[i][1] <= heap[child][1] then break end
    heap[i], heap[child] = heap[child], heap[i]
    i = child
  end
  return top[1], top[2]
end
local width, height, grid, seed = 110, 90, {}, 5
for y = 1, height do
  local row = {}
  for x = 1, width do
    seed = (seed * 1103 + 12345) % 65536
    row[#row + 1] = seed % 9 + 1
  end
  grid[y] = row
end
local steps = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}}
local function shortest(grid, startX, startY)
  local best, heap = {}, {}
  push_heap(heap, 0, {startX, startY})
  best[startY * 1000 + startX] = 0
  while #heap > 0 do
    local cost, cell = pop_heap(heap)
    local x, y = cell[1], cell[2]
    if cost == best[y * 1000 + x] then
      for i, step in ipairs(steps) do
        local nx = x + step[1]
        local ny = y + step[2]
        if nx >= 1 and nx <= width and ny >= 1 and ny <= height then
          local total = cost + grid[ny][nx]
          local known = best[ny * 1000 + nx]
          if known == nil or total < known then
            best[ny * 1000 + nx] = total
            push_heap(heap, total, {nx, ny})
          end
        end
      end
    end
  end
  return best
end
local check, best = 0
for round = 1, 10 do
  best = shortest(grid, round, 1)
  check = check + best[height * 1000 + width]
end
print(check .. " " .. best[45 * 1000 + 7])
