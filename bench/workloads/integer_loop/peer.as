void main() {
    int64 i = 0, a = 1, b = 2, sum = 0;
    while (i < 10000000) {
        a = a + i % 7;
        b = (b * 3 + a) % 1000003;
        if (b > 500000) {
            sum = sum + 1;
        } else {
            sum = sum + b % 2;
        }
        i = i + 1;
    }
    print(a + " " + b + " " + sum + "\n");
}
