BEGIN {
    for (i = 0; i < 4000; i++) {
        for (j = 0; j < 4000; j++) {
            if ((i + j) % 3 == 0) sum = sum + i
            else sum = sum - j
        }
    }
    printf "%.0f\n", sum
}
