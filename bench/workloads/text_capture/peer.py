import re


def main():
    found, total = 0, 0
    search = re.compile(r"call \+(\d+)-(\d+)").search
    with open("lines.txt", encoding="ascii") as lines:
        for line in lines:
            match = search(line)
            if match:
                country, number = match.groups()
                found += 1
                total += int(country) + len(number)
    print(found, total)


main()
