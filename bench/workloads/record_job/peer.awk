BEGIN {
    FS = ","
    while ((getline < "calls.csv") > 0) {
        price = $4 * $3
        total += price
        records++
        printf "%s,%s,%s,%s,%.4f\n", $1, $2, $3, $4, price
    }
    printf "%d %.4f\n", records, total
}
