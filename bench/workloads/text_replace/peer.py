import re


def main():
    places, length = 0, 0
    sub = re.compile(r"(\d+)-(\d+) took").sub
    with open("lines.txt", encoding="ascii") as lines:
        for line in lines:
            line = sub(r"\2/\1 for", line)
            places += line.find("/")
            length += len(line) - 1
    print(places, length)


main()
