-- The Mandelbrot set. Only its points are counted, and with a low limit: the languages' floats
-- differ in width, which shows near the edge of the set.
local size = 420
local limit = 30
local inside = 0
for row = 0, size - 1 do
    local ci = row * 2.0 / size - 1.0
    for column = 0, size - 1 do
        local cr = column * 3.0 / size - 2.0
        local zr, zi, zr2, zi2 = 0.0, 0.0, 0.0, 0.0
        local n = 0
        while n < limit and zr2 + zi2 <= 4.0 do
            zi = 2.0 * zr * zi + ci
            zr = zr2 - zi2 + cr
            zr2 = zr * zr
            zi2 = zi * zi
            n = n + 1
        end
        if n == limit then
            inside = inside + 1
        end
    end
end
print(inside)
