def main():
    counts, i = {}, 0
    while i < 2000000:
        key = "key" + str(i * 7919 % 50000)
        counts[key] = counts.get(key, 0) + 1
        i = i + 1
    keys = sorted(counts)
    total = 0
    for n, key in enumerate(keys):
        total = (total * 31 + counts[key] * n + ord(key[0])) % 1000003
    print(len(keys), total, keys[1])


main()
