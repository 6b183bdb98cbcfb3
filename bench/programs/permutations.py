visits = rising = 0
def visit(a):
    global visits, rising
    visits += 1
    if a[0] < a[1] and a[-1] > a[0]:
        rising += a[1]
def permute(a, n, callback):
    if n == 1:
        callback(a)
        return
    for i in range(n):
        permute(a, n - 1, callback)
        if n % 2 == 0:
            a[i], a[n - 1] = a[n - 1], a[i]
        else:
            a[0], a[n - 1] = a[n - 1], a[0]
for turn in range(3):
    permute([1, 2, 3, 4, 5, 6, 7, 8, 9], 9, visit)
print(visits, rising)
