from bisect import bisect_right
from socket import inet_aton


def main():
    firsts, lasts, values = [], [], []
    with open("ranges.csv", encoding="ascii") as lines:
        for line in lines:
            network, value = line.split(",")
            first, bits = network.split("/")
            firsts.append(int.from_bytes(inet_aton(first), "big"))
            lasts.append(firsts[-1] + (1 << (32 - int(bits))) - 1)
            values.append(value)
    found, total = 0, 0
    with open("addresses.txt", encoding="ascii") as lines:
        for line in lines:
            address = int.from_bytes(inet_aton(line.rstrip()), "big")
            index = bisect_right(firsts, address) - 1
            if index >= 0 and address <= lasts[index]:
                found += 1
                total += int(values[index])
    print(found, total)


main()
