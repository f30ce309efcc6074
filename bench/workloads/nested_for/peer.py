def main():
    total = 0
    for i in range(4000):
        for j in range(4000):
            if (i + j) % 3 == 0:
                total = total + i
            else:
                total = total - j
    print(total)


main()
