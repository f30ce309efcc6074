def main():
    limit, count = 2000000, 0
    composite = [False] * (limit + 1)
    for i in range(2, limit + 1):
        if not composite[i]:
            count = count + 1
            for j in range(i * i, limit + 1, i):
                composite[j] = True
    print(count)


main()
