def main():
    buffer, total, found, hits, i = "", 0, 0, 0, 0
    while i < 2000000:
        line = "item-" + str(i) + ";"
        buffer = buffer + line
        if len(buffer) > 1000:
            total = total + len(buffer.upper())
            if buffer.find("99;") >= 0:
                found = found + 1
            buffer = ""
        if line[2:7] == "em-12":
            hits = hits + 1
        i = i + 1
    print(total, found, hits)


main()
