BEGIN {
    i = 0
    buffer = ""
    while (i < 2000000) {
        line = "item-" i ";"
        buffer = buffer line
        if (length(buffer) > 1000) {
            total = total + length(toupper(buffer))
            if (index(buffer, "99;") > 0) found = found + 1
            buffer = ""
        }
        if (substr(line, 3, 5) == "em-12") hits = hits + 1
        i = i + 1
    }
    print total, found, hits
}
