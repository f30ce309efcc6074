#!/usr/bin/env bash
# usage: distributed.sh COMMAND EXAMPLES WORK
# Compares the recipes for several machines with a single run; workers are killed while they work.
set -euo pipefail
command=$1 examples=$2 work=$3
command -v parallel >/dev/null || exit 77

rm -rf "$work"
mkdir -p "$work"
cd "$work"
export HOME=$work  # where parallel keeps its notes
awk 'BEGIN {
    print "customer,destination,seconds,price";
    for (i = 0; i < 60000; ++i)
        printf "\"Smith, %d\",%s,%d,\n", i, i % 50 ? 49150 + i : 0, i * 7919 % 600;
}' > calls.csv
single() { "$command" run "$examples/rate.ks" --records calls.csv --header "$@"; }
single --output single.csv --rejects single.txt
# The same script, slow enough to be killed halfway.
{ cat "$examples/rate.ks"; echo 'Long i = 0; for (i = 0; i < 10000; i = i + 1) {}'; } > slow.ks

# A worker that is killed on its first attempt at a part as soon as it begins to write, and on the
# second attempt when some of its records are in the file.
cat > mortal <<'END'
#!/usr/bin/env bash
[ "$1" = run ] || exec "$COMMAND" "$@"
for argument; do [[ $argument != */8 ]] || part=${argument%/8}; done
attempt=$(grep -cx "$part" attempts)
[ "$attempt" -lt 2 ] || exec "$COMMAND" "$@"
echo "$part" >> attempts
# However fast the machine is: it works for some milliseconds at a time, in the slowest tier.
"$COMMAND" "$@" --tier tree &
worker=$!
shopt -s nullglob
while kill -STOP $worker 2>/dev/null; do
    for file in rated/.part-000000"$part"-of-*; do
        [ "$attempt" -eq 1 ] && [ ! -s "$file" ] || break 2
    done
    kill -CONT $worker
    sleep 0.005
done
kill -9 $worker 2>/dev/null
status=0
wait $worker || status=$?
[ $status -ne 137 ] || echo "$part" >> killed
exit $status
END
chmod +x mortal
: > attempts
export COMMAND=$command
KESTREL=$work/mortal "$examples/parallel.sh" slow.ks calls.csv rated 8 --header --jobs 2 2> messages
test "$(wc -l < killed)" -ge 8
compare() {
    cat "$1"/part-* | cmp - single.csv
    cat "$1"/rejects-* | cmp - single.txt
    test -z "$(find "$1" -name '.*.??????')"
    test "$(find "$1" -type f | wc -l)" -eq $((3 * $2))
}
compare rated 8

# Nothing is left to do.
KESTREL=$command "$examples/parallel.sh" slow.ks calls.csv rated 8 --header --jobs 2 \
    2> messages
test "$(grep -c 'is complete in rated, skipped' messages)" -eq 8

# A join with totals and the first record of each key.
awk 'BEGIN { print "prefix,price:Decimal"; for (i = 0; i < 90; ++i) print 49000 + i * 1000 "," i ".25" }' > rates.csv
cat > join.ks <<'END'
Decimal sum; Decimal by{}; Long n;
String prefix = strSubstr(edrString(destination), 0, 2) + "000";
if (tableFind(rates, prefix) == false) recordReject("no rate");
edrDecimal(price) = tableField(price) * edrDecimal(seconds);
total(sum, edrDecimal(price));
total(by, prefix, edrDecimal(price));
totalCount(n);
recordUnique(edrString(seconds) + prefix);
function END {
    String ks[]; Long k = hashKeys(by, ks); Long i;
    for (i = 0; i < k; i = i + 1) { String key = ks[i]; edrString(customer) = key; edrDecimal(price) = by{key}; recordWrite(); }
    edrLong(seconds) = n; edrDecimal(price) = sum; recordWrite();
}
END
join=(join.ks --records calls.csv --header --table rates=rates.csv)
"$command" run "${join[@]}" --output joined.csv --rejects joined.txt
test "$(wc -l < joined.csv)" -gt 1000
{ cat join.ks; echo 'Long i = 0; for (i = 0; i < 10000; i = i + 1) {}'; } > slowjoin.ks
: > attempts
: > killed
rm -r rated
KESTREL=$work/mortal "$examples/parallel.sh" slowjoin.ks calls.csv rated 8 --header --table rates=rates.csv 2> messages
test "$(wc -l < killed)" -ge 8
"$command" merge rated --rejects merged.txt | cmp - joined.csv
cmp merged.txt joined.txt

# The tasks of an array job, in any order.
export SLURM_ARRAY_TASK_COUNT=3
for SLURM_ARRAY_TASK_ID in 2 3 1 2; do
    export SLURM_ARRAY_TASK_ID
    KESTREL=$command "$examples/slurm.sh" "$examples/rate.ks" calls.csv array --header 2>> array.log
done
compare array 3

# A filter on blocks of lines.
tail -n +2 calls.csv | parallel --will-cite --pipe --keep-order --block 300k "$command" run \
    "$examples/rate.ks" --records - --fields customer,destination,seconds,price \
    --rejects /dev/null | cmp - <(tail -n +2 single.csv)
