def push_heap(heap, cost, cell):
    i = len(heap)
    heap.append([cost, cell])
    while i > 0:
        up = (i - 1) // 2
        if heap[up][0] <= heap[i][0]:
            return
        heap[up], heap[i] = heap[i], heap[up]
        i = up


def pop_heap(heap):
    top = heap[0]
    last = heap.pop()
    size = len(heap)
    i = 0
    if size == 0:
        return top[0], top[1]
    heap[0] = last
    while i * 2 + 1 < size:
        child = i * 2 + 1
        if child + 1 < size and heap[child + 1][0] < heap[child][0]:
            child += 1
        if heap[i][0] <= heap[child][0]:
            break
        heap[i], heap[child] = heap[child], heap[i]
        i = child
    return top[0], top[1]


width = 110
height = 90
grid = []
seed = 5
for y in range(height):
    row = []
    for x in range(width):
        seed = (seed * 1103 + 12345) % 65536
        row.append(seed % 9 + 1)
    grid.append(row)

steps = [[1, 0], [-1, 0], [0, 1], [0, -1]]


def shortest(grid, start_x, start_y):
    best = {}
    heap = []
    push_heap(heap, 0, [start_x, start_y])
    best[start_y * 1000 + start_x] = 0
    while len(heap) > 0:
        cost, cell = pop_heap(heap)
        x = cell[0]
        y = cell[1]
        if cost == best[y * 1000 + x]:
            for step in steps:
                nx = x + step[0]
                ny = y + step[1]
                if 1 <= nx <= width and 1 <= ny <= height:
                    total = cost + grid[ny - 1][nx - 1]
                    known = best.get(ny * 1000 + nx)
                    if known is None or total < known:
                        best[ny * 1000 + nx] = total
                        push_heap(heap, total, [nx, ny])
    return best


check = 0
for turn in range(1, 11):
    best = shortest(grid, turn, 1)
    check += best[height * 1000 + width]
print(check, best[45 * 1000 + 7])
