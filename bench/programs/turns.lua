-- A coroutine beside a loop: one of its lines runs behind each round, and at its end it begins anew.
local seen = 0
local watch = coroutine.wrap(function(step)
    while true do
        seen = seen + step
        coroutine.yield()
        local half = math.floor(seen / 2)
        coroutine.yield()
        half = half + step
        coroutine.yield()
        seen = (seen + half) % 65536
        coroutine.yield()
        coroutine.yield()
    end
end)

local total = 0
watch(3)
for i = 1, 2000000 do
    total = (total + i) % 10007
    watch()
end
print(total .. " " .. seen)
