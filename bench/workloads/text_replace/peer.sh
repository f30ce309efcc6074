command -v mlr >/dev/null || exit 77
exec mlr --inidx --ifs ";" --onidx put -q '
line = gsub($1, "([0-9]+)-([0-9]+) took", "\2/\1 for");
@places += strlen(splitax(line, "/")[1]);
@length += strlen(line);
end {
    print @places . " " . @length;
}' lines.txt
