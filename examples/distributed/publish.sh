#!/usr/bin/env bash
# usage: publish.sh HOST PORT STREAM LINES < RECORDS
# Makes STREAM, which keeps the subject STREAM.records on disk, and publishes the records from
# standard input there, LINES of them a message; LINES with quotes must not hold line ends. Speaks the
# server's own protocol and needs nothing but bash and the usual tools.
set -euo pipefail
if [ $# -ne 4 ]; then
    sed -n '2,5s/^# //p' "$0" >&2
    exit 2
fi
host=$1 port=$2 stream=$3 lines=$4
blocks=$(mktemp -d)
trap 'rm -r "$blocks"' EXIT
split -a 6 -l "$lines" - "$blocks/"
exec 3<> "/dev/tcp/$host/$port"

# Publishes the file $2 as the subject $1 and waits for the server's answer.
publish() {
    { printf 'PUB %s answers.%d %d\r\n' "$1" $$ "$(stat -c %s "$2")"; cat "$2"; printf '\r\n'; } >&3
    while read -r answer <&3; do
        case $answer in
        *'"error"'*) echo "publish.sh: $answer" >&2; return 1 ;;
        PING*) printf 'PONG\r\n' >&3 ;;
        -ERR*) echo "publish.sh: $answer" >&2; return 1 ;;
        '{'*) return ;;
        esac
    done
    echo "publish.sh: the server went away" >&2
    return 1
}

printf 'CONNECT {"verbose":false}\r\nSUB answers.%d 1\r\n' $$ >&3
printf '{"name":"%s","subjects":["%s.records"],"storage":"file","retention":"limits"}' \
    "$stream" "$stream" > "$blocks/stream"
publish "\$JS.API.STREAM.CREATE.$stream" "$blocks/stream"
rm "$blocks/stream"
for block in "$blocks"/*; do publish "$stream.records" "$block"; done
