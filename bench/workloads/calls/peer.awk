function weight(a, b) { return a + b % 5 }
BEGIN {
    sum = 0
    while (i < 10000000) {
        sum = weight(sum, i)
        i = i + 1
    }
    print sum
}
