command -v mlr >/dev/null || exit 77
exec mlr --inidx --ifs ";" --onidx put -q '
if ($1 =~ "call [+]([0-9]+)-([0-9]+)") {
    @found += 1;
    @sum += int("\1") + strlen("\2");
}
end {
    print @found . " " . @sum;
}' lines.txt
