command -v mlr >/dev/null || exit 77
exec mlr -n put 'end {
    zeros = 0;
    digest = "";
    for (i = 1; i <= 1000000; i += 1) {
        digest = sha256(string(i));
        if (digest[1:2] == "00") {
            zeros += 1;
        }
    }
    print zeros . " " . digest;
}'
