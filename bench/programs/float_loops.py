# The Mandelbrot set. Only its points are counted, and with a low limit: the languages' floats
# differ in width, which shows near the edge of the set.
def main():
    size = 420
    limit = 30
    inside = 0
    for row in range(size):
        ci = row * 2.0 / size - 1.0
        for column in range(size):
            cr = column * 3.0 / size - 2.0
            zr = zi = zr2 = zi2 = 0.0
            n = 0
            while n < limit and zr2 + zi2 <= 4.0:
                zi = 2.0 * zr * zi + ci
                zr = zr2 - zi2 + cr
                zr2 = zr * zr
                zi2 = zi * zi
                n += 1
            if n == limit:
                inside += 1
    print(inside)


main()
