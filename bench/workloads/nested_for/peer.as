void main() {
    int64 sum = 0;
    for (int64 i = 0; i < 4000; i = i + 1) {
        for (int64 j = 0; j < 4000; j = j + 1) {
            if ((i + j) % 3 == 0) {
                sum = sum + i;
            } else {
                sum = sum - j;
            }
        }
    }
    print(sum + "\n");
}
