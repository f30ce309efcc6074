void main() {
    int64 limit = 2000000, count = 0;
    array<bool> composite(limit + 1);
    for (int64 i = 2; i <= limit; i = i + 1) {
        if (composite[i] == false) {
            count = count + 1;
            for (int64 j = i * i; j <= limit; j = j + i) {
                composite[j] = true;
            }
        }
    }
    print(count + "\n");
}
