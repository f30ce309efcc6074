import re


def main():
    with open("texts.txt", encoding="ascii") as lines:
        texts = list(lines)
    search = re.compile("[A-Z][A-Z][0-9]+-[0-9]+").search
    total = 0
    for _ in range(60):
        for text in texts:
            found = search(text)
            total = total + (found.start() if found else -1)
    print(total)


main()
