def weight(a, b):
    return a + b % 5


def main():
    total, i = 0, 0
    while i < 10000000:
        total = weight(total, i)
        i = i + 1
    print(total)


main()
