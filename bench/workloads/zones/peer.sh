command -v mlr >/dev/null || exit 77
exec mlr -n put 'end {
    summer = 0;
    text = "";
    for (i = 0; i < 1000000; i += 1) {
        text = strftime_local(1600000000 + i * 61, "%Y-%m-%d %H:%M:%S%z", "Europe/Berlin");
        if (text[-5:-1] == "+0200") {
            summer += 1;
        }
    }
    print summer . " " . text;
}'
