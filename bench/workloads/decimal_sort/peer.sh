command -v mlr >/dev/null || exit 77
exec mlr --inidx --ifs ";" --onidx sort -nf 1 then cat -n then filter '$n % 100000 == 1' then cut -f 1 numbers.txt
