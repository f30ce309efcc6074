void main() {
    string buffer, line;
    int64 total = 0, found = 0, hits = 0, i = 0;
    while (i < 2000000) {
        line = "item-" + i + ";";
        buffer = buffer + line;
        if (buffer.length() > 1000) {
            total = total + upper(buffer).length();
            if (buffer.findFirst("99;") >= 0) {
                found = found + 1;
            }
            buffer = "";
        }
        if (line.substr(2, 5) == "em-12") {
            hits = hits + 1;
        }
        i = i + 1;
    }
    print(total + " " + found + " " + hits + "\n");
}
