#!/usr/bin/env bash
# usage: postgresql.sh FROM PG_CONFIG [OPTION OF PSQL...]
# Starts a server in a folder of its own, with the extension from FROM, a build or a folder with
# installed packages, and asks it by psql: what the options say, or all that is tested.
set -euo pipefail
build=$1 pg=$2
bin=$($pg --bindir)
[ -x "$bin/initdb" ] || { echo "postgresql.sh: no server is installed, skipped"; exit 77; }
user=$(id -un)
if [ "$user" = root ]; then
    user=postgres
    id -u $user > /dev/null 2>&1 || { echo "postgresql.sh: no user for a server, skipped"; exit 77; }
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/kestrel-postgresql.XXXXXX")
as() {
    if [ "$(id -un)" = "$user" ]; then "$@"; else runuser -u "$user" -- "$@"; fi
}
trap 'as "$root/$bin/pg_ctl" -D "$work/data" -m immediate stop > /dev/null 2>&1 || true; rm -rf "$work"' EXIT

# The server looks for extensions near its own file, so it gets a root of its own.
root=$work/root
mkdir -p "$root$bin" "$root$($pg --pkglibdir)" "$root$($pg --sharedir)"
cp "$bin"/{postgres,initdb,pg_ctl} "$root$bin"
cp -rs "$($pg --pkglibdir)/." "$root$($pg --pkglibdir)"
cp -rs "$($pg --sharedir)/." "$root$($pg --sharedir)"
if [ -f "$build/CMakeCache.txt" ]; then
    for component in postgresql library; do
        cmake --install "$build" --prefix "$root/usr" --component $component > "$work/install.log" 2>&1
    done
else
    cp -r "$build/usr/." "$root/usr"
