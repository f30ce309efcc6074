with open("lines.txt", encoding="ascii") as file:
    lines = file.read().split("\n")
lines.pop()
lines.sort()
for i in range(0, len(lines), 100000):
    print(lines[i])
