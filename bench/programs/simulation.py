# A simulation: customers come to a bank's counters and wait in line.
seed = 42


def random(limit):
    global seed
    seed = (seed * 1103 + 12345) % 65536
    return seed % limit


def run(minutes, counters):
    line = []
    first = 0
    busy = [0] * counters
    served = 0
    waited = 0
    for minute in range(1, minutes + 1):
        if random(10) < 6:
            line.append({"arrived": minute, "work": 2 + random(7)})
        for i in range(counters):
            if busy[i] > 0:
                busy[i] -= 1
            elif first < len(line):
                customer = line[first]
                first += 1
                busy[i] = customer["work"]
                waited += minute - customer["arrived"]
                served += 1
    return {"served": served, "waited": waited, "left": len(line) - first}


def main():
    for _ in range(4):
        for counters in range(2, 6):
            result = run(60000, counters)
            print(counters, result["served"], result["waited"] % 1000003, result["left"])


main()
