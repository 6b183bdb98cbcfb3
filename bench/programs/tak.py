# Calls as arguments of calls.
def tak(x, y, z):
    if y >= x:
        return z
    return tak(tak(x - 1, y, z), tak(y - 1, z, x), tak(z - 1, x, y))


total = 0
for _ in range(30):
    total += tak(18, 12, 6)
print(total)
