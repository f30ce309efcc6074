import sys
from decimal import Decimal


def main():
    total, records, write = Decimal("0"), 0, sys.stdout.write
    with open("calls.csv", encoding="ascii") as lines:
        for line in lines:
            fields = line.split(",")
            price = Decimal(fields[3]) * int(fields[2])
            total = total + price
            records = records + 1
            write(f"{fields[0]},{fields[1]},{fields[2]},{fields[3]},{price:.4f}\n")
    write(f"{records} {total:.4f}\n")


main()