fi
chmod 755 "$work"
mkdir "$work/data" "$work/socket"
chown "$user" "$work/data" "$work/socket"
cd "$work"
as "$root$bin/initdb" -D data -E UTF8 --locale C.UTF-8 -A trust -U "$user" > initdb.log
cat >> data/postgresql.conf <<END
listen_addresses = ''
unix_socket_directories = '$work/socket'
fsync = off
END
as "$root$bin/pg_ctl" -D data -l "$work/data/log" -w start > start.log
run() { as "$bin/psql" -h "$work/socket" -d postgres -X -q "$@"; }
if [ $# -gt 2 ]; then
    shift 2
    run "$@"
    exit
fi

failures=0
# Each test is a statement and what psql must print for it, rows or the error.
expect() {
    local got
    got=$(run -A -t -v VERBOSITY="${3:-terse}" -c "$1" 2>&1) || true
    if [[ $got != $2 ]]; then
        printf 'FAILED: %s\n  expected: %s\n  got:      %s\n' "$1" "$2" "$got"
        failures=$((failures + 1))
    fi
}
run -c 'CREATE EXTENSION kestrel' \
    -c "CREATE TABLE calls AS SELECT i, jsonb_build_object('id', i, 'cost', i * 0.25) AS r FROM generate_series(1, 20000) i" \
    -c "ALTER DATABASE postgres SET min_parallel_table_scan_size = 0" \
    -c "ALTER DATABASE postgres SET parallel_setup_cost = 0" -c 'GRANT SELECT ON calls TO pg_monitor' -c 'ANALYZE calls'
number() { expect "SELECT kestrel.eval_numeric(\$\$ $1 \$\$, \$\$ $2 \$\$)" "$3" "${4:-terse}"; }

# Values, each way, exactly or not at all.
number 'result = edrDecimal(n);' '{"n": -1234567890123456789.123456780}' -1234567890123456789.123456780
number 'result = edrDecimal(n);' '{"n": 0.0000000000000000000000000001}' 0.0000000000000000000000000001
number 'result = edrDecimal(n);' '{"n": 12345678901234567890123456789}' '*no Decimal*'
number 'result = edrDecimal(n);' '{"n": 1234567890.12345678901234567891}' '*more digits than a Decimal has*'
number 'result = longToDecimal(edrLong(a_b.c, -1));' '{"a-b": {"c": [1, 2, 9e18]}}' 9000000000000000000
number 'result = edrDecimal(none);' '{}' ''
number 'recordDrop();' '{}' ''
number 'result = 1.0;' '[]' '*no object of JSON'
number 'result = edrDecimal(a, 5) + edrDecimal(a.b);' '{"a": [1]}' '*field a.b: its path leads through*'
number 'result = longToDecimal(edrArrayIndex(a) * 100 + edrArrayIndex(b) * 10 + edrArrayIndex(c));' '{"a": [1, 2], "b": 5}' 190
expect "SELECT kestrel.eval_text('result = edrString(a) + edrString(b);', '{\"a\": \"J\\u00f6\\n\\\"\", \"b\": true}')" $'Jö\n"true'
expect "SELECT kestrel.eval_text('result = strSubstr(edrString(a), 0, 1);', '{\"a\": \"\u00f6\"}')" '*invalid byte sequence*'
expect "SELECT kestrel.eval_text('result = edrString(a) + edrString(b);', '{\"a\": [1, {\"x\": null}], \"b\": 0.00012}')" '\[1, {"x": null}\]0.00012'
expect "SELECT kestrel.eval_bool('result = edrEmptyInput(a) and edrMissingInput(b);', '{\"a\": null}')" t
for date in 0001-01-01T00:00:00+00:00 9999-12-31T23:59:59+00:00 2026-03-29T01:30:00+02:00; do
    expect "SELECT kestrel.eval_timestamptz('result = edrDate(t);', jsonb_build_object('t', '$date')) = '$date'" t
done
expect "SELECT kestrel.eval_text('String s; function BEGIN { s = edrString(a); } result = s + edrString(a);', '{\"a\": \"x\"}')" x
expect "SELECT kestrel.eval_bool('result = edrDate(t) > strToDate(\"2020-01-01\");', '{}')" '*field t: no date to compare*'
expect "SELECT kestrel.eval_text('result = edrString(x_y);', '{\"x-y\": 1, \"x y\": 2}')" 1
expect "SELECT kestrel.eval_text('Long i; for (i = 0; i < 30000; i = i + 1) logStdout(\"öa\"); result = \"x\";', '{}')" '*x'
expect "SELECT kestrel.eval_timestamptz('result = edrDate(t);', to_jsonb(x)) FROM (SELECT 'infinity'::timestamptz AS t) x" '*no Date*'
expect "SELECT kestrel.eval_timestamptz('result = edrDate(t);', '{\"t\": \"2026-01-01 00:00:00.5\"}')" '*fractions of a second*'
expect "SELECT kestrel.eval_jsonb('edrDecimal(a.b) = edrDecimal(a.b) + 0.1; edrDeleteField(c);', '{\"a\": {\"b\": 1}, \"c\": 2, \"d\": [3]}')" '{"a": {"b": 1.1}, "d": \[3\]}'
expect "SELECT kestrel.eval_rows('Long i; for (i = 0; i < 3; i = i + 1) { edrLong(n) = i; recordWrite(); } recordDrop();', '{}')" \
    $'{"n": 0}\n{"n": 1}\n{"n": 2}'
expect "SELECT * FROM kestrel.eval_row('Long n; Decimal d; String s; Bool b; Date t; n = 5; d = 1.50; s = \"x\"; b = true;', '{}')
    AS r(n integer, d numeric, s text, b boolean, t timestamptz)" '5|1.50|x|t|'
expect "SELECT * FROM kestrel.eval_row('Long n; n = 3000000000;', '{}') AS r(n integer)" '*does not fit*'
expect "SELECT * FROM kestrel.eval_row('Long n;', '{}') AS r(n text)" '*Long*'

# Errors, by state, with place and advice.
number $'Long a;\nresult = x;' '{}' '*42601*unknown name `x`*LINE 2:*line 2, column 10*HINT:*declare*' verbose
number $'\nresult = edrDecimal(n);' '{"n": "abc"}' '*22000*field n: no Decimal*line 2*' verbose
number 'recordReject("never");' '{}' '*22000*never*' verbose
number 'system("id");' '{}' '*42601*not allowed*kestrel.capabilities*' verbose
expect "SET kestrel.step_limit = 1000; SELECT kestrel.eval_text('while (true) {}', '{}')" '*54000*steps*kestrel.step_limit*' verbose
expect "SET kestrel.memory_limit = '1MB'; SELECT kestrel.eval_text('while (true) result = result + \"0123456789\";', '{}')" '*54000*memory*' verbose
expect "SET statement_timeout = 200; SELECT kestrel.eval_text('while (true) {}', '{}')" '*57014*statement timeout*' verbose
expect "LOAD 'kestrel'; SET ROLE pg_monitor; SET kestrel.time_limit = 1" '*permission denied*'

# Programs by name.
expect "SELECT kestrel.add_program('fee', 'result = edrDecimal(cost) * 2.0;')" 1
expect "SELECT kestrel.add_program('fee', 'result = edrDecimal(cost) * 3.0;')" 2
expect "SELECT kestrel.add_program('fee', 'result = 1')" '*missing*'
expect "SET ROLE pg_monitor; SELECT sum(kestrel.eval_numeric(kestrel.program('fee'), r)), sum(kestrel.eval_numeric(kestrel.program('fee', 1), r)) FROM calls" '150007500.00*|100005000.00*'
expect "SELECT kestrel.program('fee', 3)" '*there is no program*'
# More programs than are kept.
expect "SET kestrel.programs_kept = 2; SELECT sum(kestrel.eval_numeric(format('result = %s.0;', i % 5), '{}')) FROM generate_series(1, 1000) i" 2000.0

# In parallel plans: proven programs only, with the same sums.
plan=$(run -A -t -c "EXPLAIN (COSTS OFF) SELECT sum(kestrel.eval_numeric_parallel(kestrel.program('fee'), r)) FROM calls")
[[ $plan == *'Workers Planned'* ]] || { echo "FAILED: no parallel plan: $plan"; failures=$((failures + 1)); }
expect "SELECT sum(kestrel.eval_numeric_parallel(kestrel.program('fee'), r)) FROM calls" '150007500.00*'
expect "SELECT max(kestrel.eval_numeric_parallel('Long n; n = n + 1; result = longToDecimal(n);', r)) FROM calls" '*0A000*not proven*line 1*' verbose
expect "SELECT max(kestrel.eval_numeric('Long n; n = n + 1; result = longToDecimal(n);', r)) FROM calls" 20000
exit $((failures > 0))
