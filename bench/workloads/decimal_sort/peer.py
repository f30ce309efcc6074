from decimal import Decimal

with open("numbers.txt", encoding="ascii") as lines:
    numbers = [Decimal(line) for line in lines]
numbers.sort()
for i in range(0, len(numbers), 100000):
    print(f"{numbers[i]:.2f}")
