int64 weight(int64 a, int64 b) {
    return a + b % 5;
}
void main() {
    int64 sum = 0, i = 0;
    while (i < 10000000) {
        sum = weight(sum, i);
        i = i + 1;
    }
    print(sum + "\n");
}
