#!/usr/bin/env bash
# usage: stream.sh COMMAND EXAMPLES WORK
# Compares workers on the messages of a stream, which are killed, as is the server, with a single run.
set -euo pipefail
command=$1 examples=$2 work=$3
"$command" work --help > /dev/null 2>&1 && command -v nats-server > /dev/null || exit 77

rm -rf "$work"
mkdir -p "$work/ports"
cd "$work"
trap 'kill -9 $(jobs -p) 2> /dev/null || true' EXIT

# Starts the server, on the port $1; -1 is any.
serve() {
    rm -f ports/*
    nats-server -a 127.0.0.1 -p "$1" -js -sd "$work/store" --ports_file_dir ports 2>> server.log &
    server=$!
    for ((i = 0; i < 100; ++i)); do
        port=$(sed -n 's/.*nats:\/\/127.0.0.1:\([0-9]*\).*/\1/p' ports/* 2> /dev/null) || true
        [ -z "$port" ] || return 0
        sleep 0.1
    done
    return 1
}

awk 'BEGIN { for (i = 0; i < 30000; ++i)
    printf "\"Smith, %d\",%s,%d,\n", i, i % 50 ? 49150 + i : 0, i * 7919 % 600 }' > calls.csv
fields=(--fields customer,destination,seconds,price)
# Slow enough for workers to be killed halfway.
{ cat "$examples/rate.ks"; echo 'Long i = 0; for (i = 0; i < 20000; i = i + 1) {}'; } > slow.ks
"$command" run slow.ks --records calls.csv "${fields[@]}" --output single.csv --rejects single.txt

serve -1
"$examples/publish.sh" 127.0.0.1 "$port" CALLS 500 < calls.csv
start() {
    "$command" work slow.ks --nats "nats://127.0.0.1:$port" --stream CALLS --out rated \
        --ack-wait 2 "${fields[@]}" "$@" 2>> workers.log &
}
# As a supervisor does: a worker that finds no server is worth trying again.
persist() {
    local status=75
    while [ $status -eq 75 ]; do
        status=0
        "$command" work slow.ks --nats "nats://127.0.0.1:$port" --stream CALLS --out rated \
            --ack-wait 2 "${fields[@]}" --until-done 2>> workers.log || status=$?
        sleep 0.1
    done
    return $status
}
finished() { find rated -name 'manifest-*' 2> /dev/null | wc -l; }
reach() { while [ "$(finished)" -lt "$1" ]; do sleep 0.02; done; }

# Workers are killed while they work, and so is the server.
start; first=$!
start; second=$!
reach 5
kill -9 $first
start; third=$!
reach 12
kill -9 $second $third
persist & fourth=$!
persist & fifth=$!
reach 20
kill -9 $server
wait $server || true
serve "$port"
wait $fourth
wait $fifth
test "$(finished)" -eq 60
cat rated/part-* | cmp - single.csv
cat rated/rejects-* | cut -f 2 | cmp - <(cut -f 2 single.txt)
test -z "$(find rated -name '.*.??????')"

# Totals, and the first record of each key, over all messages.
cat > totals.ks <<'END'
Decimal by{}; Long n;
edrDecimal(price) = longToDecimal(edrLong(seconds)) * 0.25;
total(by, strSubstr(edrString(destination), 0, 3), edrDecimal(price));
totalCount(n);
recordUnique(edrString(seconds));
function END {
    String ks[]; Long k = hashKeys(by, ks); Long i;
    for (i = 0; i < k; i = i + 1) { edrString(customer) = ks[i]; edrDecimal(price) = by{ks[i]}; recordWrite(); }
    edrLong(seconds) = n; recordWrite();
}
END
"$command" run totals.ks --records calls.csv "${fields[@]}" --output single-totals.csv
"$command" work totals.ks --nats "nats://127.0.0.1:$port" --stream CALLS --out totals \
    --consumer totals "${fields[@]}" --until-done
"$command" merge totals | cmp - single-totals.csv
test "$(wc -l < single-totals.csv)" -gt 600
rm totals/manifest-000000000007-*
{ "$command" merge totals 2>&1 || test $? -eq 2; } | grep -q 'message 7 is missing'

# Another group of workers gets all messages once more, and finds their results.
before=$(stat -c %Y.%i rated/part-*)
start --until-done --consumer again
wait $!
test "$(grep -c 'is complete in rated, skipped' workers.log)" -ge 60
test "$before" = "$(stat -c %Y.%i rated/part-*)"

# A script that carries something from record to record is refused, and the messages stay.
echo 'Long n; n = n + 1; edrLong(seconds) = n;' > state.ks
status=0
"$command" work state.ks --nats "nats://127.0.0.1:$port" --stream CALLS --out state \
    --consumer state "${fields[@]}" 2> state.log || status=$?
test $status -eq 2
grep -q 'carries\|keeps\|state' state.log
test ! -e state || test -z "$(find state -name 'part-*')"
