#!/usr/bin/env bash
# usage: filter.sh COMMAND WORK
# What programs that start the command as a filter rely on.
set -euo pipefail
command=$1 work=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work"

check() { # what, expected, actual
    [ "$2" = "$3" ] || { echo "$1: expected '$2', got '$3'" >&2; exit 1; }
}

# Only records go to standard output, only messages to standard error.
status=0
printf '1\nx\n3\n' | "$command" run -e 'if (edrLong(f1) > 2) edrLong(f1) = 4;' --records - --stats \
    > out 2> err || status=$?
check "records" "$(printf '1\nx\n4')" "$(cat out)"
check "messages" 2 "$(wc -l < err)"
check "status" 0 "$status"

# What is done is written before more input is waited for; SIGTERM ends it behind the record.
mkfifo input
"$command" run -e 'edrLong(f1) = edrLong(f1) + 1;' --records - < input > out 2> err &
worker=$!
exec 3> input
printf '1\n2\n3' >&3
for _ in {1..500}; do
    [ "$(wc -c < out)" -lt 4 ] || break
    sleep 0.01
done
check "written before waiting" "$(printf '2\n3')" "$(cat out)"
kill -TERM "$worker"
status=0
wait "$worker" || status=$?
exec 3>&-
check "status after SIGTERM" 4 "$status"
check "output after SIGTERM" "$(printf '2\n3')" "$(cat out)"
check "message after SIGTERM" "kestrel: interrupted after 2 records" "$(cat err)"

# A closed pipe ends it at once and without a message.
status=$( { seq 10000000 2>/dev/null | { "$command" run -e '' --records - 2> err && s=0 || s=$?
    echo "$s" >&4; } | head -n 1 > out; } 4>&1 || true)
check "status with a closed pipe" 1 "$status"
check "message with a closed pipe" "" "$(cat err)"
