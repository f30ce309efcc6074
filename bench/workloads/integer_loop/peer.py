def main():
    i, a, b, total = 0, 1, 2, 0
    while i < 10000000:
        a = a + i % 7
        b = (b * 3 + a) % 1000003
        if b > 500000:
            total = total + 1
        else:
            total = total + b % 2
        i = i + 1
    print(a, b, total)


main()
